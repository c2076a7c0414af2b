// The program as a service: under its manager, on the message bus, and as it is installed.
#include <unistd.h>

#include "tests/system/manager.h"

namespace system_test {
namespace {

namespace fs = std::filesystem;

class Service : public ManagerTest {
 protected:
  void Use(const ActivatingBus& bus) {
    environment["DBUS_SYSTEM_BUS_ADDRESS"] = bus.address();
    environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address();
  }
  // On the one bus where the account's systemd is.
  void UseForSystemd(const ActivatingBus& bus) {
    environment[geteuid() == 0 ? "DBUS_SYSTEM_BUS_ADDRESS" : "DBUS_SESSION_BUS_ADDRESS"] =
        bus.address();
  }
  fs::path unit_path() const { return home() / "systemd" / "TzWirefoxService.service"; }
};

TEST_F(Service, TellsItsManagerWhenItIsReadyAndStopsAfterTheCallInProgress) {
  const std::string log = home() / "service.log";
  ASSERT_NO_FATAL_FAILURE(InstallService(std::string("LOGFILE=") + log + "\nLOGLEVEL=8\n"));
  const auto service = StartService();
  ASSERT_EQ(notify.Next(), kReady);
  EXPECT_EQ(Wfx({"version"}).exit_status, 0);
  EXPECT_EQ(ServicePids(), std::vector<pid_t>{service->id()}) << "it outlives its clients";
  ASSERT_TRUE(ProbesBecome(kAllProbes));
  const auto client = StartCallThatStays(log);
  EXPECT_TRUE(notify.IsEmpty());
  service->Terminate();
  EXPECT_EQ(notify.Next(), kStopping);
  service->Terminate();
  EXPECT_EQ(client->Wait(), 16) << "the call has its own outcome";
  EXPECT_EQ(service->Wait(), 0);
  EXPECT_TRUE(notify.IsEmpty());
  EXPECT_EQ(ReadFile(home() / "service.err"),
            "TzWirefoxService: Service started\nTzWirefoxService: Service stopped\n");
}

TEST_F(Service, OnceStoppedItDoesNotWaitForADownload) {
  const std::string log = home() / "service.log";
  ASSERT_NO_FATAL_FAILURE(InstallService(std::string("LOGFILE=") + log + "\nLOGLEVEL=9\n"));
  EXPECT_EQ(Ctl({"unplug", "WFX0001"}).exit_status, 0);
  const auto service = StartService();
  ASSERT_EQ(notify.Next(), kReady);
  EXPECT_EQ(Ctl({"fault", "WFX0001", "silent", "--endpoint", "0", "--request", "0xA0"}).exit_status,
            0);
  EXPECT_EQ(Ctl({"plug", "WFX0001"}).exit_status, 0);
  ASSERT_TRUE(WaitUntil(
      [&] { return ReadFile(log).find("Programming KX7 of device") != std::string::npos; }));
  service->Terminate();
  EXPECT_EQ(notify.Next(), kStopping);
  EXPECT_EQ(service->Wait(), 0);
  // The probe is silent; its download would have told so.
  EXPECT_EQ(ReadFile(log).find("Error"), std::string::npos);
}

TEST_F(Service, StartedByAnyoneElseItRefuses) {
  ASSERT_NO_FATAL_FAILURE(InstallService());
  EXPECT_EQ(Run({service_path()}).exit_status, 1063 % 256);
  // What a shell that systemd has started hands on.
  environment["INVOCATION_ID"] = "0123456789abcdef0123456789abcdef";
  EXPECT_EQ(Run({service_path()}).exit_status, 1063 % 256);
  environment["NOTIFY_SOCKET"] = home() / "notify";
  environment["SYSTEMD_EXEC_PID"] = std::to_string(getpid());
  EXPECT_EQ(Run({service_path()}).exit_status, 1063 % 256);
  EXPECT_EQ(Wfx({"version"}).exit_status, 3) << "no bus starts it";
}

// Which of the buses has it depends on the account.
std::string Activation() {
  return geteuid() == 0 ? "dbus-1/system-services/org.wirefox.TzWirefox.service"
                        : "dbus-1/services/org.wirefox.TzWirefox.service";
}

TEST_F(Service, TheFilesAreThoseOfTheLatestRegistration) {
  using Names = std::vector<std::string>;
  ASSERT_NO_FATAL_FAILURE(Install());
  const auto files_after = [&](const std::string& option) {
    Command(option);
    return RegisteredFiles();
  };
  const auto plain = files_after("-RegServer");
  const auto service = files_after("-Service");
  EXPECT_EQ(files_after("-Service"), service);
  EXPECT_EQ(files_after("-RegServer"), plain);
  EXPECT_EQ(files_after("-Service"), service);
  const auto names = [](const auto& files) {
    Names names;
    for (const auto& [name, text] : files) names.push_back(name);
    return names;
  };
  EXPECT_EQ(names(plain), Names{"dbus-1/services/org.wirefox.TzWirefox.service"});
  Names expected = {Activation(), "systemd/TzWirefoxService.service"};
  if (geteuid() == 0) {
    expected.insert(expected.begin() + 1, "dbus-1/system.d/org.wirefox.TzWirefox.conf");
  }
  EXPECT_EQ(names(service), expected);
  environment["XDG_RUNTIME_DIR"] = home();  // which an account's manager must have
  const Finished verified = Run({"/usr/bin/systemd-analyze", geteuid() == 0 ? "--system" : "--user",
                                 "verify", "--man=no", "--recursive-errors=no", unit_path()});
  EXPECT_EQ(verified.exit_status, 0) << verified.err;
  EXPECT_EQ(verified.err, "");

  // What an interrupted registration leaves goes as well.
  fs::remove(home() / Activation());
  WriteFile(unit_path().string() + ".new", "[Un");
  EXPECT_EQ(names(files_after("-UnregServer")), Names{});
  Command("-RegServer");
  EXPECT_EQ(names(files_after("-UnregServer")), Names{});
}

TEST_F(Service, UnregistrationStopsWhatRuns) {
  ActivatingBus bus(home(), environment, true);
  UseForSystemd(bus);
  ASSERT_NO_FATAL_FAILURE(InstallService());
  const auto service = StartService();
  ASSERT_EQ(notify.Next(), kReady);
  bus.SetUnit({.state = "active", .file = unit_path(), .stop = [&] { service->Terminate(); }});
  const auto hold = Hold();
  Command("-UnregServer");
  EXPECT_EQ(notify.Next(), kStopping);
  EXPECT_EQ(service->Wait(), 0);
  EXPECT_EQ(hold->Wait(), 3);
  EXPECT_TRUE(RegisteredFiles().empty());
  EXPECT_EQ(bus.TakeCalls(),
            "Reload\nGetUnit TzWirefoxService.service\n"
            "StopUnit TzWirefoxService.service replace\nReload\n");
}

TEST_F(Service, UnregistrationTellsOnlyOfAStopThatWasRefused) {
  const std::string own = unit_path();
  const std::string others = "/etc/systemd/system/TzWirefoxService.service";
  const std::string asked = "GetUnit TzWirefoxService.service\nReload\n";
  const std::string stopped =
      "GetUnit TzWirefoxService.service\nStopUnit TzWirefoxService.service replace\nReload\n";
  const std::string could_not = "TzWirefoxService: Could not stop service\n";
  const struct {
    const char* name;
    Unit unit;
    std::string calls;
    std::string told;
  } kCases[] = {
      {"not loaded", {}, asked, ""},
      {"stopped", {.state = "inactive", .file = own}, asked, ""},
      {"failed", {.state = "failed", .file = own}, asked, ""},
      {"stopping", {.state = "deactivating", .file = own}, asked, ""},
      {"starting", {.state = "activating", .file = own}, asked, could_not},
      {"reloading", {.state = "reloading", .file = own}, stopped, ""},
      {"refused", {.state = "active", .file = own, .refuses_stop = true}, stopped, could_not},
      {"another installation's", {.state = "active", .file = others}, asked, ""},
      {"linked", {.state = "active", .file = home() / "link"}, stopped, ""},
      {"no answer", {.state = "active", .file = own, .is_silent = true}, asked, ""},
  };
  ActivatingBus bus(home(), environment, true);
  UseForSystemd(bus);
  fs::create_symlink(own, home() / "link");
  ASSERT_NO_FATAL_FAILURE(Install());
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    bus.SetUnit({});
    environment.erase("SYSTEMD_BUS_TIMEOUT");
    Command("-Service");
    EXPECT_EQ(bus.TakeCalls(), "Reload\n");
    bus.SetUnit(test.unit);
    // The patience of the library's calls.
    if (test.unit.is_silent) environment["SYSTEMD_BUS_TIMEOUT"] = "1s";
    const Finished finished = Run({service_path(), "-UnregServer"});
    EXPECT_EQ(finished.exit_status, 0);
    EXPECT_EQ(finished.err, test.told);
    EXPECT_EQ(bus.TakeCalls(), test.calls);
    EXPECT_TRUE(RegisteredFiles().empty());
  }
}

class OnTheBus : public Service {
 protected:
  std::string GetVersion() {
    return Run({"/usr/bin/busctl", "--user", "call", "org.wirefox.TzWirefox",
                "/org/wirefox/TzWirefox", "org.wirefox.ITzWirefox_v1", "GetVersion"})
        .out;
  }
};

TEST_F(OnTheBus, AClientHasSystemdStartTheServiceThroughTheBus) {
  ASSERT_NO_FATAL_FAILURE(InstallService());
  ActivatingBus bus(home(), environment, true);
  Use(bus);
  const auto client = StartWfx({"version"});
  ASSERT_EQ(bus.NextRequest(), "TzWirefoxService.service") << ReadFile(home() / "bus.err");
  const auto service = StartService();
  EXPECT_EQ(notify.Next(), kReady);
  EXPECT_EQ(client->Wait(), 0);
  EXPECT_EQ(GetVersion(), "i 33554944\n");
  service->Terminate();
  EXPECT_EQ(service->Wait(), 0);
}

TEST_F(OnTheBus, TheBusStartsAPlainServerWhateverItsPathHolds) {
  bin = home() / "it's \"5%d\" $HOME a=b\\";
  ASSERT_NO_FATAL_FAILURE(Install());
  ASSERT_NO_FATAL_FAILURE(Command("-RegServer"));
  EXPECT_EQ(Wfx({"version"}).exit_status, 0) << "its own clients start it as well";
  ASSERT_TRUE(ServiceEnds());
  ActivatingBus bus(home(), environment, false);
  Use(bus);
  EXPECT_EQ(GetVersion(), "i 33554944\n") << ReadFile(home() / "bus.err");
  EXPECT_TRUE(ServiceEnds());
  Command("-UnregServer");
  EXPECT_TRUE(RegisteredFiles().empty());
}

}  // namespace
}  // namespace system_test
