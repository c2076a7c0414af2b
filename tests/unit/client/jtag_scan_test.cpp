#include "client/jtag_scan.h"

#include <gtest/gtest.h>

namespace client {
namespace {

// One TAP of IEEE 1149.1, written from the standard's state diagram, that is clocked with packets
// and answers as the probe does: one TDO bit for each cycle.
class Tap {
 public:
  explicit Tap(std::uint32_t instruction_bits) : instruction_bits_(instruction_bits) {}

  Bytes Clock(const Bytes& packet) {
    Bytes reply((packet.size() + 1) / 2);
    std::size_t cycle = 0;
    for (const std::uint8_t byte : packet) {
      for (int i = 0; i < 4; ++i, ++cycle) {
        if (Step(byte >> (4 + i) & 1, byte >> i & 1)) {
          reply[cycle / 8] |= static_cast<std::uint8_t>(1 << cycle % 8);
        }
      }
    }
    return reply;
  }

  enum State {
    kReset,
    kIdle,
    kSelectDr,
    kCaptureDr,
    kShiftDr,
    kExit1Dr,
    kPauseDr,
    kExit2Dr,
    kUpdateDr,
    kSelectIr,
    kCaptureIr,
    kShiftIr,
    kExit1Ir,
    kPauseIr,
    kExit2Ir,
    kUpdateIr
  };
  State state = kShiftIr;  // the worst place to be found in
  std::uint64_t instruction = 0;
  std::uint64_t data = 0;           // as updated last
  std::uint64_t captured_data = 0;  // what Capture-DR loads
  std::uint32_t data_bits = 32;
  int resets = 0;

 private:
  bool Step(bool tms, bool tdi) {
    static constexpr State kNext[16][2] = {
        {kIdle, kReset},       {kIdle, kSelectDr},    {kCaptureDr, kSelectIr},
        {kShiftDr, kExit1Dr},  {kShiftDr, kExit1Dr},  {kPauseDr, kUpdateDr},
        {kPauseDr, kExit2Dr},  {kShiftDr, kUpdateDr}, {kIdle, kSelectDr},
        {kCaptureIr, kReset},  {kShiftIr, kExit1Ir},  {kShiftIr, kExit1Ir},
        {kPauseIr, kUpdateIr}, {kPauseIr, kExit2Ir},  {kShiftIr, kUpdateIr},
        {kIdle, kSelectDr}};
    bool tdo = false;
    if (state == kCaptureDr) shift_ = captured_data;
    if (state == kCaptureIr) shift_ = 1;
    if (state == kShiftDr || state == kShiftIr) {
      tdo = (shift_ & 1) != 0;
      const std::uint32_t bits = state == kShiftDr ? data_bits : instruction_bits_;
      shift_ = shift_ >> 1 | static_cast<std::uint64_t>(tdi) << (bits - 1);
    }
    if (state == kUpdateDr) data = shift_;
    if (state == kUpdateIr) instruction = shift_;
    if (state != kReset && kNext[state][tms] == kReset) ++resets;
    state = kNext[state][tms];
    return tdo;
  }

