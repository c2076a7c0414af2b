// I2C, serial, trace and port acquisition.
#include "tests/unit/sim/bench_user.h"

namespace sim {
namespace {

using probe_driver::UsbStatus;
using testing::ElementsAre;

constexpr char kWirefox[] =
    R"({"probes": [{"name": "P", "kind": "wirefox", "i2c": [{"address": "0x50", "size": 16},
                                                            {"address": "0x51", "size": 512}]}]})";

Bytes I2c(User& user, const Bytes& packet, std::uint8_t restart = 0) {
  user.WriteRegister(8, restart);
  user.Out(0x02, packet);
  return user.In(0x84, static_cast<std::uint32_t>(packet.size()) + 2).data;
}

class I2cTest : public testing::Test {
 protected:
  I2cTest() : bench_(kWirefox), user_(User::Of(bench_, "P")) {
    user_.LoadFpga(Bytes(100));
    user_.Command(0x41, 0x102, 3);
  }
  Bench bench_;
  User user_;
};

TEST_F(I2cTest, MemoryIsWrittenAndReadBackAtItsPointer) {
  EXPECT_EQ(I2c(user_, {0xA0, 0x0E, 0x11, 0x22, 0x33}), (Bytes{1, 0x0E, 0x11, 0x22, 0x33}));
  const Bytes memory = bench_.I2cMemory("P", 0x50);
  ASSERT_EQ(memory.size(), 16u);
  EXPECT_EQ(memory[14], 0x11);
  EXPECT_EQ(memory[15], 0x22);
  EXPECT_EQ(memory[0], 0x33) << "the pointer wraps";
  EXPECT_EQ(I2c(user_, {0xA0, 0x0E, 0xA1, 0, 0, 0}, 0x81),
            (Bytes{1, 0x0E, 0xA1, 0x11, 0x22, 0x33}));
  EXPECT_EQ(I2c(user_, {0xA1, 0}), (Bytes{1, 0xFF})) << "reading goes on behind it";
}

TEST_F(I2cTest, LargeMemoryTakesTwoPointerBytes) {
  I2c(user_, {0xA2, 0x01, 0x23, 0x77});
  EXPECT_EQ(bench_.I2cMemory("P", 0x51)[0x123], 0x77);
}

TEST_F(I2cTest, AbsentAddressGivesStatusZeroAndNothingBehindIt) {
  const struct {
    const char* what;
    Bytes packet;
    std::uint8_t restart;
    Bytes reply;
  } kTable[] = {
      {"write", {0x40, 1, 2}, 0, {0, 0, 0}},
      {"read", {0x41, 0, 0}, 0, {0, 0, 0}},
      {"second phase", {0xA0, 0x07, 0x41, 0, 0}, 0x81, {0, 0x07, 0x41, 0, 0}},
  };
  for (const auto& row : kTable) {
    EXPECT_EQ(I2c(user_, row.packet, row.restart), row.reply) << row.what;
  }
}

TEST_F(I2cTest, RestartBehindTheEndOfThePacketIsASinglePhase) {
  EXPECT_EQ(I2c(user_, {0xA0, 0x01, 0x55}, 0xFF), (Bytes{1, 0x01, 0x55}));
  EXPECT_EQ(I2c(user_, {}, 0x81), Bytes{});
}

TEST_F(I2cTest, UnpoweredBusAcknowledgesNothing) {
  bench_.Rearrange("P", R"({"external_supply": 74})");
  EXPECT_EQ(I2c(user_, {0xA0, 0x00}), (Bytes{0, 0}));
}

TEST_F(I2cTest, ControllerUnderstandsTheOlderFormat) {
  const auto native = [&](const Bytes& packet) {
    user_.Out(0x01, packet);
    return user_.In(0x81, 64).data;
  };
  EXPECT_EQ(native({0x10, 0x02, 0x50, 0x03, 0xAB}), (Bytes{1, 0x03, 0xAB}));
  EXPECT_EQ(native({0x14, 0x01, 0x50, 0x01, 0xD0, 0x03}), (Bytes{1, 0x03, 0xAB}));
  EXPECT_EQ(native({0x11, 0x02, 0x20}), (Bytes{0, 0, 0}));
  EXPECT_EQ(native({0x10, 0x3F, 0x50, 0x01}), (Bytes{0})) << "fewer bytes than it promises";
}

TEST(Serial, LoopsBackOnTheSideThatTheModeChose) {
  Bench bench(R"({"probes": [{"name": "P", "kind": "evk",
                              "serial": {"internal_loopback": false}}]})");
  User user = User::Of(bench, "P");
  user.Command(0x41, 0x110, 3);
  user.Out(0x01, {1, 2});
  user.Out(0x01, {3});
  EXPECT_THAT(user.In(0x81, 64).data, ElementsAre(1, 2, 3)) << "bytes, not packets";
  user.Out(0x01, {4, 5});
  EXPECT_THAT(user.In(0x81, 1).data, ElementsAre(4));
  user.Command(0x41, 0x010, 3);
  EXPECT_EQ(user.In(0x81, 64).status, UsbStatus::kAborted) << "a mode begins without old bytes";
  user.Out(0x01, {6});
  EXPECT_EQ(user.In(0x81, 64).status, UsbStatus::kAborted);
}

class SwvTest : public testing::Test {
 protected:
  void Begin(const char* swv) {
    bench_ = std::make_unique<Bench>(
        std::string(R"({"probes": [{"name": "P", "kind": "evk", "swv": )") + swv + "}]}",
        BenchOptions{.scheduler = time_.scheduler()});
    user_ = std::make_unique<User>(User::Of(*bench_, "P"));
    user_->Command(0x41, 0x10C, 3);
  }
  void SetUp(std::uint8_t divisor, std::uint8_t control) {
    user_->WriteRegister(0x23, divisor);
    user_->WriteRegister(0x20, control);
    user_->Command(0x67, 1, 2);
  }
  ManualTime time_;
  std::unique_ptr<Bench> bench_;
  std::unique_ptr<User> user_;
};

