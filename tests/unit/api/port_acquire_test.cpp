// The port-acquire loop: what is staged in the probe, and how its response is judged.
#include "tests/unit/api/api_fixture.h"

namespace {

class PortAcquire : public ApiTest {
 protected:
  PortAcquire() : probe_(AddProbe(L"P1")) { SetTargets(probe_, {0x11}); }

  // Through the session, once there is one.
  Told Start(std::int32_t mode, LONG key, CHAR write_key, LONG retries, const std::string& told) {
    return {[=, this] {
              const auto way = TzProgrammingMode(mode);
              return handle_ == 0 ? object_->PortAcquire(name_, way, key, write_key, kAddress,
                                                         kTestKey, retries, &error_)
                                  : object_->PortAcquire(way, key, write_key, kAddress, kTestKey,
                                                         retries, handle_, &error_);
            },
            told};
  }

  static constexpr LONG kAddress = 0x11223344;
  static constexpr auto kTestKey = static_cast<LONG>(0xAABBCCDD);
  ProbeEntry& probe_;
  Text name_{L"P1"};
};

TEST_F(PortAcquire, StagesTheKeyWritesAndTheRead) {
  const std::string with_key = "StageSWDCommand(8B 44 33 22 11 BB DD CC BB AA A5); ";
  const std::string read = "StageSWDCommand(A5); ";
  const std::string begin = "BeginPortAcquire(); SUCCESS";
  for (int round = 0; round < 2; ++round) {
    ExpectTold({
        Start(0, 0, 1, 300, "SetupPortAcquire(300, xres); " + with_key + begin),
        Start(0, 12345, -1, 1, "SetupPortAcquire(1, xres); " + with_key + begin),
        Start(1, 0, 0, 50, "SetupPortAcquire(50, no xres); " + read + begin),
        Start(2, 0, 0, 50, "SetupPortAcquire(0, no xres); " + read + begin),
        Start(7, 0, 0, 9, "SetupPortAcquire(9, no xres); " + read + begin),
    });
    ASSERT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
  }
}

TEST_F(PortAcquire, RefusedStartFetchesTheResponseAndFailsWhateverItSays) {
  device_->failing = {{"BeginPortAcquire", 3}};
  const std::string told =
      "SetupPortAcquire(1, xres); StageSWDCommand(A5); BeginPortAcquire(); "
      "RetrievePortAcquireResponse(room 100); WFX_ERROR";
  const Lines start = Failure("PortAcquire", TzErrorCode::WFX_ERROR);
  const Lines query = Failure("GetPortAcquireStatus", TzErrorCode::WFX_ERROR);
  device_->reply = {1};
  ExpectTold({Start(0, 0, 0, 1, told)});
  EXPECT_EQ(TakeLog(), (Lines{start[0], query[0], query[1], start[1]}));
  device_->reply.assign(7, 1);
  ExpectTold({Start(0, 0, 0, 1, told)});
  EXPECT_EQ(TakeLog(), (Lines{start[0], query[0], start[1]}));
}

TEST_F(PortAcquire, ResponseIsJudgedByItsTwoStatusBytes) {
  const struct {
    Bytes response;
    bool answered;
  } kCases[] = {
      {{4, 1, 0, 0, 0, 0, 1}, true},        // bytes 0 and 2 to 5 do not count
      {{4, 0xF9, 0, 0, 0, 0, 0x0B}, true},  // bits 0 and 2 alone
      {{4, 4, 0, 0, 0, 0, 1}, false},       // the write before the read
      {{4, 1, 0, 0, 0, 0, 5}, false},       // the read
      {{4, 1, 0, 0, 0, 0, 2}, false},
      {{1, 1, 1, 1, 1}, false},  // too short
      {{1, 1, 1, 1, 1, 1}, false},
      {{}, false},
      {{0, 0, 0, 1, 2, 3, 4, 5, 1}, true},  // counted from its end
      {Bytes(200, 1), true},                // the probe fills all the room
  };
  LONG status = 77;
  const auto told = [&](CHAR abort, bool answered) -> Told {
    return {[&, abort] { return object_->GetPortAcquireStatus(name_, abort, &status, &error_); },
            std::string("RetrievePortAcquireResponse(room 100); ") +
                (answered ? "SUCCESS" : "WFX_ERROR")};
  };
  for (const auto& test : kCases) {
    device_->reply = test.response;
    for (const CHAR abort : {0, 1}) {
      status = 77;
      ExpectTold({told(abort, test.answered)});
      EXPECT_EQ(status, test.answered ? 0 : 1) << HexText(test.response);
    }
  }
  device_->extra_reported = 1;  // a length beyond the room
  ExpectTold({told(0, false)});
  EXPECT_EQ(status, 1);
}

}  // namespace
