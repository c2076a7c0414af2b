// The port-acquire loop: what is staged in the probe, and how its response is judged.
#include "tests/unit/api/api_fixture.h"

namespace {

class PortAcquire : public ApiTest {
 protected:
  PortAcquire() : probe_(AddProbe(L"P1")) { SetTargets(probe_, {0x11}); }

  TzErrorCode ByName(TzProgrammingMode mode, LONG key, CHAR write_key, LONG retries) {
    return Outcome(object_->PortAcquire(Text(L"P1"), mode, key, write_key, kAddress, kTestKey,
                                        retries, &error_));
  }

  TzErrorCode Status(Bytes response, CHAR abort = 0) {
    device_->reply = std::move(response);
    status_ = 77;
    return Outcome(object_->GetPortAcquireStatus(Text(L"P1"), abort, &status_, &error_));
  }

  static constexpr LONG kAddress = 0x11223344;
  static constexpr auto kTestKey = static_cast<LONG>(0xAABBCCDD);
  ProbeEntry& probe_;
  LONG status_ = 0;
};

TEST_F(PortAcquire, StagesTheKeyWritesAndTheRead) {
  const struct {
    TzProgrammingMode mode;
    LONG key;
    CHAR write_key;
    LONG retries;
    const char* setup;
    const char* staged;
  } kCases[] = {
      {TzProgrammingMode::RESET, 0, 1, 300, "SetupPortAcquire(300, xres)",
       "StageSWDCommand(8B 44 33 22 11 BB DD CC BB AA A5)"},
      {TzProgrammingMode::RESET, 12345, -1, 1, "SetupPortAcquire(1, xres)",
       "StageSWDCommand(8B 44 33 22 11 BB DD CC BB AA A5)"},
      {TzProgrammingMode::POWER_CYCLE, 0, 0, 50, "SetupPortAcquire(50, no xres)",
       "StageSWDCommand(A5)"},
      {TzProgrammingMode::VOLTAGE_SENSE, 0, 0, 50, "SetupPortAcquire(0, no xres)",
       "StageSWDCommand(A5)"},
      {TzProgrammingMode(7), 0, 0, 9, "SetupPortAcquire(9, no xres)", "StageSWDCommand(A5)"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.setup);
    const Calls calls = {test.setup, test.staged, "BeginPortAcquire()"};
    EXPECT_EQ(ByName(test.mode, test.key, test.write_key, test.retries), TzErrorCode::SUCCESS);
    EXPECT_EQ(device_->TakeCalls(), calls);
    // By handle the owner may do the same.
    ASSERT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
    EXPECT_EQ(Outcome(object_->PortAcquire(test.mode, test.key, test.write_key, kAddress, kTestKey,
                                           test.retries, handle_, &error_)),
              TzErrorCode::SUCCESS);
    EXPECT_EQ(device_->TakeCalls(), calls);
    EXPECT_EQ(Release(handle_), TzErrorCode::SUCCESS);
  }
}

TEST_F(PortAcquire, RefusedStartFetchesTheResponseAndFailsWhateverItSays) {
  device_->failing = {{"BeginPortAcquire", 3}};
  const Bytes kGood = {1, 1, 1, 1, 1, 1, 1};
  for (const Bytes& response : {kGood, Bytes{1}}) {
    device_->reply = response;
    TakeLog();
    EXPECT_EQ(ByName(TzProgrammingMode::RESET, 0, 0, 1), TzErrorCode::WFX_ERROR);
    EXPECT_EQ(device_->TakeCalls().back(), "RetrievePortAcquireResponse(100)");
    Lines lines = Failure("PortAcquire", TzErrorCode::WFX_ERROR);
    Lines query = Failure("GetPortAcquireStatus", TzErrorCode::WFX_ERROR);
    if (response == kGood) query.pop_back();
    lines.insert(lines.begin() + 1, query.begin(), query.end());
    EXPECT_EQ(TakeLog(), lines);
  }
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
  for (const auto& test : kCases) {
    SCOPED_TRACE(Hex(test.response));
    for (const CHAR abort : {0, 1}) {
      EXPECT_EQ(Status(test.response, abort),
                test.answered ? TzErrorCode::SUCCESS : TzErrorCode::WFX_ERROR);
      EXPECT_EQ(status_, test.answered ? 0 : 1);
      EXPECT_EQ(device_->TakeCalls(), Calls{"RetrievePortAcquireResponse(100)"});
    }
  }
}

TEST_F(PortAcquire, LengthBeyondTheRoomIsNoAnswer) {
  device_->extra_reported = 1;
  EXPECT_EQ(Status(Bytes(100, 1)), TzErrorCode::WFX_ERROR);
  EXPECT_EQ(status_, 1);
}

}  // namespace
