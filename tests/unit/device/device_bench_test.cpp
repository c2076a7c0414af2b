#include <array>
#include <functional>
#include <random>
#include <string>

#include "device/evk_device.h"
#include "device/wfx_device.h"
#include "platform/test_host.h"
#include "sim/bench.h"
#include "support/bytes.h"
#include "tests/unit/device/device_fixture.h"
#include "tests/unit/random_seed.h"

namespace {

constexpr char kBench[] = R"({"probes": [
  {"name": "A", "state": "configured", "external_supply": 330,
   "jtag": {"taps": [{"idcode": "0x1BA01477"}, {"idcode": "0x0684617F"}]},
   "swd": [{"idcode": "0x2BA01477", "connectors": [1]}],
   "i2c": [{"address": "0x50", "size": 256}]}]})";

// Probe objects on a simulated probe with its targets.
class BenchTest : public testing::Test {
 protected:
  BenchTest() {
    test_host::UseBus(&bench_);
    CTzWfxDevice device(0, true);
    LoadFpga(device);
  }
  ~BenchTest() override { test_host::UseBus(nullptr); }

  // A probe refuses its modes until an image has been loaded; any will do.
  static void LoadFpga(CTzDevice& device) {
    Bytes image(64, 0x01);
    auto length = static_cast<std::uint32_t>(image.size());
    Bytes reply(probe::kFpgaStepLength);
    const auto step = [&](std::uint8_t request, std::uint16_t value) {
      EXPECT_EQ(device.XferData(probe::kProbeToHost, request, value, 0, reply.data(),
                                probe::kFpgaStepLength),
                0U);
    };
    step(probe::kRequestFpgaPrepare, 0);
    step(probe::kRequestFpgaLength, static_cast<std::uint16_t>(image.size() - 1));
    EXPECT_EQ(device.BulkXfer(probe::kEndpointStreamOut, image.data(), length, 0), 0U);
    step(probe::kRequestFpgaFinish, 0);
    EXPECT_EQ(reply[probe::kReplyStatus], 0);
  }

  sim::BenchOptions Options() {
    sim::BenchOptions options;
    options.scheduler = [this](std::uint64_t delay_ms, std::function<void()> action) {
      clock_.CallAt(clock_.NowMs() + delay_ms, std::move(action));
    };
    return options;
  }

  test_host::TestClock clock_;
  sim::Bench bench_{kBench, Options()};
};

TEST_F(BenchTest, ChainBehindTheProbeShiftsItsIdcodesOut) {
  CTzWfxDevice device(0, true);
  ASSERT_EQ(device.JTAG_Reset(), 0U);
  // Test-Logic-Reset, then Run-Test/Idle, Select-DR-Scan, Capture-DR, Shift-DR.
  const Bytes to_shift = {0xF0, 0xF0, 0xF0, 0x20};
  ASSERT_EQ(device.JTAG_BufferedIo(16, to_shift.data(), false, nullptr, false), 0U);
  Bytes tdo(8);
  ASSERT_EQ(device.JTAG_BufferedIo(64, Bytes(16).data(), true, tdo.data(), false), 0U);
  EXPECT_EQ(LoadLe32(tdo.data()), 0x0684617FU);  // next to TDO
  EXPECT_EQ(LoadLe32(tdo.data() + 4), 0x1BA01477U);
}

TEST_F(BenchTest, LoopbackBringsTheTdiLevelsBack) {
  CTzWfxDevice device(0, true);
  ASSERT_EQ(device.SetMode(1, true), 0U);
  Bytes stream;
  Bytes expected;
  for (unsigned i = 0; i < 1000; ++i) {  // a TDO byte is the low nibbles of two stream bytes
    stream.push_back(static_cast<std::uint8_t>(i % 16));
    stream.push_back(static_cast<std::uint8_t>(i / 16 % 16));
    expected.push_back(static_cast<std::uint8_t>(i));
  }
  Bytes tdo(1000);
  ASSERT_EQ(device.JTAG_BufferedIo(8000, stream.data(), true, tdo.data(), true), 0U);
  EXPECT_EQ(tdo, expected);
}

TEST_F(BenchTest, SwdTargetAnswersOnTheConnectorThatTheLineResetComesBackTo) {
  CTzWfxDevice device(0, true);
  ASSERT_EQ(device.SetMode(4, true), 0U);
  ASSERT_EQ(device.SetActiveIOConnector(1), 0U);
  const std::uint8_t read_idcode = 0xA5;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(device.SWD_CReset(), 0U);
    EXPECT_EQ(bench_.State("A").connector, 1);
    EXPECT_EQ(bench_.State("A").mode, 4);
    std::array<std::uint8_t, 5> reply{};
    std::uint32_t length = 5;
    ASSERT_EQ(device.SWDXfer(1, &read_idcode, length, reply.data()), 0U);
    ASSERT_EQ(length, 5U);
    EXPECT_EQ(LoadLe32(reply.data()), 0x2BA01477U);
    EXPECT_EQ(reply[4] & 5, 1);
  }
}