TEST_F(SwvTest, TraceArrivesOnceSamplingIsCommitted) {
  Begin("{}");
  bench_->PushSwv("P", {1, 2});
  EXPECT_EQ(user_->In(0x86, 512).status, UsbStatus::kAborted);
  SetUp(24, 2);
  bench_->PushSwv("P", {3, 4});
  bench_->PushSwv("P", {5});
  EXPECT_THAT(user_->In(0x86, 512).data, ElementsAre(3, 4, 5));
}

TEST_F(SwvTest, PinIsReadOnlyAtItsRateAndCoding) {
  const struct {
    std::uint8_t divisor, control;
    bool read;
  } kTable[] = {{24, 2, true}, {12, 2, true}, {23, 2, false}, {24, 3, false}};
  for (const auto& row : kTable) {
    Begin(R"({"rate_hz": 2000000})");
    SetUp(row.divisor, row.control);
    bench_->PushSwv("P", {1});
    EXPECT_EQ(user_->In(0x86, 512).data.size(), row.read ? 1u : 0u) << int{row.divisor};
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

// Reads what is left of the program's trace as a trace viewer would; false where no packet is.
bool ReadTrace(const Bytes& trace, std::string& text, std::vector<std::uint32_t>& words) {
  for (std::size_t at = 0; at < trace.size();) {
    const std::uint8_t header = trace[at];
    const std::size_t left = trace.size() - at;
    if (header == 0 && left >= 6)
      at += 6;
    else if (header == 0x70)
      at += 1;
    else if (header == 0xC0 && left >= 2)
      at += 2;
    else if (header == 0x01 && left >= 2)
      text += static_cast<char>(trace[at + 1]), at += 2;
    else if (header == 0x0B && left >= 5)
      words.push_back(trace[at + 1]), at += 5;
    else
      return false;
  }
  return true;
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
  std::string text;
  std::vector<std::uint32_t> words;
  EXPECT_TRUE(ReadTrace(trace, text, words));
  EXPECT_GE(std::count(trace.begin(), trace.end(), 0x70), 10);
  EXPECT_FALSE(words.empty());
  EXPECT_GT(bench_->State("P").swv_lost, 1000u);
}

class AcquireTest : public testing::Test {
 protected:
  // Key 0xAABBCCDD to 0x11223344, then the identification.
  const Bytes kWithKey = {0x8B, 0x44, 0x33, 0x22, 0x11, 0xBB, 0xDD, 0xCC, 0xBB, 0xAA, 0xA5};

  // The response, and what the probe thinks of it.
  Bytes Acquire(const char* acquire, std::uint16_t arm, const Bytes& staged) {
    bench_ = std::make_unique<Bench>(
        std::string(R"({"probes": [{"name": "P", "kind": "evk", "swd": {"idcode": "0x2BA01477")") +
            acquire + "}}]}",
        BenchOptions{.scheduler = time_.scheduler()});
    user_ = std::make_unique<User>(User::Of(*bench_, "P"));
    EXPECT_EQ(user_->Command(0x5F, arm, 10), Bytes(10, 0));
    user_->Out(0x02, staged);
    EXPECT_EQ(user_->Command(0x60, 0, 10), Bytes(10, 0));
    EXPECT_EQ(user_->In(0x84, 100).status, UsbStatus::kAborted) << "attempts take their time";
    time_.Advance(10'000);
    return user_->In(0x84, 100).data;
  }

  ManualTime time_;
  std::unique_ptr<Bench> bench_;
  std::unique_ptr<User> user_;
};

TEST_F(AcquireTest, PartIsCaughtOnlyAsItIsConfigured) {
  const Bytes caught = {1, 1, 0x77, 0x14, 0xA0, 0x2B, 1};
  const Bytes missed = {1, 1, 0, 0, 0, 0, 7};
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
      {"any part", "", 0x101, {0xA5}, {0x77, 0x14, 0xA0, 0x2B, 1}, 1},
      {"key, reset line, enough attempts", kPart, 0x105, kWithKey, caught, 3},
      {"too few attempts", kPart, 0x102, kWithKey, missed, 2},
      {"power instead of the reset line", kPart, 0x005, kWithKey, missed, 5},
      {"no key", kPart, 0x105, {0xA5}, {0, 0, 0, 0, 7}, 5},
      {"another key", kPart, 0x105, wrong_key, missed, 5},
      {"power, as it wants",
       R"(, "acquire": {"reset": "power"})",
       0x001,
       {0xA5},
       {0x77, 0x14, 0xA0, 0x2B, 1},
       1},
  };
  for (const auto& row : kTable) {
    EXPECT_EQ(Acquire(row.part, row.arm, row.staged), row.response) << row.what;
    EXPECT_EQ(bench_->State("P").acquire_attempts, row.attempts) << row.what;
    EXPECT_EQ(bench_->State("P").target_caught, row.response.back() == 1) << row.what;
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

TEST_F(AcquireTest, StartNeedsAStagedSequence) {
  Bench bench(R"({"probes": [{"name": "P", "kind": "evk"}]})");
  User user = User::Of(bench, "P");
  EXPECT_EQ(user.Command(0x60, 0, 10)[0], 5);
  user.Command(0x5F, 1, 10);
  EXPECT_EQ(user.Command(0x60, 0, 10)[0], 5);
}

}  // namespace
}  // namespace sim
