#include <string>

#include "sim/jtag_chain.h"
#include "sim/jtag_stream.h"
#include "tests/unit/sim/bench_user.h"

namespace sim {
namespace {

using testing::ElementsAre;

constexpr char kTwoTaps[] = R"("kind": "evk", "jtag": {"taps": [
  {"idcode": "0x1BA01477", "ir_length": 4, "scratch": {"instruction": "0x8", "bits": 32}},
  {"idcode": "0x0684617F", "ir_length": 5, "scratch": {"instruction": "0x10", "bits": 8}}]})";

// IEEE 1149.1, figure of the TAP controller: the next state with TMS low and with TMS high.
TEST(TapController, MovesAsTheStandardSays) {
  using enum TapState;
  const struct {
    TapState state, low, high;
  } kTable[] = {
      {kTestLogicReset, kRunTestIdle, kTestLogicReset},
      {kRunTestIdle, kRunTestIdle, kSelectDr},
      {kSelectDr, kCaptureDr, kSelectIr},
      {kCaptureDr, kShiftDr, kExit1Dr},
      {kShiftDr, kShiftDr, kExit1Dr},
      {kExit1Dr, kPauseDr, kUpdateDr},
      {kPauseDr, kPauseDr, kExit2Dr},
      {kExit2Dr, kShiftDr, kUpdateDr},
      {kUpdateDr, kRunTestIdle, kSelectDr},
      {kSelectIr, kCaptureIr, kTestLogicReset},
      {kCaptureIr, kShiftIr, kExit1Ir},
      {kShiftIr, kShiftIr, kExit1Ir},
      {kExit1Ir, kPauseIr, kUpdateIr},
      {kPauseIr, kPauseIr, kExit2Ir},
      {kExit2Ir, kShiftIr, kUpdateIr},
      {kUpdateIr, kRunTestIdle, kSelectDr},
  };
  for (const auto& row : kTable) {
    EXPECT_EQ(NextTapState(row.state, false), row.low) << static_cast<int>(row.state);
    EXPECT_EQ(NextTapState(row.state, true), row.high) << static_cast<int>(row.state);
  }
}

// Moves through a chain by TMS, and shifts values with the last bit leaving the shift state.
class ChainDriver {
 public:
  explicit ChainDriver(JtagChain& chain) : chain_(chain) {}
  void Move(const std::string& tms) {
    for (const char level : tms) chain_.Clock(level == '1', false);
  }
  std::uint64_t Shift(std::uint64_t in, unsigned bits) {
    std::uint64_t out = 0;
    for (unsigned i = 0; i < bits; ++i) {
      const bool tdo = chain_.Clock(i + 1 == bits, (in >> i & 1) != 0);
      out |= std::uint64_t{tdo} << i;
    }
    return out;
  }
  // From Run-Test/Idle and back to it.
  std::uint64_t Ir(std::uint64_t in, unsigned bits) {
    Move("1100");
    const std::uint64_t out = Shift(in, bits);
    Move("10");
    return out;
  }
  std::uint64_t Dr(std::uint64_t in, unsigned bits) {
    Move("100");
    const std::uint64_t out = Shift(in, bits);
    Move("10");
    return out;
  }

 private:
  JtagChain& chain_;
};

