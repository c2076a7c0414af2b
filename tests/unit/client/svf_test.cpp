// Files in the Serial Vector Format: what they are read as, and what a chain then goes through.
#include <gtest/gtest.h>

#include <sstream>

#include "client/svf/svf_player.h"
#include "sim/jtag_stream.h"
#include "sim/targets/jtag_chain.h"

namespace client {
namespace {

std::string Describe(const SvfStep& step) {
  std::ostringstream text;
  text << step.line;
  const auto name = [](TapState state) { return std::string(1, ' ').append(SvfStateName(state)); };
  if (const auto* const scan = std::get_if<SvfScan>(&step.action)) {
    text << name(scan->shift) << ' ' << NumberFromBits(scan->tdi, scan->bits);
    for (const SvfCheck& check : scan->checks) {
      text << ' ' << check.name << '@' << check.first << '='
           << NumberFromBits(*check.tdo, check.bits) << '&'
           << NumberFromBits(*check.mask, check.bits);
    }
    text << name(scan->end);
  } else if (const auto* const move = std::get_if<SvfMove>(&step.action)) {
    for (const TapState state : move->states) text << name(state);
  } else if (const auto* const stay = std::get_if<SvfStay>(&step.action)) {
    text << name(stay->state) << ' ' << stay->cycles << ' ' << stay->seconds << name(stay->end);
  } else if (const auto& hertz = std::get<SvfFrequency>(step.action).hertz) {
    text << " HZ " << *hertz;
  } else {
    text << " HZ";
  }
  return text.str() + "\n";
}

std::string Read(const std::string& svf, std::uint64_t max_bits = kMaxSvfBits) {
  SvfProblem problem;
  const auto program = ParseSvf(svf, problem, max_bits);
  if (!program) return std::to_string(problem.line) + " " + problem.text;
  std::string steps;
  for (const SvfStep& step : *program) steps += Describe(step);
  return steps;
}

TEST(Svf, EveryStatementIsRead) {
  const std::pair<const char*, const char*> cases[] = {
      // Blanks, comments and letter case.
      {"! Nothing; but a comment\n// SDR\n;;State\tReset//now\r\n\n idle;STATE RESET ;",
       "3 RESET IDLE\n5 RESET\n"},
      {"SDR 12 TDI(a B!)\n c);\nSIR 3 TDI(7);", "1 DRSHIFT 0xabc IDLE\n3 IRSHIFT 0x7 IDLE\n"},
      // TDI and MASK are remembered, TDO is not; a new length forgets them.
      {"SDR 8 TDI (5A) TDO (1) MASK (F0) SMASK (0F);\nSDR 8;\nSDR 8 TDO (00A5);\n"
       "SDR 9 TDI (1FF) TDO (0);\nSDR 8 TDI (1) TDO (2);",
       "1 DRSHIFT 0x5a SDR@0=0x01&0xf0 IDLE\n2 DRSHIFT 0x5a IDLE\n"
       "3 DRSHIFT 0x5a SDR@0=0xa5&0xf0 IDLE\n4 DRSHIFT 0x1ff SDR@0=0x000&0x1ff IDLE\n"
       "5 DRSHIFT 0x01 SDR@0=0x02&0xff IDLE\n"},
      // Header first, trailer last; each register has its own.
      {"HDR 2 TDI (2) TDO (1);\nTDR 3 TDI (5) TDO (6) MASK (3);\nHIR 4 TDI (0);TIR 1 TDI (1);\n"
       "SDR 4 TDI (A);\nSIR 4 TDI (C) TDO (1);\nHDR 2;\nTDR 0;\nSDR 4;",
       "4 DRSHIFT 0x16a HDR@0=0x1&0x3 TDR@6=0x6&0x3 IDLE\n"
       "5 IRSHIFT 0x1c0 SIR@4=0x1&0xf IDLE\n8 DRSHIFT 0x2a IDLE\n"},
      {"ENDDR DRPAUSE;ENDIR RESET;SDR 1 TDI (1);SIR 1 TDI (0);ENDDR IRPAUSE;SDR 1;",
       "1 DRSHIFT 0x1 DRPAUSE\n1 IRSHIFT 0x0 RESET\n1 DRSHIFT 0x1 IRPAUSE\n"},
      // The states of RUNTEST stay.
      {"RUNTEST 5 TCK;\nRUNTEST DRPAUSE 1.5E-3 SEC;\nRUNTEST 7 TCK 2 SEC MAXIMUM 3 SEC ENDSTATE "
       "IDLE;\nRUNTEST 1 SCK 0.25 SEC;\nRUNTEST RESET 8 TCK ENDSTATE DRPAUSE;\n"
       "RUNTEST IDLE 1 SEC MAXIMUM 1.0 SEC;",
       "1 IDLE 5 0 IDLE\n2 DRPAUSE 0 0.0015 DRPAUSE\n3 DRPAUSE 7 2 IDLE\n4 DRPAUSE 0 0.25 IDLE\n"
       "5 RESET 8 0 DRPAUSE\n6 IDLE 0 1 IDLE\n"},
      {"STATE IDLE DRSELECT DRCAPTURE DREXIT1 DRPAUSE;\nSTATE DREXIT2 DRUPDATE DRSELECT IRSELECT\n"
       "IRCAPTURE IRSHIFT IRSHIFT IREXIT1 IRPAUSE;\nSTATE IREXIT2 IRUPDATE IDLE;",
       "1 IDLE DRSELECT DRCAPTURE DREXIT1 DRPAUSE\n2 DREXIT2 DRUPDATE DRSELECT IRSELECT IRCAPTURE "
       "IRSHIFT IRSHIFT IREXIT1 IRPAUSE\n4 IREXIT2 IRUPDATE IDLE\n"},
      {"FREQUENCY 1.00E+006 HZ;FREQUENCY;TRST OFF;TRST Z;TRST ABSENT;\nSTATE IDLE;TRST ON;\n"
       "STATE IDLE DRSELECT DRCAPTURE DREXIT1 DRPAUSE;",
       "1 HZ 1e+06\n1 HZ\n2 IDLE\n2 RESET\n3 IDLE DRSELECT DRCAPTURE DREXIT1 DRPAUSE\n"},
  };
  for (const auto& [svf, steps] : cases) EXPECT_EQ(Read(svf), steps) << svf;
}

TEST(Svf, WhatIsWrongIsNamedWithItsLine) {
  const std::pair<const char*, const char*> cases[] = {
      {"\nSTATE IDLE", "2 the statement has no ';' at its end"},
      {"SDR 8\nTDI (12\n34;\n", "2 a parenthesis is left open"},
      {";\nSWIM 8;", "2 SWIM: 'SWIM' is no statement"},
      {"PIO (HLZ);", "1 PIO: the probe has no parallel pins"},
      {"PIOMAP (IN A);", "1 PIOMAP: the probe has no parallel pins"},
      {"SDR;", "1 SDR: there is no length"},
      {"SDR 8X TDI (0);", "1 SDR: '8X' is no length up to 268435456"},
      {"HDR 268435457;", "1 HDR: '268435457' is no length up to 268435456"},
      {"SIR 0;", "1 SIR: there is nothing to scan"},
      {"SDR 8 TDI (1);\n\nSDR 9;", "3 SDR: a new length wants a TDI"},
      {"TIR 1;", "1 TIR: a new length wants a TDI"},
      {"SDR 8 TDI;", "1 SDR: there is no value"},
      {"SDR 8 TDI 12;", "1 SDR: TDI has no digits in parentheses"},
      {"SDR 8 TDI ();", "1 SDR: TDI has no digits in parentheses"},
      {"SDR 8 TDI (1G);", "1 SDR: 'G' is no hexadecimal digit"},
      {"SDR 6 TDI (40);", "1 SDR: TDI has more than 6 bits"},
      {"SDR 8 TDI (0) TDI (0);", "1 SDR: TDI is given twice"},
      {"SDR 8 TDI (0) TDX (0);", "1 SDR: 'TDX' is none of TDI, TDO, MASK, SMASK"},
      {"SDR 8 TDI (0) SMASK (100);", "1 SDR: SMASK has more than 8 bits"},
      {"ENDDR DRSHIFT;", "1 ENDDR: DRSHIFT is not stable: RESET, IDLE, DRPAUSE, IRPAUSE"},
      {"ENDIR NOWHERE;", "1 ENDIR: 'NOWHERE' is no state"},
      {"ENDIR IDLE IDLE;", "1 ENDIR: 'IDLE' is more than belongs here"},
      {"STATE;", "1 STATE: there is no state"},
      {"STATE DRSHIFT;", "1 STATE: the way ends in DRSHIFT, which is not stable"},
      {"STATE DRPAUSE;\nSTATE DREXIT2 IDLE;", "2 STATE: IDLE does not follow DREXIT2"},
      {"ENDDR IRPAUSE;SDR 1 TDI (0);STATE DREXIT2 DRUPDATE IDLE;",
       "1 STATE: DREXIT2 does not follow IRPAUSE"},
      {"RUNTEST IDLE 1 TCK ENDSTATE IRPAUSE;STATE DRSELECT DRCAPTURE DREXIT1 DRPAUSE;",
       "1 STATE: DRSELECT does not follow IRPAUSE"},
      {"FREQUENCY 0 HZ;", "1 FREQUENCY: '0' is no frequency"},
      {"FREQUENCY -1 HZ;", "1 FREQUENCY: '-1' is no frequency"},
      {"FREQUENCY INF HZ;", "1 FREQUENCY: 'INF' is no frequency"},
      {"FREQUENCY 1E6;", "1 FREQUENCY: the frequency is followed by HZ"},
      {"TRST UP;", "1 TRST: 'UP' is none of ON, OFF, Z, ABSENT"},
      {"RUNTEST IDLE;", "1 RUNTEST: there is no count or time"},
      {"RUNTEST DRSHIFT 1 TCK;", "1 RUNTEST: DRSHIFT is not stable: RESET, IDLE, DRPAUSE, IRPAUSE"},
      {"RUNTEST 1.5 TCK;", "1 RUNTEST: '1.5' is no count up to 4294967295"},
      {"RUNTEST 1;", "1 RUNTEST: the count is followed by TCK or SCK"},
      {"RUNTEST 1 SCK;",
       "1 RUNTEST: the probe has no system clock to count (SCK), and there is no time"},
      {"RUNTEST 1 TCK 1;", "1 RUNTEST: the time is followed by SEC"},
      {"RUNTEST 86400.1 SEC;", "1 RUNTEST: '86400.1' is no time up to a day"},
      {"RUNTEST 2 SEC MAXIMUM 1 SEC;", "1 RUNTEST: the longest time is below the shortest"},
      {"RUNTEST 2 SEC MAXIMUM 3;", "1 RUNTEST: the time is followed by SEC"},
      {"RUNTEST 1 TCK ENDSTATE IDLE 4;", "1 RUNTEST: '4' is more than belongs here"},
  };
  for (const auto& [svf, problem] : cases) EXPECT_EQ(Read(svf), problem);
  const std::string scans = "HDR 2 TDI (0);TDR 3 TDI (0);SDR 4 TDI (F);\nSIR 8 TDI (0);";
  EXPECT_EQ(Read(scans, 17), "1 DRSHIFT 0x03c IDLE\n2 IRSHIFT 0x00 IDLE\n");
  EXPECT_EQ(Read(scans, 16), "2 SIR: the file's scans are too long to be held");
}

// A chain of two TAPs behind a bridge, and all that happens to it. States in which it stays are
// told once, since they may last longer.
class SvfPlay : public testing::Test {
 protected:
  // The story, and how it ended.
  std::string Play(const std::string& svf, std::uint32_t hertz = 1000000) {
    SvfProblem problem;
    const auto program = ParseSvf(svf, problem);
    EXPECT_TRUE(program) << problem.text;
    clocks = true;
    EXPECT_TRUE(bridge.Reset());
    clocks = !breaks;
    packets = cycles = 0;
    story.clear();
    SvfPlayer player(bridge, controls, hertz);
    const bool played = player.Play(*program);
    const auto& mismatch = player.mismatch();
    std::ostringstream told;
    told << story << "| " << player.checked();
    if (mismatch) told << ' ' << mismatch->line << ": " << mismatch->Text();
    if (!played && !mismatch) told << " failed in " << player.line();
    return told.str();
  }

