#include "sim/targets/jtag_chain.h"
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

// SAMPLE reads the pins, EXTEST drives them; the FPGA's stream begins at its synchronisation word,
// and its done bit shows in what the instruction register captures.
TEST(JtagChain, AnFpgaTakesAStreamAndItsPinsAreReadAndDriven) {
  JtagChain chain({.taps = {{.idcode = 0x04008093,
                             .ir_length = 6,
                             .idcode_instruction = 9,
                             .configuration = ConfigurationDescription{},
                             .boundary = BoundaryDescription{.bits = 12, .pins = 0xABC}}}});
  EXPECT_EQ(Clock(chain, "MMMMM. MM.. 1/6 M. M.. 123/12 M. MM.. F/6 M. M.. 5/12 M."),
            " 11 ABC 11 123");
  EXPECT_EQ(chain.taps()[0].Pins(), 5u);
  EXPECT_EQ(Clock(chain, "MM.. 5/6 M. M.. 66AA99550/36 M. MM.. C/6 M. MM.. 5/6 M."),
            " 11 CD5532AA0 11 31");
  EXPECT_EQ(chain.taps()[0].Pins(), 0xABCu);
}

// Reads are posted: the next scan brings the value. A scan that is answered WAIT does nothing.
TEST(JtagChain, ADebugPortReachesMemoryAndMakesScansWait) {
  TargetMemory memory({{.address = 0x20000000, .size = 16}});
  ASSERT_TRUE(memory.Write(0x20000004, 4, 0xCAFEBABE));
  JtagChain chain(
      {.taps = {{.idcode = 0x4BA00477, .debug_port = DebugPortDescription{.waits = 1}}}}, &memory);
  const auto scan = [&](const char* instruction, std::uint64_t data, unsigned address, bool read) {
    std::ostringstream text;
    text << "MM.. " << instruction << "/4 M. M.. " << std::hex << (data << 3 | address / 2 | read)
         << "/35 M.";
    const std::string out = Clock(chain, text.str());
    return out.substr(out.rfind(' ') + 1);
  };
  Clock(chain, "MMMMM.");
  EXPECT_EQ(scan("A", 0x50000000, 4, false), "2");  // power
  EXPECT_EQ(scan("B", 0x20000004, 4, false), "2");  // TAR
  EXPECT_EQ(scan("B", 0, 0xC, true), "1");          // waits
  EXPECT_EQ(scan("B", 0, 0xC, true), "2");          // DRW
  EXPECT_EQ(scan("A", 0, 0xC, true), "1");
  EXPECT_EQ(scan("A", 0, 4, true), "657F5D5F2");    // the word, and OK
  EXPECT_EQ(scan("A", 0, 0xC, true), "780000002");  // the port has power
  EXPECT_EQ(scan("B", 0x30000000, 4, false), "2");
  EXPECT_EQ(scan("A", 0, 0xC, true), "1");
  EXPECT_EQ(scan("B", 0, 0xC, true), "2");  // nothing is there
  EXPECT_EQ(scan("A", 0, 4, true), "1");
  EXPECT_EQ(scan("A", 0, 4, true), "2");
  EXPECT_EQ(scan("A", 0x50000020, 4, false), "780000102");  // the sticky error, which this clears
  EXPECT_EQ(scan("A", 0, 4, true), "780000102");
  EXPECT_EQ(scan("A", 0xF0, 8, false), "780000002");  // SELECT, which reads back
  EXPECT_EQ(scan("A", 0, 8, true), "780000002");
  EXPECT_EQ(scan("B", 0, 0xC, true), "782");
  // ABORT ends the wait, and nothing but that: the port's register 0 is none.
  EXPECT_EQ(scan("8", 1, 0, false), "0");
  EXPECT_EQ(scan("A", 0, 0, false), "123B8008A");  // what the access port is
}

}  // namespace
}  // namespace sim
