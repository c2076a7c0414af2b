// What a waveform shows of a scan, read as the programs that draw it do.
#include "client/vcd_file.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <utility>

#include "client/jtag_clocks.h"
#include "client/jtag_scan.h"
#include "client/serve/tap_state.h"
#include "sim/jtag_stream.h"
#include "sim/targets/jtag_chain.h"

namespace client {
namespace {

// What the lines carry in the shift states, at TCK's rising edges: a scan a line, TDI and TDO, the
// first bit last.
std::string Scans(const std::string& vcd) {
  std::istringstream lines(vcd);
  std::map<std::string, char> names, levels;
  TapState state = TapState::kReset;
  std::string scans, tdi, tdo;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word, type, width, id, name;
    words >> word >> type >> width >> id >> name;
    if (word == "$var") names[name] = id[0];
    if (line.size() != 2 || std::string_view("01x").find(line[0]) == std::string_view::npos) {
      continue;
    }
    levels[std::string(1, line[1])] = line[0];
    if (line[0] != '1' || line[1] != names["TCK"]) continue;
    const auto level = [&](const char* of) { return levels[std::string(1, names[of])]; };
    if (IsShift(state)) {
      tdi.insert(0, 1, level("TDI"));
      tdo.insert(0, 1, level("TDO"));
    }
    state = NextTapState(state, level("TMS") == '1');
    if (IsExit1(state)) scans += std::exchange(tdi, "") + " " + std::exchange(tdo, "") + "\n";
  }
  return scans;
}

TEST(VcdFile, ShowsTheBitsOfAScanAtTheRisingEdgesOfTck) {
  sim::JtagChain chain({.taps = {{.idcode = 0x1BA01477}}});
  std::string problem;
  const std::vector<std::string> words = {"dr", "32:0xf000000a", "ir", "4:15", "dr", "3:5"};
  const Bytes packet = ParseJtagProgram(words, false, problem)->Packet();
  std::ostringstream file;
  VcdFile vcd(file, 12000000);
  vcd.Add(packet, sim::RunChunk(packet.data(), static_cast<std::uint32_t>(4 * packet.size()),
                                [&](bool tms, bool tdi) { return chain.Clock(tms, tdi); }));
  EXPECT_TRUE(vcd.End());
  EXPECT_EQ(Scans(file.str()),
            "11110000000000000000000000001010 00011011101000000001010001110111\n"
            "1111 0001\n"
            "101 010\n");
}

TEST(VcdFile, HasTheTimeOfTheClockAndOfRests) {
  std::ostringstream file;
  VcdFile vcd(file, 0);
  vcd.Add(Bytes{0x00}, Bytes{0});
  vcd.SetClock(HertzOf(TzJtagClock::FREQ_A_03_2));
  vcd.Rest(0.001);
  vcd.Add(Bytes{0xF1}, Bytes{});
  EXPECT_TRUE(vcd.End());
  EXPECT_EQ(file.str(), R"($version wfx $end
$comment The clock is not known: a cycle is drawn as 2 ns. $end
$timescale 1 ps $end
$scope module jtag $end
$var wire 1 ! TCK $end
$var wire 1 " TMS $end
$var wire 1 # TDI $end
$var wire 1 $ TDO $end
$upscope $end
$enddefinitions $end
#0
0!
0"
0#
0$
#1000
1!
#2000
0!
#3000
1!
#4000
0!
#5000
1!
#6000
0!
#7000
1!
#8000
0!
#1000008000
1"
1#
x$
#1000164250
1!
#1000320500
0!
0#
#1000476750
1!
#1000633000
0!
#1000789250
1!
#1000945500
0!
#1001101750
1!
#1001258000
0!
)");
  file.setstate(std::ios::badbit);
  EXPECT_FALSE(vcd.End());
}

}  // namespace
}  // namespace client
