// I2C, serial, trace and port acquisition.
#include "tests/unit/sim/bench_user.h"

namespace sim {
namespace {

using probe_driver::UsbStatus;
using testing::ElementsAre;

class I2cTest : public OneProbe {
 protected:
  I2cTest() {
    Plug(R"("kind": "wirefox", "i2c": [{"address": "0x50", "size": 16},
                                       {"address": "0x51", "size": 512}])");
    user_->LoadFpga(Bytes(100));
    user_->Command(0x41, 0x102, 3);
  }
  Bytes Packet(const Bytes& packet, std::uint8_t restart = 0) {
    user_->WriteRegister(8, restart);
    user_->Out(0x02, packet);
    return user_->In(0x84, static_cast<std::uint32_t>(packet.size()) + 2).data;
  }
  Bytes Native(const Bytes& packet) {
    user_->Out(0x01, packet);
    return user_->In(0x81, 64).data;
  }
};

TEST_F(I2cTest, MemoryIsWrittenAndReadBackAtItsPointer) {
  EXPECT_EQ(Packet({0xA0, 0x0E, 0x11, 0x22, 0x33}), (Bytes{1, 0x0E, 0x11, 0x22, 0x33}));
  const Bytes memory = bench_->I2cMemory("P", 0x50);
  ASSERT_EQ(memory.size(), 16u);
  EXPECT_EQ(memory[14], 0x11);
  EXPECT_EQ(memory[15], 0x22);
  EXPECT_EQ(memory[0], 0x33) << "the pointer wraps";
  EXPECT_EQ(Packet({0xA0, 0x0E, 0xA1, 0, 0, 0}, 0x81), (Bytes{1, 0x0E, 0xA1, 0x11, 0x22, 0x33}));
  EXPECT_EQ(Packet({0xA1, 0}), (Bytes{1, 0xFF})) << "reading goes on behind it";
  Packet({0xA2, 0x01, 0x23, 0x77});
  EXPECT_EQ(bench_->I2cMemory("P", 0x51)[0x123], 0x77) << "a large one has two pointer bytes";
}

TEST_F(I2cTest, StatusIsZeroWhereNobodyAnswers) {
  const struct {
    const char* what;
    Bytes packet;
    std::uint8_t restart;
    Bytes reply;
  } kTable[] = {
      {"write", {0x40, 1, 2}, 0, {0, 0, 0}},
      {"read", {0x41, 0, 0}, 0, {0, 0, 0}},
      {"second phase", {0xA0, 0x07, 0x41, 0, 0}, 0x81, {0, 0x07, 0x41, 0, 0}},
      {"restart behind the end: a single phase", {0xA0, 0x01, 0x55}, 0xFF, {1, 0x01, 0x55}},
      {"nothing sent", {}, 0x81, {}},
  };
  for (const auto& [what, packet, restart, reply] : kTable) {
    EXPECT_EQ(Packet(packet, restart), reply) << what;
  }
  bench_->Rearrange("P", R"({"external_supply": 74})");
  EXPECT_EQ(Packet({0xA0, 0x00}), (Bytes{0, 0})) << "no power";
}

TEST_F(I2cTest, ControllerUnderstandsTheOlderFormat) {
  EXPECT_EQ(Native({0x10, 0x02, 0x50, 0x03, 0xAB}), (Bytes{1, 0x03, 0xAB}));
  EXPECT_EQ(Native({0x14, 0x01, 0x50, 0x01, 0xD0, 0x03}), (Bytes{1, 0x03, 0xAB}));
  EXPECT_EQ(Native({0x11, 0x02, 0x20}), (Bytes{0, 0, 0}));
  EXPECT_EQ(Native({0x10, 0x3F, 0x50, 0x01}), (Bytes{0})) << "fewer bytes than it promises";
}

TEST_F(OneProbe, SerialBytesLoopBackOnTheSideThatTheModeChose) {
  Plug(R"("kind": "evk", "serial": {"internal_loopback": false})");
  user_->Command(0x41, 0x110, 3);
  user_->Out(0x01, {1, 2});
  user_->Out(0x01, {3});
  EXPECT_THAT(user_->In(0x81, 64).data, ElementsAre(1, 2, 3)) << "bytes, not packets";
  user_->Out(0x01, {4, 5});
  EXPECT_THAT(user_->In(0x81, 1).data, ElementsAre(4));
  user_->Command(0x41, 0x010, 3);
  EXPECT_EQ(user_->In(0x81, 64).status, UsbStatus::kAborted) << "a mode begins without old bytes";
  user_->Out(0x01, {6});
  EXPECT_EQ(user_->In(0x81, 64).status, UsbStatus::kAborted);
}

class SwvTest : public OneProbe {
 protected:
  void Begin(const std::string& swv) {
    Plug(std::string(kEvk) + ", \"swv\": " + swv);
    user_->Command(0x41, 0x10C, 3);
  }
  void SetUp(std::uint8_t divisor, std::uint8_t control) {
    user_->WriteRegister(0x23, divisor);
    user_->WriteRegister(0x20, control);
    user_->Command(0x67, 1, 2);
  }
};

TEST_F(SwvTest, TraceArrivesOnceSamplingIsCommittedAtThePinsRateAndCoding) {
  const struct {
    std::uint8_t divisor, control;
    bool read;
  } kTable[] = {{24, 2, true}, {12, 2, true}, {23, 2, false}, {24, 3, false}};
  for (const auto& [divisor, control, read] : kTable) {
    Begin(R"({"rate_hz": 2000000})");
    bench_->PushSwv("P", {1, 2});
    EXPECT_EQ(user_->In(0x86, 512).status, UsbStatus::kAborted);
    SetUp(divisor, control);
    bench_->PushSwv("P", {3, 4});
    bench_->PushSwv("P", {5});
    EXPECT_EQ(user_->In(0x86, 512).data, read ? (Bytes{3, 4, 5}) : Bytes{})
        << int{divisor} << " " << int{control};
  }
}

TEST_F(SwvTest, FullBufferLosesBytesAndSaysSo) {
  Begin(R"({"buffer": 4})");
  SetUp(1, 2);
  bench_->PushSwv("P", {1, 2, 3, 4, 5, 6});
  EXPECT_EQ(bench_->State("P").swv_lost, 2u);
  EXPECT_THAT(user_->In(0x86, 3).data, ElementsAre(1, 2, 3));
  bench_->PushSwv("P", {7});
  EXPECT_THAT(user_->In(0x86, 512).data, ElementsAre(4, 0x70, 7));
}

TEST_F(SwvTest, SourceThatSendsByItselfKeepsItsRateUntilTheModeEnds) {
  Begin(R"({"bytes_per_ms": 3})");
  SetUp(1, 2);
  time_.Advance(3);
  EXPECT_THAT(user_->In(0x86, 512).data, ElementsAre(0, 0, 0, 0, 0, 0x80, 1, 't'));
  user_->Command(0x41, 0x104, 3);
  time_.Advance(10);
  user_->Command(0x41, 0x10C, 3);
  time_.Advance(9);
  EXPECT_THAT(user_->In(0x86, 512).data,
              ElementsAre(1, 'i', 1, 'c', 1, 'k', 1, ' ', 1, '0', 1, '\n', 0x0B, 0, 0, 0, 0, 0xC0,
                          10, 1, 't', 1, 'i', 1, 'c', 1, 'k'));
}

// As a trace viewer reads it: synchronisation, overflow, time stamp, a character, a word.
bool IsOfWholePackets(const Bytes& trace) {
  const std::map<std::uint8_t, std::size_t> sizes = {
      {0x00, 6}, {0x70, 1}, {0xC0, 2}, {0x01, 2}, {0x0B, 5}};
  std::size_t at = 0;
  while (at < trace.size() && sizes.contains(trace[at])) at += sizes.at(trace[at]);
  return at == trace.size();
}

TEST_F(SwvTest, FullBufferLosesWholePacketsOfTheProgram) {
  Begin(R"({"bytes_per_ms": 50, "buffer": 64})");
  SetUp(1, 2);
  Bytes trace;
  for (int i = 0; i < 20; ++i) {
    time_.Advance(3);
    const Bytes part = user_->In(0x86, 512).data;
    EXPECT_LE(part.size(), 64u);
    trace.insert(trace.end(), part.begin(), part.end());
  }
  EXPECT_TRUE(IsOfWholePackets(trace));
  EXPECT_GE(std::count(trace.begin(), trace.end(), 0x70), 10);
  EXPECT_GE(std::count(trace.begin(), trace.end(), 0x0B), 1);
  EXPECT_GT(bench_->State("P").swv_lost, 1000u);
}

class AcquireTest : public OneProbe {
 protected:
  const Bytes kRead = {0xA5};  // of the identification
  // Before it, key 0xAABBCCDD to 0x11223344.
  const Bytes kWithKey = {0x8B, 0x44, 0x33, 0x22, 0x11, 0xBB, 0xDD, 0xCC, 0xBB, 0xAA, 0xA5};

