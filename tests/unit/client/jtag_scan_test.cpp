#include "client/jtag_scan.h"

#include <gtest/gtest.h>

#include "sim/jtag_stream.h"
#include "sim/targets/jtag_chain.h"

namespace client {
namespace {

constexpr std::uint32_t kInstruction = 0x1A;

// A simulated TAP with an instruction register of 5 bits, that is clocked with packets and answers
// as the probe does. kInstruction selects a data register of `data_bits`.
class Tap {
 public:
  explicit Tap(unsigned data_bits)
      : chain_({.taps = {{.ir_length = 5,
                          .scratch_instruction = kInstruction,
                          .scratch_bits = data_bits}}}) {}

  Bytes Clock(const Bytes& packet) {
    const auto cycles = static_cast<std::uint32_t>(4 * packet.size());
    return sim::RunChunk(packet.data(), cycles, [this](bool tms, bool tdi) {
      const sim::TapState before = chain_.state();
      const bool tdo = chain_.Clock(tms, tdi);
      const bool is_reset = chain_.state() == sim::TapState::kTestLogicReset;
      if (is_reset && before != sim::TapState::kTestLogicReset) ++resets;
      return tdo;
    });
  }

  bool IsIdle() const { return chain_.state() == sim::TapState::kRunTestIdle; }
  std::uint64_t data() const { return chain_.taps()[0].scratch(); }

  int resets = 0;

 private:
  sim::JtagChain chain_;
};

JtagProgram Parse(const std::vector<std::string>& words, bool from_idle = false) {
  std::string problem;
  auto program = ParseJtagProgram(words, from_idle, problem);
  EXPECT_TRUE(program) << problem;
  return program.value_or(JtagProgram());
}

TEST(JtagProgram, ScansReachTheRegistersOfATapFoundInAnyState) {
  Tap tap(32);
  tap.Clock({0x60, 0x00});  // to Shift-IR: the worst place to be found in
  const JtagProgram program = Parse({"ir", "5:0x1a", "dr", "32:0x12345678", "dr", "32"});
  const auto decoded = program.Decode(tap.Clock(program.Packet()));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(*decoded, (std::vector<Bytes>{{0x01}, {0, 0, 0, 0}, {0x78, 0x56, 0x34, 0x12}}));
  EXPECT_TRUE(tap.IsIdle());
  EXPECT_EQ(tap.resets, 1);

  tap.Clock(Parse({"ir", "5:0b11010", "idle", "13", "dr", "32:99"}, true).Packet());
  EXPECT_EQ(tap.data(), 99u);
  EXPECT_EQ(tap.resets, 1) << "known to idle it is not reset";
}

TEST(JtagProgram, ScansOfEveryLengthAreTrimmedToTheBit) {
  for (std::uint32_t bits = 1; bits <= 64; ++bits) {
    Tap tap(bits);
    JtagProgram program;
    program.AddReset();
    program.AddScan(JtagProgram::Register::kInstruction, 5, Bytes{kInstruction});
    for (int scan = 0; scan < 2; ++scan) {
      program.AddScan(JtagProgram::Register::kData, bits,
                      Bytes{0x69, 0x3C, 0x5A, 0x0F, 0xF0, 0xE1, 0xD2, 0xC3});
    }
    const auto decoded = program.Decode(tap.Clock(program.Packet()));
    ASSERT_TRUE(decoded);
    std::uint64_t tdo = 0;
    for (std::size_t i = 0; i < decoded->back().size(); ++i) {
      tdo |= static_cast<std::uint64_t>(decoded->back()[i]) << i * 8;
    }
    const std::uint64_t written = 0xC3D2'E1F0'0F5A'3C69 & (~0ull >> (64 - bits));
    EXPECT_EQ(tap.data(), written) << bits;
    EXPECT_EQ(tdo, written) << bits;
    EXPECT_TRUE(tap.IsIdle()) << bits;
  }
}

}  // namespace
}  // namespace client
