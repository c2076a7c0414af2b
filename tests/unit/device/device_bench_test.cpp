// Probe objects on a simulated probe with its targets.
#include <functional>
#include <random>
#include <string>

#include "device/wfx_device.h"
#include "tests/unit/clocked_bench.h"
#include "tests/unit/device/probe_test.h"
#include "tests/unit/random_seed.h"
#include "tests/unit/sim/bench_script.h"

namespace {

class BenchTest : public testing::Test {
 protected:
  BenchTest() {
    test_host::UseBus(&bench_);
    // A probe refuses its modes until an image has been loaded; any will do.
    sim::Script(bench_, "A")
        .Play("vendor 47 0 16 | vendor 45 3F 16 | out 02 01*64 | vendor 46 0 16");
  }
  ~BenchTest() override { test_host::UseBus(nullptr); }

  test_host::TestClock clock_;
  sim::Bench bench_{R"({"probes": [{"name": "A", "i2c": [{"address": "0x50", "size": 256}]}]})",
                    unit::OnClock(clock_)};
};

// In both packet formats: written in one, read back in the other.
TEST_F(BenchTest, MemoryKeepsWhatIsWritten) {
  CTzWfxDevice device(0, true);
  ASSERT_EQ(device.SetMode(kI2c, true), 0U);
  const Bytes write = {0xA0, 0x10, 0x11, 0x22, 0x33};
  Bytes reply(32);
  std::uint32_t length = 16;
  ASSERT_EQ(device.I2CXfer(5, write.data(), 0, length, reply.data()), 0U);
  // Pointer 0x10, repeated start, three bytes.
  Bytes request = {0x04, 0x01, 0x50, 0x03, 0xD0, 0x10};
  length = 6;
  ASSERT_EQ(device.BulkXfer(0x01, request.data(), length, kI2c), 0U);
  length = 32;
  ASSERT_EQ(device.BulkXfer(0x81, reply.data(), length, kI2c), 0U);
  reply.resize(length);
  EXPECT_EQ(HexText(reply), "01 10 11 22 33 00");
}

// Whatever a client sends, nothing outside its buffer is read or written.
TEST_F(BenchTest, RandomRequestsAndReplySizesStayWithinTheirBuffers) {
  CTzWfxDevice device(0, true);
  ASSERT_EQ(device.SetMode(kI2c, true), 0U);
  std::mt19937 random(unit::RandomSeed());
  const auto below = [&](unsigned limit) { return static_cast<std::uint32_t>(random() % limit); };
  for (int round = 0; round < 2000; ++round) {
    // Exact heap blocks, so that a sanitizer sees the first byte beyond.
    Bytes request(below(12) == 0 ? below(200) : below(10));
    for (std::uint8_t& byte : request) byte = static_cast<std::uint8_t>(random());
    const Bytes sent = request;
    auto length = static_cast<std::uint32_t>(request.size());
    static_cast<void>(device.BulkXfer(0x01, request.data(), length, kI2c));
    EXPECT_EQ(request, sent);
    Bytes reply(below(100), 0x0E);
    length = static_cast<std::uint32_t>(reply.size());
    static_cast<void>(device.BulkXfer(0x81, reply.data(), length, kI2c));
    EXPECT_LE(length, reply.size());
  }
}

TEST_F(BenchTest, AnswersAreWaitedForUpToTheTimeoutAndNoLongerThanTheProbeIsThere) {
  CTzWfxDevice device(0, true);
  const Bytes stream = {0x0F, 0x0A};
  std::uint8_t tdo = 0;
  const auto loop_back = [&] { return device.JTAG_BufferedIo(8, stream.data(), true, &tdo, true); };
  const auto arm = [&](sim::FaultKind kind, std::uint8_t endpoint, std::uint32_t value) {
    ASSERT_TRUE(
        bench_.ArmFault("A", {.kind = kind, .endpoint = endpoint, .request = {}, .value = value}));
  };
  arm(sim::FaultKind::kDelay, 0, 9999);
  EXPECT_EQ(device.SetMode(1, true), 0U);
  arm(sim::FaultKind::kDelay, 0x02, 999);
  arm(sim::FaultKind::kDelay, 0x84, 1999);
  EXPECT_EQ(loop_back(), 0U);
  EXPECT_EQ(tdo, 0xAF);

  // Too late; and what comes then does not touch the next exchange.
  arm(sim::FaultKind::kDelay, 0x84, 2500);
  tdo = 0;
  EXPECT_EQ(loop_back(), 8U);
  EXPECT_EQ(tdo, 0);
  EXPECT_EQ(loop_back(), 0U);
  EXPECT_EQ(tdo, 0xAF);

  arm(sim::FaultKind::kUnplug, 0x84, 0);
  EXPECT_NE(loop_back(), 0U);
  EXPECT_NE(device.LedState(0, 1), 0U);
}

}  // namespace