TEST_F(BenchTest, MemoryIsWrittenAndReadInBothPacketFormats) {
  CTzWfxDevice device(0, true);
  ASSERT_EQ(device.SetMode(2, true), 0U);
  const Bytes write = {0xA0, 0x10, 0x11, 0x22, 0x33};
  Bytes reply(16);
  std::uint32_t length = 16;
  ASSERT_EQ(device.I2CXfer(5, write.data(), 0, length, reply.data()), 0U);
  EXPECT_EQ(reply[0], 1);

  // Pointer 0x10, repeated start, three bytes.
  const Bytes read = {0xA0, 0x10, 0xA1, 0, 0, 0};
  length = 16;
  ASSERT_EQ(device.I2CXfer(6, read.data(), 1, length, reply.data()), 0U);
  reply.resize(length);
  EXPECT_EQ(reply, (Bytes{1, 0x10, 0xA1, 0x11, 0x22, 0x33}));

  Bytes request = {0x04, 0x01, 0x50, 0x03, 0xD0, 0x10};
  length = 6;
  ASSERT_EQ(device.BulkXfer(0x01, request.data(), length, 2), 0U);
  Bytes answer(32);
  length = 32;
  ASSERT_EQ(device.BulkXfer(0x81, answer.data(), length, 2), 0U);
  answer.resize(length);
  EXPECT_EQ(answer, (Bytes{1, 0x10, 0x11, 0x22, 0x33, 0}));
}

TEST_F(BenchTest, AddressThatNobodyAnswersGivesZeros) {
  CTzWfxDevice device(0, true);
  ASSERT_EQ(device.SetMode(2, true), 0U);
  Bytes request = {0x01, 0x02, 0x29};
  std::uint32_t length = 3;
  ASSERT_EQ(device.BulkXfer(0x01, request.data(), length, 2), 0U);
  Bytes answer = {0x0E, 0x0E, 0x0E};
  ASSERT_EQ(device.BulkXfer(0x81, answer.data(), length, 2), 0U);
  EXPECT_EQ(answer, Bytes(3, 0));
}

// Whatever a client sends, nothing outside its buffer is read or written.
TEST_F(BenchTest, RandomRequestsAndReplySizesStayWithinTheirBuffers) {
  CTzWfxDevice device(0, true);
  ASSERT_EQ(device.SetMode(2, true), 0U);
  std::mt19937 random(unit::RandomSeed());
  const auto below = [&](unsigned limit) { return static_cast<std::uint32_t>(random() % limit); };
  for (int round = 0; round < 2000; ++round) {
    // Exact heap blocks, so that a sanitizer sees the first byte beyond.
    Bytes request(below(12) == 0 ? below(200) : below(10));
    for (std::uint8_t& byte : request) byte = static_cast<std::uint8_t>(random());
    const Bytes sent = request;
    auto length = static_cast<std::uint32_t>(request.size());
    static_cast<void>(device.BulkXfer(0x01, request.data(), length, 2));
    EXPECT_EQ(request, sent);
    Bytes reply(below(100), 0x0E);
    length = static_cast<std::uint32_t>(reply.size());
    static_cast<void>(device.BulkXfer(0x81, reply.data(), length, 2));
    EXPECT_LE(length, reply.size());
  }
}

TEST_F(BenchTest, AnswersThatTakeTheirTimeAreWaitedForUpToTheTimeout) {
  CTzWfxDevice device(0, true);
  const auto delay = [&](std::uint8_t endpoint, std::uint32_t ms) {
    ASSERT_TRUE(bench_.ArmFault(
        "A", {.kind = sim::FaultKind::kDelay, .endpoint = endpoint, .request = {}, .value = ms}));
  };
  delay(0, 9999);
  EXPECT_EQ(device.LedState(0, 1), 0U);

  ASSERT_EQ(device.SetMode(1, true), 0U);
  const Bytes stream = {0x0F, 0x0A};
  std::uint8_t tdo = 0;
  delay(0x02, 999);
  delay(0x84, 1999);
  EXPECT_EQ(device.JTAG_BufferedIo(8, stream.data(), true, &tdo, true), 0U);
  EXPECT_EQ(tdo, 0xAF);

  // Too late; and what comes then does not touch the next exchange.
  delay(0x84, 2500);
  tdo = 0;
  EXPECT_EQ(device.JTAG_BufferedIo(8, stream.data(), true, &tdo, true), 8U);
  EXPECT_EQ(tdo, 0);
}

TEST_F(BenchTest, ProbeThatLeavesInTheMiddleOfAStreamFailsItAndAllThatFollows) {
  CTzWfxDevice device(0, true);
  ASSERT_EQ(device.SetMode(1, true), 0U);
  bench_.ArmFault("A", {.kind = sim::FaultKind::kUnplug, .endpoint = 0x84, .request = {}});
  const Bytes stream(20000);
  Bytes tdo(10000);
  EXPECT_NE(device.JTAG_BufferedIo(80000, stream.data(), true, tdo.data(), false), 0U);
  EXPECT_FALSE(bench_.State("A").plugged);
  EXPECT_NE(device.LedState(0, 1), 0U);
  std::array<std::uint8_t, 14> status{};
  EXPECT_NE(device.GetDeviceStatus(status), 0U);
}

TEST_F(BenchTest, StreamWorksAgainAfterAnEndpointThatHalted) {
  CTzEvkDevice device(0, true);
  ASSERT_EQ(device.SetMode(1, true), 0U);
  bench_.ArmFault("A", {.kind = sim::FaultKind::kStall, .endpoint = 0x02, .request = {}});
  const Bytes stream(2);
  std::uint8_t tdo = 0;
  EXPECT_EQ(device.JTAG_BufferedIo(8, stream.data(), true, &tdo, false), 8U);
  EXPECT_EQ(device.JTAG_BufferedIo(8, stream.data(), true, &tdo, false), 0U);
}

}  // namespace
