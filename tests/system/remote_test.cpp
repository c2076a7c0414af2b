// The service of another machine. What stands for ssh is a program that connects to the message bus
// of the test as ssh's remote end does to that of its machine.
#include <algorithm>
#include <sstream>

#include "tests/system/harness.h"

namespace system_test {
namespace {

class AnotherMachine : public SystemTest {
 protected:
  void SetUp() override {
    const std::string address = StartMessageBus();
    ASSERT_NO_FATAL_FAILURE(Begin());
    there_ = environment;
    WriteFile(home() / "ssh", "#!/bin/sh\necho \"$$ $@\" >>" + (home() / "ssh.log").string() +
                                  "\n[ $3 != gone ] || exit 255\nexec systemd-stdio-bridge -p '" +
                                  address + "'\n");
    std::filesystem::permissions(home() / "ssh", std::filesystem::perms::owner_all);
    // Here nothing is registered, and no bus is known.
    here_["WIREFOX_HOME"] = home() / "here";
    here_["PATH"] = home().string() + ":" + environment["PATH"];
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
      if (environment.contains(name)) here_[name] = environment[name];
    }
    environment = here_;
  }

  Finished WfxThere(const Words& arguments) {
    environment = there_;
    Finished finished = Wfx(arguments);
    environment = here_;
    return finished;
  }

  // Lines of machines stand in the order in which they answer.
  static Words Sorted(const std::string& text) {
    std::istringstream in(text);
    Words lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    std::ranges::sort(lines);
    return lines;
  }

  Environment there_;
  Environment here_;
};

TEST_F(AnotherMachine, OffersItsProbes) {
  EXPECT_EQ(Wfx({"-H", "me@lab:2222", "list"}).out, "EVK0001\nWFX0001\nWFX0002\n");
  const std::string call = ReadFile(home() / "ssh.log");
  EXPECT_EQ(call.substr(call.find(' ')), " -xT -p 2222 -- me@lab systemd-stdio-bridge\n");
  EXPECT_EQ(
      Sorted(Wfx({"-H", "a", "--host", "b", "list"}).out),
      (Words{"a: EVK0001", "a: WFX0001", "a: WFX0002", "b: EVK0001", "b: WFX0001", "b: WFX0002"}));
  EXPECT_EQ(
      Sorted(Wfx({"-H", "a", "--json", "-H", "b", "list"}).out),
      (Words{R"({"error":"SUCCESS","wirefoxs":["EVK0001","WFX0001","WFX0002"],"host":"a"})",
             R"({"error":"SUCCESS","wirefoxs":["EVK0001","WFX0001","WFX0002"],"host":"b"})"}));
  EXPECT_EQ(Wfx({"-H", "a", "-H", "gone", "list"}).exit_status, 3);
  auto watch = StartWfx({"-H", "a", "watch"});
  EXPECT_EQ(watch->ReadLine(), "3 probes: EVK0001, WFX0001, WFX0002");
  EXPECT_EQ(Ctl({"unplug", "EVK0001"}).exit_status, 0);
  EXPECT_EQ(watch->ReadLine(), "2 probes: WFX0001, WFX0002");
  watch->Interrupt();
  EXPECT_EQ(watch->Wait(), 0);
}

TEST_F(AnotherMachine, KnowsWhoHoldsATargetAndWhenThatOneHasGone) {
  EXPECT_EQ(Wfx({"-H", "lab", "mode", "WFX0001", "JTAG"}).exit_status, 0);
  EXPECT_EQ(Wfx({"-H", "lab", "jtag", "WFX0001", "f0f020"}).out,
            "00000000  fe 0f                                            ..\n");
  auto server = StartWfx({"-H", "lab", "serve", "WFX0001", "--xvc", "0"});
  ASSERT_TRUE(server->ReadLine());
  EXPECT_EQ(WfxThere({"jtag", "WFX0001", "f0f020"}).exit_status, 11);
  // What the owner is there is ssh's end of the connection.
  const std::string log = ReadFile(home() / "ssh.log");
  kill(std::stoi(log.substr(log.rfind('\n', log.size() - 2) + 1)), SIGKILL);
  EXPECT_TRUE(WaitUntil([&] { return WfxThere({"jtag", "WFX0001", "f0f020"}).exit_status == 0; }));
}

TEST_F(AnotherMachine, IsNamedWhenItCannotBeReached) {
  auto hold = StartWfx({"-H", "lab", "hold"});
  EXPECT_EQ(hold->ReadLine(), "holding TzWirefoxService; interrupt (Ctrl-C) to let it go");
  const std::string cannot = "wfx: cannot reach TzWirefoxService on lab: ";
  const std::string lost =
      cannot +
      "the connection was not made, or is lost; see whether ssh reaches that machine "
      "(0x800706ba)\n";
  holder->Kill();
  for (const pid_t pid : ServicePids()) kill(pid, SIGKILL);
  // Not with the next server, which would not know it.
  EXPECT_EQ(hold->Wait(), 3);
  ASSERT_TRUE(ServiceEnds());
  EXPECT_EQ(Wfx({"-H", "lab", "list"}).err, cannot + "it is not installed there (0x80040154)\n");
  WriteFile(home() / "ssh", "#!/bin/sh\nexit 255\n");
  // Neither ssh, a shell on its way, nor a container gets what is no machine's name.
  for (const char* name :
       {"a b", "a;b", "`b`", "me@-oNo", "@a", "me@", ":22", "a:", "a:b", "a:-1", "a/b", "::1"}) {
    const std::string there = std::string("wfx: cannot reach TzWirefoxService on ") + name;
    EXPECT_EQ(Wfx({"-H", name, "list"}).err,
              there + ": a machine is named [USER@]HOST[:PORT] (0x80070057)\n");
  }
  for (const char* name : {"me@[::1]:22", "[::1]", "D\\me@lab-2.x_y"}) {
    EXPECT_NE(Wfx({"-H", name, "list"}).err.find("0x800706ba"), std::string::npos) << name;
  }
  EXPECT_EQ(Wfx({"-H", "lab", "list"}).err, lost);
  EXPECT_EQ(Wfx({"-H", "a", "-H", "b", "list"}).exit_status, 3);
}

}  // namespace
}  // namespace system_test
