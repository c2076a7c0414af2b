#include "client/script.h"

#include <gtest/gtest.h>

#include "tests/unit/client/fake_wirefox.h"

namespace client {
namespace {

using client_test::ClientRun;
using client_test::FakeService;
using client_test::RunClient;

TEST(ScriptLine, WordsVariableAndToleranceAreTakenApart) {
  struct Case {
    const char* text;
    bool may_fail;
    const char* variable;
    std::vector<std::string> words;
  };
  const Case cases[] = {
      {"", false, "", {}},
      {"   # only a comment", false, "", {}},
      {"list", false, "", {"list"}},
      {"\tlist \r", false, "", {"list"}},
      {"jtag $s f0#20 # comment", false, "", {"jtag", "$s", "f0#20"}},
      {"status \"A probe\" \"\"", false, "", {"status", "A probe", ""}},
      {"-release $s", true, "", {"release", "$s"}},
      {"- release $s", true, "", {"release", "$s"}},
      {"s = acquire P", false, "s", {"acquire", "P"}},
      {"-s_1 = acquire P", true, "s_1", {"acquire", "P"}},
  };
  for (const Case& c : cases) {
    std::string problem;
    const auto line = ParseScriptLine(c.text, problem);
    ASSERT_TRUE(line) << c.text << ": " << problem;
    EXPECT_EQ(line->may_fail, c.may_fail) << c.text;
    EXPECT_EQ(line->variable, c.variable) << c.text;
    EXPECT_EQ(line->words, c.words) << c.text;
  }
}

TEST(ScriptLine, BrokenLinesAreRefused) {
  for (const char* text : {"status \"P", "-", "- # nothing", "s =", "1s = acquire P",
                           "$s = acquire P", "a-b = acquire P"}) {
    std::string problem;
    EXPECT_FALSE(ParseScriptLine(text, problem)) << text;
    EXPECT_FALSE(problem.empty()) << text;
  }
}

TEST(Script, SessionsLiveInVariablesAndTheLastIsReleasedAtTheEnd) {
  FakeService fake;
  const ClientRun run = RunClient(fake, {"script", "-"},
                                  "a = acquire P --target 1   # the second one\n"
                                  "jtag $a f0f0\n"
                                  "release $a\n"
                                  "b = acquire P\n"
                                  "swd $b a5\n");
  EXPECT_EQ(run.exit_status, 0) << run.err;
  EXPECT_EQ(fake.calls, (std::vector<std::string>{"GetWirefoxStatus P", "AcquireDevice P 1 1",
                                                  "SendJtagPacket 1 260 f0f0", "ReleaseDevice 260",
                                                  "GetWirefoxStatus P", "AcquireDevice P 0 1",
                                                  "SendSwdPacket 260 a5", "ReleaseDevice 260"}));
}

TEST(Script, EndsAtTheFirstFailureWithItsStatusAndLineUnlessTheLineMayFail) {
  FakeService fake;
  fake.outcomes["SetMode"] = {TzErrorCode::IN_USE, TzErrorCode::IN_USE};
  const ClientRun run = RunClient(fake, {"script", "-"}, "list\n\nmode P JTAG\nlist\n");
  EXPECT_EQ(run.exit_status, 11);
  EXPECT_EQ(fake.calls, (std::vector<std::string>{"EnumerateWirefoxs", "SetMode P 1 0 1"}));
  EXPECT_EQ(run.err.substr(0, 32), "wfx: stdin:3: IN_USE (error 1): ");
  EXPECT_EQ(RunClient(fake, {"script", "-"}, "-mode P JTAG\nhwrev P\n").exit_status, 0);
  EXPECT_EQ(fake.calls.back(), "GetHwRevID P");
}

TEST(Script, NothingRunsWhenALineIsWrong) {
  const std::pair<const char*, const char*> cases[] = {
      {"list\nfrobnicate\n", "wfx: stdin:2: unknown command 'frobnicate'\n"},
      {"list\nmode P\n", "wfx: stdin:2: mode: MODE is required\n"},
      {"list\nhold\n", "wfx: stdin:2: 'hold' cannot be used in a script\n"},
      {"list\nacquire P\n", "wfx: stdin:2: acquire gives a session: write NAME = acquire PROBE\n"},
      {"list\ns = list\n", "wfx: stdin:2: only acquire gives something that a variable can keep\n"},
      {"list\nlist --help\n", "wfx: stdin:2: help is for the command line\n"},
      // Found when its line runs; the mark does not hide it.
      {"-release $s\nlist\n", "wfx: stdin:1: there is no session $s\n"},
  };
  for (const auto& [text, problem] : cases) {
    FakeService fake;
    const ClientRun run = RunClient(fake, {"script", "-"}, text);
    EXPECT_EQ(run.exit_status, 2) << text;
    EXPECT_EQ(run.err, problem);
    EXPECT_TRUE(fake.calls.empty()) << text;
  }
}

TEST(Script, ALostServiceEndsAScriptThatToleratesFailures) {
  FakeService fake;
  fake.call_failures["GetHwRevID"] = static_cast<HRESULT>(0x800706BA);
  const ClientRun run = RunClient(fake, {"script", "-"}, "-hwrev P\n-hwrev P\n");
  EXPECT_EQ(run.exit_status, 3);
  EXPECT_EQ(fake.calls.size(), 1u);
}

TEST(Script, JsonGivesOneLineForEachCommand) {
  FakeService fake;
  fake.wirefoxs = {"A"};
  const ClientRun run = RunClient(fake, {"script", "-", "--json"}, "list\ns = acquire A\n");
  EXPECT_EQ(run.out,
            "{\"error\":\"SUCCESS\",\"wirefoxs\":[\"A\"]}\n"
            "{\"error\":\"SUCCESS\",\"wfxHandle\":260}\n");
}

}  // namespace
}  // namespace client