TEST(JtagChain, RegistersOfSeveralTapsAreOneShiftRegister) {
  ChainDescription description;
  description.taps.resize(2);
  description.taps[0] = {.idcode = 0x1BA01477};
  description.taps[1] = {.idcode = 0x0684617F,
                         .ir_length = 5,
                         .idcode_instruction = 0x1E,
                         .scratch_instruction = 0x10,
                         .scratch_bits = 8};
  JtagChain chain(description);
  ChainDriver driver(chain);
  driver.Move("111110");
  // The TAP next to TDO comes out first.
  EXPECT_EQ(driver.Dr(0, 64), 0x1BA01477'0684617Fu) << "reset selects the identifications";
  EXPECT_EQ(driver.Ir(0x8u << 5 | 0x10, 9), 0b0001'00001u) << "instruction registers capture 01";
  driver.Move("100");
  EXPECT_EQ(driver.Shift(0xEF5A, 16), 0u);
  driver.Move("0010");  // Pause-DR twice, Exit2-DR, Shift-DR: the bits stay where they are
  EXPECT_EQ(driver.Shift(0xDEADBE, 24), 0u);
  driver.Move("10");
  EXPECT_EQ(chain.taps()[0].scratch(), 0xDEADBEEFu);
  EXPECT_EQ(chain.taps()[1].scratch(), 0x5Au);
  EXPECT_EQ(driver.Dr(0, 40), 0xDEADBEEFull << 8 | 0x5A) << "what was written is captured";
  EXPECT_EQ(driver.Ir(0xFu << 5 | 0x1F, 9), 0b0001'00001u);
  EXPECT_EQ(driver.Dr(0b1011, 4), 0b1100u) << "each TAP in BYPASS delays by one cycle";
  driver.Move("11111");
  EXPECT_EQ(chain.state(), TapState::kTestLogicReset);
  driver.Move("0");
  EXPECT_EQ(driver.Dr(0, 32), 0x0684617Fu) << "five cycles high bring the identification back";
}

// Registers 1 and 2 hold the cycles still to be sent; a chunk has at most 32,768 of them.
TEST(JtagStream, CyclesOfAChunkComeFromItsBytes) {
  const struct {
    const char* what;
    std::uint32_t remaining;
    bool loopback;
    std::size_t bytes;
    std::uint32_t cycles;
    bool loops;
  } kTable[] = {
      {"five cycles use part of their bytes", 5, false, 2, 5, false},
      {"and with loopback", 5, true, 2, 5, true},
      {"a whole number of bytes", 16, false, 4, 16, false},
      {"the longest count below 0x4000", 0x3FFF, false, 0x1000, 0x3FFF, false},
      {"and with loopback", 0x3FFF, true, 0x1000, 0x3FFF, true},
      {"0x4000 looks like a loopback of nothing", 0x4000, false, 0x1000, 0x4000, false},
      {"0x4001 looks like a loopback of one cycle", 0x4001, false, 0x1002, 0x4008, false},
      {"0x7FFF", 0x7FFF, false, 0x2000, 0x8000, false},
      {"the first chunk of 40,000", 40000, false, 8192, 32768, false},
      {"the second one", 7232, false, 1808, 7232, false},
      {"a remainder whose high bits are lost", 0x1000A, false, 8192, 32768, false},
      {"fewer bytes than counted", 100, false, 10, 40, false},
      {"more bytes than counted", 9, false, 8, 9, false},
  };
  for (const auto& row : kTable) {
    const auto flags = static_cast<std::uint8_t>(0x80 | (row.loopback ? 0x40 : 0) |
                                                 static_cast<std::uint8_t>(row.remaining >> 8));
    const ChunkRule rule = RuleForChunk(row.bytes, static_cast<std::uint8_t>(row.remaining), flags);
    EXPECT_EQ(rule.cycles, row.cycles) << row.what;
    EXPECT_EQ(rule.loopback, row.loops) << row.what;
  }
}

TEST(JtagStream, NibblesAreFourCyclesAndTdoIsPaddedToBytes) {
  std::string seen;
  const Bytes out = {0xA5, 0x1F};  // TMS 1010 TDI 0101, then TMS 0001 TDI 1111
  const Bytes tdo = RunChunk(out.data(), 6, [&](bool tms, bool tdi) {
    seen += tms ? (tdi ? 'B' : 'M') : (tdi ? 'D' : '.');
    return tdi;
  });
  EXPECT_EQ(seen, "DMDMBD");
  EXPECT_THAT(tdo, ElementsAre(0b110101));
}

TEST_F(OneProbe, FiveJtagCyclesBringOneByteAndLoopbackReturnsTdi) {
  Plug(kTwoTaps);
  user_->Command(0x41, 0x101, 3);
  user_->WriteRegister(1, 5);
  user_->WriteRegister(2, 0xC0);
  user_->Out(0x02, {0x0B, 0x0F});
  EXPECT_THAT(user_->In(0x84, 1).data, ElementsAre(0b11011));
  EXPECT_EQ(user_->In(0x84, 1).data, Bytes{}) << "nothing is left";
}

TEST_F(OneProbe, JtagChainIsReadThroughTheDataEndpointsUnlessTdoIsBrokenOrFloats) {
  const struct {
    const char* changes;
    Bytes tdo;
  } kTable[] = {
      {"{}", {0x7F, 0x61, 0x84, 0x06, 0x77, 0x14, 0xA0, 0x1B}},
      {R"({"jtag": {"tdo": "stuck-low"}})", Bytes(8, 0x00)},
      {R"({"jtag": {"tdo": "stuck-high", "taps": [{"idcode": 1}]}})", Bytes(8, 0xFF)},
      {R"({"jtag": {}})", Bytes(8, 0xFF)},
      {R"({"external_supply": 74})", Bytes(8, 0xFF)},
  };
  for (const auto& [changes, tdo] : kTable) {
    Plug(kTwoTaps);
    ASSERT_TRUE(bench_->Rearrange("P", changes));
    ASSERT_EQ(user_->Command(0x41, 0x101, 3), (Bytes{0, 0, 0}));
    EXPECT_EQ(user_->Jtag({0xF0, 0xF0, 0xF0, 0x20}, 16).size(), 2u);
    EXPECT_EQ(user_->Jtag(Bytes(16, 0x00), 64), tdo) << changes;
  }
}

}  // namespace
}  // namespace sim
