#include <gtest/gtest.h>

#include "tests/unit/client/fake_wirefox.h"

namespace client {
namespace {

using client_test::FakeService;
using client_test::Transcript;

TEST(Script, LinesAreWordsWithQuotesCommentsMarksAndVariables) {
  FakeService fake;
  EXPECT_EQ(Transcript(fake, "script -",
                       "\n   # only a comment\n\txres A on \r\nxres P#1 on # comment\n"
                       "xres \"A probe\" on\nxres \"\" on\n-xres P off\n- xres P on\n"
                       "-s_1 = acquire P\n"),
            "> ToggleXres A 1\n> ToggleXres P#1 1\n> ToggleXres A probe 1\n> ToggleXres  1\n"
            "> ToggleXres P 0\n> ToggleXres P 1\n> GetWirefoxStatus P\n> AcquireDevice P 0 1\n"
            "> ReleaseDevice 260\n");
}

TEST(Script, SessionsLiveInVariablesAndTheLastIsReleasedAtTheEnd) {
  FakeService fake;
  EXPECT_EQ(Transcript(fake, "script - --json",
                       "a = acquire P --target 1   # the second one\n"
                       "jtag $a f0f0\n"
                       "release $a\n"
                       "b = acquire P\n"
                       "swd $b a5\n"),
            "> GetWirefoxStatus P\n> AcquireDevice P 1 1\n> SendJtagPacket 1 260 f0f0\n"
            "> ReleaseDevice 260\n> GetWirefoxStatus P\n> AcquireDevice P 0 1\n"
            "> SendSwdPacket 260 a5\n> ReleaseDevice 260\n"
            "{\"error\":\"SUCCESS\",\"wfxHandle\":260}\n{\"error\":\"SUCCESS\",\"RESULT\":\"\"}\n"
            "{\"error\":\"SUCCESS\"}\n{\"error\":\"SUCCESS\",\"wfxHandle\":260}\n"
            "{\"error\":\"SUCCESS\",\"RESULT\":\"\"}\n");
}

TEST(Script, EndsAtTheFirstFailureWithItsStatusAndLineUnlessTheLineMayFail) {
  FakeService fake;
  fake.outcomes["SetMode"] = {TzErrorCode::UNKNOWN, TzErrorCode::UNKNOWN};
  const std::string problem =
      "wfx: stdin:3: UNKNOWN (error 7): the service could not take or give the data; its log may "
      "tell more\n";
  EXPECT_EQ(Transcript(fake, "script -", "version\n\nmode P JTAG\nlist\n"),
            "> GetVersion\n> SetMode P 1 0 1\nTzWirefoxService 0.0.0.0\n" + problem + "= 17\n");
  EXPECT_EQ(Transcript(fake, "script -", "\n\n-mode P JTAG\nhwrev P\n"),
            "> SetMode P 1 0 1\n> GetHwRevID P\nhardware revision 0\n" + problem);
  // Without the service no line can do anything.
  fake.call_failures["GetHwRevID"] = static_cast<HRESULT>(0x800706BA);
  EXPECT_EQ(Transcript(fake, "script -", "-hwrev P\n-hwrev P\n"),
            "> GetHwRevID P\nwfx: stdin:1: cannot reach TzWirefoxService: the service has ended "
            "(0x800706ba)\n= 3\n");
}

TEST(Script, NothingRunsWhenALineIsWrong) {
  const std::pair<const char*, const char*> cases[] = {
      {"status \"P", "a quote is left open"},
      {"-", "no command behind '-'"},
      {"- # nothing", "no command behind '-'"},
      {"s =", "no command behind '='"},
      {"1s = acquire P", "'1s' is no name for a variable"},
      {"$s = acquire P", "'$s' is no name for a variable"},
      {"a-b = acquire P", "'a-b' is no name for a variable"},
      {"frobnicate",
       "unknown command 'frobnicate'; the commands are list, version, status, mode, vtarg, clock, "
       "timeout, led, identify, xres, swv-setup, hwrev, targets, jtag, swd, i2c, bulk, swv, "
       "acquire-port, acquire, release"},
      {"mode P", "mode: MODE is required"},
      {"hold", "'hold' cannot be used in a script"},
      {"acquire P", "acquire gives a session: write NAME = acquire PROBE"},
      {"s = list", "only acquire gives something that a variable can keep"},
      {"list --help", "help is for the command line"},
  };
  FakeService fake;
  for (const auto& [line, problem] : cases) {
    EXPECT_EQ(Transcript(fake, "script -", std::string("list\n") + line + "\n"),
              std::string("wfx: stdin:2: ") + problem + "\n= 2\n");
  }
  // Found when its line runs; the mark does not hide it.
  EXPECT_EQ(Transcript(fake, "script - --json", "-release $s\nlist\n"),
            "{\"error\":\"USAGE\",\"problem\":\"stdin:1: there is no session $s\"}\n"
            "wfx: stdin:1: there is no session $s\n= 2\n");
}

}  // namespace
}  // namespace client
