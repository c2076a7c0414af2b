#include "sim/jtag_chain.h"
#include "tests/unit/sim/bench_script.h"

namespace sim {
namespace {

// IEEE 1149.1, figure of the TAP controller: for each state, in the order of their declaration, the
// next with TMS low and with TMS high.
TEST(TapController, MovesAsTheStandardSays) {
  std::string moves;
  for (int i = 0; i < 32; ++i) {
    const TapState next = NextTapState(static_cast<TapState>(i / 2), i % 2 != 0);
    moves += "0123456789ABCDEF"[static_cast<int>(next)];
  }
  EXPECT_EQ(moves, "101239454568674812A0BCBCDFDEBF12");
}

// Registers 1 and 2 hold the cycles still to be sent; a chunk has at most 32,768 of them. TDO
// floats high.
TEST(JtagStream, CyclesComeFromTheBytesAndTdoMayBeBrokenOrFloat) {
  ExpectPlayed(R"(
    probe "kind": "evk" | vendor 41 0101 3
    reg 01 05 | reg 02 C0 | out 02 0B 0F | in 84 8 = 1B | in 84 1 = waits ; part, with loopback
    reg 01 FF | reg 02 FF | out 02 0F*4095 00 | in 84 2048 = FF*2047 0F ; the longest below 0x4000
    reg 01 00 | reg 02 C0 | out 02 00*4096 | in 84 2048 = FF*2048 ; looks like a loopback of nothing
    reg 01 01 | reg 02 C0 | out 02 00*4098 | in 84 8192 = FF*2049 ; looks like one of one cycle
    reg 01 40 | reg 02 9C | out 02 00*8192 | in 84 4096 = FF*4096 ; the first chunk of 40,000
    reg 01 40 | reg 02 9C | out 02 00*1808 | in 84 8192 = FF*904 ; and its second
    reg 01 0A | reg 02 80 | out 02 00*8192 | in 84 4096 = FF*4096 ; 65,546: high bits are lost
    reg 01 64 | reg 02 80 | out 02 00*10 | in 84 64 = FF FF FF FF FF ; fewer bytes than counted
    reg 01 09 | reg 02 80 | out 02 00*8 | in 84 64 = FF 01 ; more
    probe "kind": "evk", "external_supply": 74, "jtag": {"taps": [{"idcode": "0x0684617F"}]}
    vendor 41 0101 3 | jtag F0 F0 F0 20 00 00 = FF FF FF
    vendor 55 000B 2 | vendor 51 0000 2 | jtag F0 F0 F0 20 00*8 = FF FF 7F 61 84 06
    vendor 61 0001 10 | jtag F0 F0 F0 20 00*8 = FF FF FF FF FF FF ; the other connector
    vendor 61 0000 10
    set "changes": {"jtag": {"tdo": "stuck-high", "taps": [{"idcode": 1}]}}
    jtag F0 F0 F0 20 00*8 = FF FF FF FF FF FF
    set "changes": {"jtag": {"tdo": "stuck-low", "taps": [{"idcode": "0xFFFFFFFF"}]}}
    jtag F0 F0 F0 20 00*8 = 00 00 00 00 00 00
    set "changes": {"jtag": {}} | jtag F0 F0 F0 20 00 00 = FF FF FF
)");
}

// Cycles in words: M and . for TMS, VALUE/BITS shifts hexadecimal numbers, with TMS high at the
// last bit. The values that came out.
std::string Clock(JtagChain& chain, const std::string& text) {
  std::ostringstream out;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const std::size_t slash = std::min(word.find('/'), word.size());
    const unsigned long bits = slash < word.size() ? std::stoul(word.substr(slash + 1)) : 0;
    const std::uint64_t in = bits > 0 ? std::stoull(word, nullptr, 16) : 0;
    std::uint64_t value = 0;
    for (unsigned long i = 0; i < bits; ++i) {
      value |= std::uint64_t{chain.Clock(i + 1 == bits, (in >> i & 1) != 0)} << i;
    }
    if (bits > 0) out << ' ' << std::hex << std::uppercase << value;
    for (std::size_t i = 0; bits == 0 && i < word.size(); ++i) chain.Clock(word[i] == 'M', false);
  }
  return out.str();
}

// Reset selects the identifications; the TAP next to TDO comes out first. Instruction registers
// capture 01. In Pause-DR the bits stay where they are, and what was written is captured. Each TAP
// in BYPASS is one cycle. Five cycles high reset from anywhere.
TEST(JtagChain, RegistersOfSeveralTapsAreOneShiftRegister) {
  TapDescription second{.idcode = 0x0684617F, .ir_length = 5, .idcode_instruction = 0x1E};
  second.scratch_instruction = 0x11;
  second.scratch_bits = 8;
  JtagChain chain({.taps = {{.idcode = 0x1BA01477}, second}});
  EXPECT_EQ(Clock(chain, "MMMMM. M.. 0/64 M. MM.. 111/9 M."), " 1BA014770684617F 21");
  EXPECT_EQ(Clock(chain, "M.. EF5A/16 ..M. DEADBE/24 M. M.. DEADBEEF5A/40 M."), " 0 0 DEADBEEF5A");
  EXPECT_EQ(Clock(chain, "MM.. F/4 ..M. 1/5 M. M.. B/4 M."), " 1 2 C");
  EXPECT_EQ(Clock(chain, "MM.. 1DE/9 M. M.. 0/64 M."), " 21 1BA014770684617F");
  EXPECT_EQ(Clock(chain, "MM.. 111/9 MMMMM. M.. 0/32 M."), " 21 684617F");
  EXPECT_EQ(Clock(chain, "MM.. 111/9 M. M.. 0/40 MMMMM"), " 21 DEADBEEF5A");
  EXPECT_EQ(chain.state(), TapState::kTestLogicReset);
}

}  // namespace
}  // namespace sim
