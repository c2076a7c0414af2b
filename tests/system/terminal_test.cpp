// The client as its user meets it: on a terminal, and in the shells that complete its lines.
#include <gmock/gmock.h>

#include "tests/system/harness.h"

namespace system_test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class OnTerminal : public OnBench {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(OnBench::SetUp());
    environment["TERM"] = "xterm";
    environment["PATH"] = Program("").string() + ":" + environment["PATH"];
  }

  // What a terminal shows of a line of the shell.
  std::string Shown(const std::string& line, const std::string& typed = "") {
    return Run({"/usr/bin/script", "-qec", line, "/dev/null"}, typed).out;
  }
};

TEST_F(OnTerminal, ShowsWhatItWaitsForFromTheSecondSecondOnAndWipesThatOut) {
  const auto regex = [](const std::string& line, const std::string& last) {
    return MatchesRegex(".*\r" + line + ", [0-9]+ s *(\r" + line + ", [0-9]+ s *)*\r +\r" + last);
  };
  const auto delay = [&](const std::string& endpoint) {
    EXPECT_EQ(
        Ctl({"fault", "WFX0001", "delay", "--endpoint", endpoint, "--value", "4000"}).exit_status,
        0);
  };
  EXPECT_EQ(Wfx({"mode", "WFX0001", "JTAG"}).exit_status, 0);
  EXPECT_EQ(Wfx({"targets", "WFX0001"}).exit_status, 0);
  EXPECT_EQ(Wfx({"timeout", "WFX0001", "0x84", "20000"}).exit_status, 0);
  delay("0x84");
  EXPECT_THAT(Shown("wfx jtag WFX0001 f0f0"), regex("clocking 8 cycles", "00000000  f.*\r\n"));
  WriteFile(home() / "f.svf", "STATE IDLE;\nRUNTEST 4 SEC;\nSTATE RESET;\n\n");
  const std::string play = "wfx play WFX0001 " + (home() / "f.svf").string();
  EXPECT_THAT(Shown(play), regex("line 2 of 3 \\(66 %\\)", "3 steps played.*"));
  EXPECT_EQ(Wfx({"mode", "WFX0001", "JTAG"}).exit_status, 0);
  const std::string loading = "waiting for TzWirefoxService, which loads probes that need it first";
  delay("0");
  EXPECT_THAT(Shown("wfx status WFX0001"), regex(loading, "WFX0001\r\n  mode .*"));
  for (const char* line : {"TERM=dumb wfx status WFX0001", "wfx --json status WFX0001",
                           "wfx status WFX0001 2>/dev/null"}) {
    delay("0");
    EXPECT_THAT(Shown(line), Not(HasSubstr("waiting"))) << line;
  }
}

TEST_F(OnTerminal, HasColoursUnlessTheyAreNotWanted) {
  EXPECT_EQ(Wfx({"mode", "WFX0002", "SWD"}).exit_status, 0);
  const std::string coloured = "0  0x2BA01477  \033[32mfree\033[0m\r\n";
  const std::string plain = "0  0x2BA01477  free\r\n";
  const std::pair<std::string, std::string> cases[] = {
      {"wfx targets WFX0002", coloured},
      {"NO_COLOR= wfx targets WFX0002", coloured},
      {"NO_COLOR=1 wfx targets WFX0002", plain},
      {"NO_COLOR=1 wfx --color=always targets WFX0002", coloured},
      {"wfx --color=never targets WFX0002", plain},
      {"TERM=dumb wfx targets WFX0002", plain},
      {"wfx targets WFX0002 | cat", plain},
      {"wfx lits 2>&1 >/dev/null | head -c 5", "wfx: "},
      {"wfx lits | cat",
       "\033[1;31mwfx:\033[0m unknown command 'lits' (did you mean list?); `wfx "
       "--help` tells more\r\n"}};
  for (const auto& [line, shown] : cases) EXPECT_THAT(Shown(line), EndsWith(shown)) << line;
}

// The shells show the lines that they run, as they are completed.
TEST_F(OnTerminal, IsCompletedByBashAndZsh) {
  WriteFile(home() / "play.svf", "");
  const std::string typed =
      "set -x; cd " + home().string() +
      "\nwfx hwr\tWFX0002\nwfx mode wfx0002\tswd_\t\nwfx mode WFX0002 SWD --po\t5\n"
      "wfx --col\tnever version\nwfx jtag EV\t@pl\t\nwfx --color=nev\tversion\n"
      "wfx jtag EVK0001 --vcd=pl\t00\nexit\n";
  const auto ran = [](const std::string& line) { return HasSubstr("+ " + line + "\r\n"); };
  for (const auto& [shell, load] :
       {std::pair("bash --norc --noprofile", ""),
        std::pair("zsh -f", "autoload -U compinit; compinit -u -D; ")}) {
    environment["PS4"] = "+ ";
    const std::string name = std::string(shell).substr(0, std::string(shell).find(' '));
    std::string shown;
    const auto all = AllOf(ran("wfx hwrev WFX0002"), ran("wfx mode WFX0002 SWD_SWV"),
                           ran("wfx mode WFX0002 SWD --port 5"), ran("wfx --color never version"),
                           ran("wfx jtag EVK0001 @play.svf"), ran("wfx --color=never version"),
                           ran("wfx jtag EVK0001 --vcd=play.svf 00"));
    // The probes are named when the service answers soon enough.
    EXPECT_TRUE(WaitUntil([&] {
      shown = Shown(shell, load + ("source <(wfx completion " + name + "); ") + typed);
      // One of them quotes words with an equals sign when it shows them.
      std::erase(shown, '\'');
      return testing::Value(shown, all);
    })) << shell
        << shown;
  }
}

TEST_F(OnTerminal, CompletesSilentlyAndSoonWhenTheServiceDoesNotAnswer) {
  EXPECT_TRUE(WaitUntil([&] {
    return Wfx({"__complete", "=", "status"}).out ==
           "EVK0001\tprobe\nWFX0001\tprobe\nWFX0002\tprobe\n";
  }));
  EXPECT_EQ(Ctl({"fault", "WFX0001", "delay", "--endpoint", "0", "--value", "4000"}).exit_status,
            0);
  auto busy = StartWfx({"status", "WFX0001"});
  // The table is locked while the call waits for the probe.
  EXPECT_TRUE(WaitUntil([&] { return Wfx({"__complete", "=", "status"}).out.empty(); }));
  environment["WIREFOX_HOME"] = home() / "nowhere";
  const Finished nothing = Wfx({"__complete", "=", "status"});
  EXPECT_EQ(nothing.out + nothing.err, "");
  EXPECT_EQ(nothing.exit_status, 0);
}

TEST_F(OnTerminal, HasAManualPageThatManTakesWithoutAWarning) {
  WriteFile(home() / "wfx.1", Wfx({"manual"}).out);
  environment["MANWIDTH"] = "100";
  const Finished page = Run({"/usr/bin/man", "--warnings", "-E", "UTF-8", "-l", home() / "wfx.1"});
  EXPECT_EQ(page.err, "");
  EXPECT_THAT(page.out, AllOf(HasSubstr("wfx mode [OPTIONS] PROBE MODE\n"),
                              HasSubstr("--port VALUE\n"), HasSubstr("wfx - talk to USB"),
                              HasSubstr("  wfx jtag WFX0001 ir 9:0x1ff dr 2           both in")));
}

}  // namespace
}  // namespace system_test