  std::uint32_t instruction_bits_;
  std::uint64_t shift_ = 0;
};

JtagProgram Parse(const std::vector<std::string>& words, bool from_idle = false) {
  std::string problem;
  auto program = ParseJtagProgram(words, from_idle, problem);
  EXPECT_TRUE(program) << problem;
  return program.value_or(JtagProgram());
}

TEST(JtagCycles, FourCyclesFillAByteWithTmsInTheHighNibble) {
  JtagCycles cycles;
  cycles.Add(true, false);
  cycles.Add(false, true);
  cycles.Add(true, true);
  cycles.Add(false, false);
  cycles.Add(true, false);
  EXPECT_EQ(cycles.bytes(), (Bytes{0x56, 0x10}));
  EXPECT_EQ(cycles.count(), 5u);
}

TEST(JtagProgram, ResetAndDataScanHaveTheseBytes) {
  // TMS: 1111, 1010, 0000, 0000, 1100, and idling; TDI 1100 0001 from the tenth cycle on.
  EXPECT_EQ(Parse({"dr", "8:0x83"}).Packet(), (Bytes{0xF0, 0x50, 0x06, 0x00, 0x31, 0x00}));
}

TEST(JtagProgram, ScansReachTheRegistersOfATapFoundInAnyState) {
  Tap tap(5);
  tap.captured_data = 0xDEADBEEF;
  const JtagProgram program = Parse({"ir", "5:0x1a", "dr", "32:0x12345678"});
  const Bytes reply = tap.Clock(program.Packet());
  EXPECT_EQ(tap.instruction, 0x1Au);
  EXPECT_EQ(tap.data, 0x12345678u);
  EXPECT_EQ(tap.state, Tap::kIdle);
  EXPECT_EQ(tap.resets, 1);
  const auto decoded = program.Decode(reply);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(*decoded, (std::vector<Bytes>{{0x01}, {0xEF, 0xBE, 0xAD, 0xDE}}));
}

TEST(JtagProgram, ScansOfEveryLengthAreTrimmedToTheBit) {
  for (std::uint32_t bits = 1; bits <= 64; ++bits) {
    Tap tap(4);
    tap.data_bits = bits;
    const std::uint64_t mask = bits == 64 ? ~0ull : (1ull << bits) - 1;
    tap.captured_data = 0xA5C3'96F0'1E2D'4B87 & mask;
    JtagProgram program;
    program.AddReset();
    program.AddScan(JtagProgram::Register::kData, bits,
                    Bytes{0x69, 0x3C, 0x5A, 0x0F, 0xF0, 0xE1, 0xD2, 0xC3});
    const auto decoded = program.Decode(tap.Clock(program.Packet()));
    ASSERT_TRUE(decoded);
    std::uint64_t tdo = 0;
    for (std::size_t i = 0; i < (*decoded)[0].size(); ++i) {
      tdo |= static_cast<std::uint64_t>((*decoded)[0][i]) << i * 8;
    }
    EXPECT_EQ(tdo, tap.captured_data) << bits;
    EXPECT_EQ(tap.data, 0xC3D2'E1F0'0F5A'3C69 & mask) << bits;
    EXPECT_EQ(tap.state, Tap::kIdle) << bits;
  }
}

TEST(JtagProgram, FromIdleTheTapIsNotReset) {
  Tap tap(4);
  tap.state = Tap::kIdle;
  const JtagProgram program = Parse({"ir", "4:0b1110", "idle", "13", "dr", "32"}, true);
  tap.Clock(program.Packet());
  EXPECT_EQ(tap.resets, 0);
  EXPECT_EQ(tap.instruction, 0xEu);
  EXPECT_EQ(tap.data, 0u);
}

TEST(JtagProgram, PacketsAreWholePairsOfBytes) {
  for (int idle = 1; idle < 20; ++idle) {
    EXPECT_EQ(Parse({"idle", std::to_string(idle)}).Packet().size() % 2, 0u) << idle;
  }
}

TEST(JtagProgram, AShortReplyIsNotReadBeyondItsEnd) {
  const JtagProgram program = Parse({"dr", "32"});
  const std::size_t full = (program.Packet().size() + 1) / 2;
  EXPECT_TRUE(program.Decode(Bytes(full)));
  EXPECT_FALSE(program.Decode(Bytes(full - 1)));
  EXPECT_FALSE(program.Decode(Bytes()));
}

TEST(JtagProgram, WrongWordsAreToldApart) {
  struct Case {
    std::vector<std::string> words;
    const char* problem;
  };
  const Case cases[] = {
      {{"ir", "8"}, "ir wants BITS:VALUE with a value that fits, not '8'"},
      {{"ir"}, "ir wants BITS:VALUE with a value that fits, not ''"},
      {{"dr", "4:16"}, "dr wants BITS or BITS:VALUE with a value that fits, not '4:16'"},
      {{"dr", "0"}, "dr wants BITS or BITS:VALUE with a value that fits, not '0'"},
      {{"dr", "99999999999"},
       "dr wants BITS or BITS:VALUE with a value that fits, not '99999999999'"},
      {{"idle", "x"}, "idle wants a number of cycles, not 'x'"},
      {{"dr", "8", "f0"}, "'f0' is none of reset, idle, ir, dr"},
  };
  for (const Case& c : cases) {
    std::string problem;
    EXPECT_FALSE(ParseJtagProgram(c.words, false, problem));
    EXPECT_EQ(problem, c.problem);
  }
}

}  // namespace
}  // namespace client
