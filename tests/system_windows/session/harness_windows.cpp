#include "tests/system/harness.h"
#include "tests/system_windows/virtual_bus/driver.h"

namespace system_test {
namespace {

namespace fs = std::filesystem;

// The default bench. A device event has to be picked up within 2 s, and the service loads other
// probes in the meantime: the fresh probe takes longer to come back.
constexpr char kBench[] = R"({
  "return_ms": 1500,
  "probes": [
    {"name": "WFX0001", "kind": "wirefox", "state": "fresh",
     "jtag": {"taps": [{"idcode": "0x1BA01477", "ir_length": 4},
                       {"idcode": "0x0684617F", "ir_length": 5}]}},
    {"name": "WFX0002", "kind": "wirefox",
     "swd": {"idcode": "0x2BA01477", "memory": {"address": "0x20000000", "size": "0x10000"}},
     "i2c": {"address": "0x50", "size": 256}},
    {"name": "EVK0001", "kind": "evk",
     "swd": {"idcode": "0x2BA01477", "memory": {"address": "0x20000000", "size": "0x10000"}}}
  ]
})";

}  // namespace

SystemTest::SystemTest() : bin(fs::temp_directory_path() / "wirefox"), home_(bin) {
  EXPECT_TRUE(system_windows::DriverIsInstalled());
  EXPECT_TRUE(system_windows::DevicesBecome(0)) << "probes of an earlier test";
}

// The service ends by itself with its last client. One that was killed would stay in the system's
// list of servers, where the clients of the next test find it.
SystemTest::~SystemTest() {
  holder.reset();
  EXPECT_TRUE(ServiceEnds());
}

fs::path SystemTest::Program(const std::string& name) { return system_windows::Program(name); }

fs::path SystemTest::devices_changed_path() const { return bin.parent_path() / "wfx.log"; }

void SystemTest::Install(const std::string& settings) {
  Installation::Install();
  CopyImagesAndSettings(settings);
}

void SystemTest::Register() { Installation::Register("-RegServer"); }

void SystemTest::StartBench() {
  const fs::path file = home_ / "bench.json";
  WriteFile(file, kBench);
  bench = std::make_unique<Process>(Words{Program("wfxsim").string(), "--bench", file.string()});
  ASSERT_EQ(bench->ReadLine(), R"(wfxsim: listening on \\.\pipe\wfxsim)");
  ASSERT_TRUE(system_windows::DevicesBecome(3));
}

Finished SystemTest::Ctl(const Words& arguments) {
  Words command = {Program("wfxsim").string(), "ctl"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return Run(command);
}

bool SystemTest::ServiceEnds() { return ServiceProcessesEnd(); }

}  // namespace system_test
