// What `wfx doctor` finds in an installation, and what the service logs during a call.
#include <algorithm>
#include <sstream>

#include "tests/system/manager.h"

namespace system_test {
namespace {

class Doctor : public ManagerTest {
 protected:
  // What it prints, with "@" for the home, and its exit status.
  std::string Examine(const Words& options = {}) {
    Words words = {"doctor"};
    words.insert(words.end(), options.begin(), options.end());
    const Finished finished = Wfx(words);
    std::string text = finished.out + finished.err + "= " + std::to_string(finished.exit_status);
    for (std::size_t at; (at = text.find(home().string())) != text.npos;) {
      text = text.substr(0, at) + "@" + text.substr(at + home().string().size());
    }
    return text;
  }

  static std::string Installed(const std::string& kind) {
    return "ok       registration  " + kind +
           "\nok       program       @/bin/TzWirefoxService\n"
           "ok       settings      @/bin/wfxusb.ini\n";
  }
};
constexpr char kImages[] = "ok       images        3 files, as the settings name them\n";
constexpr char kPlain[] = "a plain server, which its first client starts";
constexpr char kBench[] =
    "ok       bus           the bench that WIREFOX_BUS names, sim:@/bench.socket\n";
constexpr char kNoLog[] =
    "ok       log           the service writes no log: its settings have LOGLEVEL=0\n";
constexpr char kStopped[] =
    "ok       service       does not run, and was not asked; its first client starts it, as `wfx "
    "doctor --start` does\n";
constexpr char kAnswers[] =
    "ok       service       answers\n"
    "ok       versions      wfx " WIREFOX_VERSION ", the service's interface 2.0.2.0\n";

TEST_F(Doctor, NamesThePartThatIsMissingAndStartsNothingUnasked) {
  ASSERT_NO_FATAL_FAILURE(Install());
  EXPECT_EQ(Examine(),
            "problem  registration  the service is not registered on this computer; run "
            "`TzWirefoxService -RegServer` once (0x80040154)\n= 3");
  ASSERT_NO_FATAL_FAILURE(Register());
  const std::string begin = Installed(kPlain) + kImages;
  EXPECT_EQ(Examine(),
            begin +
                "problem  bus           no bench listens at @/bench.socket, which WIREFOX_BUS "
                "names; start `wfxsim --socket @/bench.socket`\n" +
                kNoLog + kStopped + "= 2");
  EXPECT_TRUE(ServicePids().empty());
  ASSERT_NO_FATAL_FAILURE(StartBench());
  for (const std::string& probe : kAllProbes) Ctl({"unplug", probe});
  EXPECT_EQ(Examine(), begin + kBench + kNoLog + kStopped + "= 0");
  EXPECT_EQ(Examine({"--start"}),
            begin + kBench + kNoLog + kAnswers +
                "warning  probes        no probe of the bench at @/bench.socket is ready; `wfxsim "
                "ctl --socket @/bench.socket list` shows what is plugged in, @/bin/wfxusb.ini must "
                "list its USB ids, and a service that other clients keep has the WIREFOX_BUS of "
                "the first\n= 1");
  std::filesystem::remove(service_path());
  EXPECT_TRUE(Examine({"--start"}).ends_with(std::string(kNoLog) + "= 3"));
}

TEST_F(Doctor, ShowsWhatTheProbesOfARunningServiceWaitFor) {
  const std::string log = (home() / "service.log").string();
  ASSERT_NO_FATAL_FAILURE(Begin("LOGFILE=" + log + "\r\nLOGLEVEL=1\r\n"));
  const std::string logged =
      std::string(kBench) + "ok       log           @/service.log, LOGLEVEL=1\n" + kAnswers;
  const std::string others = "ok       probes        EVK0001 is ready, in mode IDLE\n";
  const std::string last = "ok       probes        WFX0002 is ready, in mode IDLE\n";
  EXPECT_EQ(Examine(), Installed(kPlain) + kImages + logged + others +
                           "ok       probes        WFX0001 is ready, in mode IDLE\n" + last +
                           "= 0");
  std::filesystem::remove(bin / "wirefox.fpga");
  for (const char* what : {"unplug", "plug"}) ASSERT_EQ(Ctl({what, "WFX0001"}).exit_status, 0);
  ASSERT_TRUE(
      WaitUntil([&] { return ReadFile(log).find("ProgramFPGA]Error") != std::string::npos; }));
  const std::string missing =
      "@/bin/wirefox.fpga, the FPGA image that 0F0F_1002_FPGA names, is missing; put it there";
  EXPECT_EQ(Examine(),
            Installed(kPlain) + "problem  images        " + missing +
                "\nok       images        2 files, as the settings name them\n" + logged + others +
                last +
                "warning  probes        wfx0001 is not ready: it waits for the FPGA image, file "
                "wirefox.fpga (error 1); see that the file is the right one, then unplug the probe "
                "and plug it in again\n= 2");
  const std::string json = Examine({"--json"});
  EXPECT_TRUE(json.starts_with(R"({"error":"SUCCESS","state":"problem","checks":[{"check":)"
                               R"("registration","state":"ok","text":"a plain server,)"))
      << json;
  EXPECT_NE(json.find(R"({"check":"images","state":"problem","text":")" + missing + "\"}"),
            std::string::npos)
      << json;
}

TEST_F(Doctor, AsksTheManagerOfAServiceForItsState) {
  ActivatingBus bus(home(), environment, true);
  environment[geteuid() == 0 ? "DBUS_SYSTEM_BUS_ADDRESS" : "DBUS_SESSION_BUS_ADDRESS"] =
      bus.address();
  ASSERT_NO_FATAL_FAILURE(InstallService());
  const std::string file = home() / "systemd" / "TzWirefoxService.service";
  const std::string begin = Installed("the service TzWirefoxService of the system") + kImages +
                            "ok       bus           the one that the service was registered with; "
                            "this shell's WIREFOX_BUS does not reach it\n" +
                            kNoLog;
  bus.SetUnit({.state = "activating", .file = file});
  EXPECT_EQ(Examine(), begin +
                           "warning  service       is starting: it looks at every probe first, "
                           "which takes minutes when one is silent; look again, or unplug that "
                           "one\n= 1");
  bus.SetUnit({.state = "deactivating", .file = file});
  EXPECT_EQ(
      Examine(),
      begin + "warning  service       is stopping: it finishes a call first; look again\n= 1");
  bus.SetUnit({.state = "inactive", .file = file});
  EXPECT_EQ(Examine(), begin + kStopped + "= 0");
  const auto service = StartService();
  ASSERT_EQ(notify.Next(), kReady);
  ASSERT_TRUE(ProbesBecome(kAllProbes));
  bus.SetUnit({.state = "active", .file = file});
  EXPECT_TRUE(Examine().starts_with(begin + kAnswers)) << Examine();
}

TEST_F(Doctor, AVerboseCallShowsWhatTheServiceLoggedMeanwhile) {
  const std::string log = (home() / "service.log").string();
  ASSERT_NO_FATAL_FAILURE(Begin("LOGFILE=" + log + "\r\nLOGLEVEL=1\r\n"));
  const auto told = [&](const Words& arguments) {
    std::istringstream lines(Wfx(arguments).err);
    std::string told;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("log: ")) line.erase(5, line.find('[') - 5);  // the time
      told += line + "\n";
    }
    return told;
  };
  const std::string plain = told({"status", "nobody"});
  const std::string failure = "log: [CTzWirefox::GetWirefoxStatus]Error 5 occured.\n";
  EXPECT_EQ(told({"-v", "status", "nobody"}), plain + failure + failure);
  EXPECT_EQ(told({"--verbose", "hwrev", "WFX0001"}), "");
  // Each start empties the log, perhaps within the same second.
  holder.reset();
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(ServiceEnds());
    EXPECT_EQ(told({"-v", "status", "nobody"}), plain + failure + failure);
  }
  std::filesystem::remove(bin / "wfxusb.ini");
  EXPECT_EQ(told({"-v", "version"}),
            "wfx: the service's log is not known: its settings cannot be read\n");
}

}  // namespace
}  // namespace system_test
