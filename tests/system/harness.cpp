#include "tests/system/harness.h"

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace system_test {

namespace fs = std::filesystem;

namespace {

const fs::path kBin = WIREFOX_BIN_DIR;
const fs::path kSource = WIREFOX_SOURCE_DIR;

// A path that is short: the sockets below it have to fit into a socket address.
fs::path MakeHome() {
  std::string pattern = "/tmp/wirefox.XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  return pattern;
}

}  // namespace

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const fs::path& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
}

SystemTest::SystemTest() : home_(MakeHome()) {
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
  bench.reset();
  for (const pid_t pid : ServicePids()) kill(pid, SIGKILL);
  ServiceEnds();
  std::error_code ignored;
  fs::remove_all(home_, ignored);
}

void SystemTest::Install(const std::string& settings) {
  fs::create_directories(bin);
  fs::copy_file(kBin / "TzWirefoxService", service_path());
  for (const char* image : {"wirefox.hex", "evk.hex", "wirefox.fpga"}) {
    fs::copy_file(kSource / "firmware" / image, bin / image);
  }
  WriteFile(bin / "wfxusb.ini", settings + ReadFile(kSource / "service" / "wfxusb.ini"));
}

void SystemTest::Register() {
  const Finished registration = Run({service_path(), "-RegServer"});
  ASSERT_EQ(registration.exit_status, 0) << registration.err;
}

void SystemTest::StartBench() {
  bench = std::make_unique<Process>(
      Words{kBin / "wfxsim", "--socket", home_ / "bench.socket", "--pcap", capture_path()},
      environment, NextErrorFile());
  ASSERT_TRUE(bench->ReadLine()) << "the bench does not say that it is ready";
}

void SystemTest::InstallAll(const std::string& settings) {
  ASSERT_NO_FATAL_FAILURE(Install(settings));
  // The bench comes after the registration, which would configure the probes on it already.
  ASSERT_NO_FATAL_FAILURE(Register());
  ASSERT_NO_FATAL_FAILURE(StartBench());
}

std::string SystemTest::WriteInput(const std::string& input) {
  if (input.empty()) return "/dev/null";
  const fs::path path = home_ / ("stdin." + std::to_string(++input_files_));
  WriteFile(path, input);
  return path;
}

Finished SystemTest::Run(const Words& command, const std::string& input) {
  const std::string error_file = NextErrorFile();
  Process process(command, environment, error_file, WriteInput(input));
  Finished finished;
  finished.out = process.ReadAll();
  finished.exit_status = process.Wait();
  finished.err = ReadFile(error_file);
  return finished;
}

Finished SystemTest::Wfx(const Words& arguments, const std::string& input) {
  Words command = {kBin / "wfx"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return Run(command, input);
}

Finished SystemTest::Ctl(const Words& arguments) {
  Words command = {kBin / "wfxsim", "ctl", "--socket", home_ / "bench.socket"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return Run(command);
}

nlohmann::json SystemTest::Json(const Words& arguments) {
  Words words = {"--json"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const Finished finished = Wfx(words);
  EXPECT_EQ(finished.exit_status, 0) << arguments[0] << ": " << finished.err;
  EXPECT_EQ(finished.err, "");
  EXPECT_EQ(std::ranges::count(finished.out, '\n'), 1) << finished.out;
  return nlohmann::json::parse(finished.out, nullptr, false);
}

std::unique_ptr<Process> SystemTest::StartWfx(const Words& arguments, const std::string& input) {
  Words command = {kBin / "wfx"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return std::make_unique<Process>(command, environment, NextErrorFile(), WriteInput(input));
}

std::unique_ptr<Process> SystemTest::Hold() {
  auto hold = StartWfx({"hold"});
  EXPECT_TRUE(hold->ReadLine()) << "the client does not get its object";
  return hold;
}

std::unique_ptr<Process> SystemTest::StartCallThatStays(const fs::path& log) {
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

testing::AssertionResult SystemTest::ProbesBecome(Words names) {
  std::ranges::sort(names);
  Words seen;
  const bool become = WaitUntil([&] {
    const Finished finished = Wfx({"list", "--json"});
    if (finished.exit_status != 0) return false;
    seen = nlohmann::json::parse(finished.out)["wirefoxs"].get<Words>();
    std::ranges::sort(seen);
    return seen == names;
  });
  if (become) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "the probes are " << testing::PrintToString(seen);
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