  void Clock(std::span<const std::uint8_t> packet, Bytes& tdo) {
    ++packets;
    const auto clock = [this](bool tms, bool tdi) {
      const bool bit = chain.Clock(tms, tdi);
      ++cycles;
      const auto state = static_cast<TapState>(chain.state());
      if (chain.state() != last) story += std::string(SvfStateName(state)) + ' ';
      last = chain.state();
      return bit;
    };
    tdo = sim::RunChunk(packet.data(), static_cast<std::uint32_t>(4 * packet.size()), clock);
  }

  sim::JtagChain chain{{.taps = {{.idcode = 0x1BA01477}, {.idcode = 0x0684617F, .ir_length = 5}}}};
  sim::TapState last = sim::TapState::kTestLogicReset;
  std::string story;
  std::size_t packets = 0;
  std::size_t cycles = 0;
  bool clocks = true;
  bool breaks = false;
  JtagBridge bridge{[this](std::span<const std::uint8_t> packet, Bytes& tdo) {
    Clock(packet, tdo);
    return clocks;
  }};
  bool control_works = true;
  SvfControls controls{[this](std::optional<double> most, std::uint32_t& hertz) {
                         hertz = most ? static_cast<std::uint32_t>(*most) : 3000000;
                         story += "HZ ";
                         return control_works;
                       },
                       [this](double seconds) {
                         std::ostringstream text;
                         text << "wait " << seconds << ' ';
                         story += text.str();
                         return control_works;
                       }};
};

TEST_F(SvfPlay, GoesFromStateToStateOnTheWaysOfTheFormat) {
  EXPECT_EQ(
      Play("STATE RESET;STATE IDLE;STATE IDLE;STATE IRPAUSE;\nSTATE DRPAUSE;\nSTATE IRPAUSE;\n"
           "STATE IRPAUSE;STATE IDLE;STATE DRPAUSE;STATE DRPAUSE;STATE RESET;STATE DRPAUSE;\n"
           "STATE IDLE;STATE RESET;STATE IRPAUSE;STATE RESET;"
           "STATE IDLE DRSELECT DRCAPTURE DRSHIFT DRSHIFT DREXIT1 DRPAUSE;"),
      "IDLE DRSELECT IRSELECT IRCAPTURE IREXIT1 IRPAUSE "
      "IREXIT2 IRUPDATE DRSELECT DRCAPTURE DREXIT1 DRPAUSE "
      "DREXIT2 DRUPDATE DRSELECT IRSELECT IRCAPTURE IREXIT1 IRPAUSE "
      "IREXIT2 IRUPDATE DRSELECT IRSELECT IRCAPTURE IREXIT1 IRPAUSE "
      "IREXIT2 IRUPDATE IDLE DRSELECT DRCAPTURE DREXIT1 DRPAUSE "
      "DREXIT2 DRUPDATE DRSELECT DRCAPTURE DREXIT1 DRPAUSE "
      "DREXIT2 DRUPDATE DRSELECT IRSELECT RESET IDLE DRSELECT DRCAPTURE DREXIT1 DRPAUSE "
      "DREXIT2 DRUPDATE IDLE DRSELECT IRSELECT RESET "
      "IDLE DRSELECT IRSELECT IRCAPTURE IREXIT1 IRPAUSE "
      "IREXIT2 IRUPDATE DRSELECT IRSELECT RESET "
      "IDLE DRSELECT DRCAPTURE DRSHIFT DREXIT1 DRPAUSE | 0");
  EXPECT_EQ(packets, 1u);
}

TEST_F(SvfPlay, ScansGoOnWhereTheyPausedAndAreCompared) {
  EXPECT_EQ(
      Play("ENDDR DRPAUSE;SDR 20 TDI (0) TDO (4617F);\n"
           "ENDDR IDLE;HDR 12 TDI (0) TDO (068);SDR 8 TDI(0)TDO(77);TDR 4 TDI(0)TDO(2);"
           "\nENDIR IRPAUSE;SIR 9 TDI (0) TDO (21) MASK (33);HDR 0;TDR 0;SDR 8 TDO (0) MASK (0);"),
      "IDLE DRSELECT DRCAPTURE DRSHIFT DREXIT1 DRPAUSE DREXIT2 DRSHIFT DREXIT1 DRUPDATE IDLE "
      "DRSELECT IRSELECT IRCAPTURE IRSHIFT IREXIT1 IRPAUSE IREXIT2 IRUPDATE DRSELECT "
      "DRCAPTURE DRSHIFT DREXIT1 DRUPDATE IDLE | 4");
}

TEST_F(SvfPlay, AScanThatFailsIsNamedWithWhatCameAndNotMuchIsClockedBehindIt) {
  const auto ends = [this](const std::string& svf) {
    const std::string told = Play(svf);
    return told.substr(told.find("| ") + 2);
  };
  EXPECT_EQ(ends("SDR 8 TDI (0) TDO (7F);\nHDR 8 TDI (0) TDO (7E) MASK (F1);SDR 4 TDI (0)\n;"),
            "1 2: HDR 8: TDO is 0x7f, not 0x7e (mask 0xf1)");
  // 64 bits of the ids, and then what went in.
  // Behind the 64 bits of the ids comes what went in.
  EXPECT_EQ(ends("SDR 300 TDI (" + std::string(34, '0') + "1) TDO (2" + std::string(32, '0') +
                 ") MASK (3" + std::string(32, '0') + ");"),
            "0 1: SDR 300: TDO from bit 128 on is 0x0000000000000000, not 0x0000000000000002 "
            "(mask 0x0000000000000003)");
  std::string many = "SDR 32 TDI (0) TDO (1);\n";
  for (int i = 0; i < 10000; ++i) many += "SDR 32;\n";
  EXPECT_EQ(ends(many), "0 1: SDR 32: TDO is 0x0684617f, not 0x00000001 (mask 0xffffffff)");
  EXPECT_EQ(packets, 1u);
  EXPECT_EQ(ends(many.replace(many.find('1'), 1, "0684617F")), "1");
  EXPECT_LE(packets, 10001u * 37 / 16000);
}

TEST_F(SvfPlay, WaitsAreCyclesWhenTheyAreShortAndTheirCountAlways) {
  struct Case {
    const char* svf;
    std::uint32_t hertz;
    std::size_t cycles;  // at least, and hardly more
    const char* told;
  };
  const Case cases[] = {
      {"RUNTEST 100 TCK;", 1000000, 100, "IDLE | 0"},
      {"RUNTEST 100000 TCK;", 0, 100000, "IDLE | 0"},
      {"RUNTEST 10 TCK 0.01 SEC;", 1000000, 10000, "IDLE | 0"},
      // A group before it, and the cycle to Idle.
      {"RUNTEST 7.5E-6 SEC;", 1000000, 8 + 1 + 8, "IDLE | 0"},
      {"RUNTEST 100000 TCK 0.1 SEC;", 1000000, 100000, "IDLE | 0"},
      {"RUNTEST 100000 TCK 0.2 SEC;", 1000000, 100000, "IDLE wait 0.2 | 0"},
      {"RUNTEST 10 TCK 0.01 SEC;", 0, 10, "IDLE wait 0.01 | 0"},
      {"FREQUENCY;RUNTEST 0.005 SEC;", 1, 15000, "HZ IDLE | 0"},
      {"STATE IDLE;RUNTEST RESET 1 SEC ENDSTATE IDLE;", 1000000, 0,
       "IDLE DRSELECT IRSELECT RESET wait 1 IDLE | 0"},
      {"RUNTEST RESET 1000 TCK;", 0, 1000, "| 0"},
      {"STATE DRPAUSE;RUNTEST DRPAUSE 1000 TCK;", 0, 1000,
       "IDLE DRSELECT DRCAPTURE DREXIT1 DRPAUSE | 0"},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(Play(one.svf, one.hertz), one.told) << one.svf;
    EXPECT_GE(cycles, one.cycles) << one.svf;
    // Each packet looks first whether the chain still waits, and is filled up.
    EXPECT_LE(cycles, one.cycles + 16 * (packets + 1)) << one.svf;
    EXPECT_LE(packets, 2 + one.cycles / 16000) << one.svf;
  }
}

TEST_F(SvfPlay, EndsWhereThePacketOrTheProbeFails) {
  control_works = false;
  EXPECT_EQ(Play("STATE IDLE;\nRUNTEST 1 SEC;\nSTATE RESET;"), "IDLE wait 1 | 0 failed in 2");
  EXPECT_EQ(Play("STATE IDLE;\n\nFREQUENCY;STATE RESET;"), "IDLE HZ | 0 failed in 3");
  breaks = true;
  EXPECT_EQ(Play("RUNTEST 50000 TCK;\nSTATE RESET;"), "IDLE | 0 failed in 1");
  EXPECT_EQ(packets, 1u);
}

}  // namespace
}  // namespace client