  // The response, and what the probe thinks of it.
  Bytes Acquire(const std::string& acquire, std::uint16_t arm, const Bytes& staged) {
    Plug(R"("kind": "evk", "swd": {"idcode": "0x2BA01477")" + acquire + "}");
    EXPECT_EQ(user_->Command(0x60, 0, 10)[0], 5) << "nothing is armed";
    EXPECT_EQ(user_->Command(0x5F, arm, 10), Bytes(10, 0));
    EXPECT_EQ(user_->Command(0x60, 0, 10)[0], 5) << "nothing is staged";
    user_->Out(0x02, staged);
    EXPECT_EQ(user_->Command(0x60, 0, 10), Bytes(10, 0));
    EXPECT_EQ(user_->In(0x84, 100).status, UsbStatus::kAborted) << "attempts take their time";
    time_.Advance(10'000);
    return user_->In(0x84, 100).data;
  }
};

TEST_F(AcquireTest, PartIsCaughtOnlyAsItIsConfigured) {
  const Bytes caught = {1, 1, 0x77, 0x14, 0xA0, 0x2B, 1};
  const Bytes missed = {1, 1, 0, 0, 0, 0, 7};
  constexpr char kByPower[] = R"(, "acquire": {"reset": "power"})";
  constexpr char kPart[] = R"(, "acquire": {"reset": "xres", "attempt": 3,
                              "address": "0x11223344", "key": "0xAABBCCDD"})";
  Bytes wrong_key = kWithKey;
  wrong_key[6] ^= 1;
  const struct {
    const char* what;
    const char* part;
    std::uint16_t arm;
    Bytes staged;
    Bytes response;
    std::uint32_t attempts;
  } kTable[] = {
      {"any part", "", 0x101, kRead, {0x77, 0x14, 0xA0, 0x2B, 1}, 1},
      {"key, reset line, enough attempts", kPart, 0x105, kWithKey, caught, 3},
      {"too few attempts", kPart, 0x102, kWithKey, missed, 2},
      {"power instead of the reset line", kPart, 0x005, kWithKey, missed, 5},
      {"no key", kPart, 0x105, kRead, {0, 0, 0, 0, 7}, 5},
      {"another key", kPart, 0x105, wrong_key, missed, 5},
      {"power, as it wants", kByPower, 0x001, kRead, {0x77, 0x14, 0xA0, 0x2B, 1}, 1},
  };
  for (const auto& [what, part, arm, staged, response, attempts] : kTable) {
    SCOPED_TRACE(what);
    EXPECT_EQ(Acquire(part, arm, staged), response);
    EXPECT_EQ(bench_->State("P").acquire_attempts, attempts);
    EXPECT_EQ(bench_->State("P").target_caught, response.back() == 1);
  }
}

TEST_F(AcquireTest, WithoutRetriesTheUserCyclesThePower) {
  EXPECT_EQ(Acquire(R"(, "acquire": {"reset": "power", "attempt": 2})", 0x000, {0xA5}), Bytes{});
  bench_->CyclePower("P");
  EXPECT_EQ(user_->In(0x84, 100).status, UsbStatus::kAborted) << "not caught: goes on waiting";
  bench_->CyclePower("P");
  EXPECT_THAT(user_->In(0x84, 100).data, ElementsAre(0x77, 0x14, 0xA0, 0x2B, 1));
}

TEST_F(AcquireTest, CaughtPartAnswersUntilItsNextReset) {
  Acquire(R"(, "acquire": {})", 0x101, {0xA5});
  user_->ResetSwdLine();
  EXPECT_EQ(user_->Swd({0xA5}).back(), 1);
  user_->WriteRegister(0x11, 0xF0);
  user_->WriteRegister(0x11, 0xC0);
  user_->ResetSwdLine();
  EXPECT_EQ(user_->Swd({0xA5}).back(), 7);
}

}  // namespace
}  // namespace sim
