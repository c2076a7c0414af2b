#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

#include "tests/system/harness.h"

namespace system_test {

namespace fs = std::filesystem;

SystemTest::SystemTest() {
  // A path that is short: the sockets below it have to fit into a socket address.
  std::string pattern = "/tmp/wirefox.XXXXXX";
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  home_ = pattern;
  bin = home_ / "bin";
  environment["WIREFOX_HOME"] = home_;
  environment["WIREFOX_BUS"] = std::string("sim:") + (home_ / "bench.socket").string();
  // Root's service would look for the machine's bus.
  environment["DBUS_SYSTEM_BUS_ADDRESS"] = std::string("unix:path=") + (home_ / "no-bus").string();
  // The sanitizers' settings reach the programs under test, nothing else does: no bus of the
  // machine, no locale.
  for (const char* name : {"PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
    if (const char* value = getenv(name)) environment[name] = value;
  }
}

SystemTest::~SystemTest() {
  holder.reset();
  bench.reset();
  for (const pid_t pid : ServicePids()) kill(pid, SIGKILL);
  ServiceEnds();
  std::error_code ignored;
  fs::remove_all(home_, ignored);
}

fs::path SystemTest::Program(const std::string& name) { return fs::path(WIREFOX_BIN_DIR) / name; }

fs::path SystemTest::devices_changed_path() const { return home_ / "tmp" / "wfx.log"; }

void SystemTest::Install(const std::string& settings) {
  fs::create_directories(bin);
  fs::copy_file(Program("TzWirefoxService"), service_path());
  CopyImagesAndSettings(settings);
}

void SystemTest::Register() {
  const Finished registration = Run({service_path(), "-RegServer"});
  ASSERT_EQ(registration.exit_status, 0) << registration.err;
}

void SystemTest::StartBench() {
  Words command = {Program("wfxsim"), "--socket", home_ / "bench.socket"};
  if (bench_options.empty()) bench_options = {"--pcap", capture_path()};
  command.insert(command.end(), bench_options.begin(), bench_options.end());
  bench = std::make_unique<Process>(command, Around(""));
  ASSERT_TRUE(bench->ReadLine()) << "the bench does not say that it is ready";
}

Finished SystemTest::Ctl(const Words& arguments) {
  Words command = {Program("wfxsim"), "ctl", "--socket", home_ / "bench.socket"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return Run(command);
}

std::unique_ptr<Client> SystemTest::StartCallThatStays(const fs::path& log) {
  Json({"mode", "WFX0001", "JTAG"});
  Json({"targets", "WFX0001"});
  EXPECT_EQ(Ctl({"fault", "WFX0001", "silent", "--endpoint", "0x84"}).exit_status, 0);
  Json({"timeout", "WFX0001", "0x84", "1500"});
  auto client = StartWfx({"jtag", "WFX0001", "0000"});
  // No other transfer has eight cycles.
  EXPECT_TRUE(WaitUntil([&] {
    return ReadFile(log).find("[CTzDevice::JTAG_BufferedIo]bitcount=8,") != std::string::npos;
  })) << "the call does not reach the probe's object";
  return client;
}

std::string SystemTest::Capture(const std::string& filter, const Words& fields,
                                const Words& options) {
  if (bench->IsRunning()) {
    EXPECT_EQ(Ctl({"stop"}).exit_status, 0);
    EXPECT_EQ(bench->Wait(), 0);
  }
  environment["HOME"] = home_;
  Words command = {"/usr/bin/tshark", "-n", "-r", capture_path(), "-Y", filter};
  command.insert(command.end(), options.begin(), options.end());
  if (!fields.empty()) command.insert(command.end(), {"-T", "fields", "-E", "separator=/s"});
  for (const std::string& field : fields) command.insert(command.end(), {"-e", field});
  const Finished told = Run(command);
  EXPECT_EQ(told.exit_status, 0) << told.err;
  return told.out;
}

std::string SystemTest::StartMessageBus() {
  message_bus = std::make_unique<Process>(
      Words{"/usr/bin/dbus-daemon", "--session", "--nofork", "--print-address"},
      support::Surroundings{.environment = environment, .error_file = home_ / "dbus.err"});
  const auto address = message_bus->ReadLine();
  EXPECT_TRUE(address);
  return environment["DBUS_SESSION_BUS_ADDRESS"] = address.value_or("");
}

std::vector<pid_t> SystemTest::ServicePids() const {
  std::vector<pid_t> pids;
  std::error_code problem;
  for (const auto& entry : fs::directory_iterator("/proc", problem)) {
    const std::string name = entry.path().filename();
    if (!std::ranges::all_of(name, [](char c) { return c >= '0' && c <= '9'; })) continue;
    if (fs::read_symlink(entry.path() / "exe", problem) == service_path()) {
      pids.push_back(static_cast<pid_t>(std::stol(name)));
    }
  }
  return pids;
}

bool SystemTest::ServiceEnds() {
  return WaitUntil([this] { return ServicePids().empty(); });
}

}  // namespace system_test
