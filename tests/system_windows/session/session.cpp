#include "tests/system_windows/session/session.h"

#include <algorithm>
#include <fstream>

#include "tests/system_windows/programs.h"

namespace system_windows {
namespace {

namespace fs = std::filesystem;

// A device event has to be picked up within 2 s, and the service loads other probes in the
// meantime.
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

void Session::SetUp() {
  ASSERT_TRUE(DriverIsInstalled());
  ASSERT_TRUE(DevicesBecome(0));
}

void Session::InstallFiles(const std::string& settings) {
  Install();
  const fs::path source = WIREFOX_SOURCE_DIR;
  for (const char* image : {"wirefox.hex", "evk.hex", "wirefox.fpga"}) {
    fs::copy_file(source / "firmware" / image, Path(image));
  }
  std::ofstream(Path("wfxusb.ini"), std::ios::binary)
      << settings << ReadFile(source / "service" / "wfxusb.ini");
}

void Session::InstallAll(const std::string& settings) {
  InstallFiles(settings);
  ASSERT_NO_FATAL_FAILURE(Register("-RegServer"));
  ASSERT_NO_FATAL_FAILURE(StartBench());
}

void Session::StartBench() {
  bench = std::make_unique<Simulator>(kBench);
  ASSERT_TRUE(bench->ready());
  ASSERT_TRUE(DevicesBecome(3));
}

nlohmann::json Session::Json(const std::string& arguments) {
  const Finished finished = Wfx(std::string("--json ") + arguments);
  EXPECT_EQ(finished.exit_status, 0) << arguments << ": " << finished.out;
  EXPECT_EQ(std::ranges::count(finished.out, '\n'), 1) << finished.out;
  return nlohmann::json::parse(finished.out, nullptr, false);
}

std::unique_ptr<Client> Session::Hold() {
  auto hold = std::make_unique<Client>("hold");
  EXPECT_EQ(hold->ReadLine(), "holding TzWirefoxService; interrupt (Ctrl-C) to let it go");
  return hold;
}

std::unique_ptr<Program> Session::StartScript(const std::string& lines) {
  const std::string path = Path("client.script");
  std::ofstream(path, std::ios::binary) << lines;
  return std::make_unique<Program>("wfx.exe",
                                   std::string("script --json \"").append(path).append("\""));
}

testing::AssertionResult Session::FileBecomes(const std::string& content) {
  return FileBecomesOneOf({content});
}

testing::AssertionResult Session::AllProbesCome() {
  return FileBecomesOneOf(
      {"EVK0001\r\nWFX0001\r\nWFX0002\r\n", "EVK0001\r\nWFX0002\r\nWFX0001\r\n"});
}

testing::AssertionResult Session::FileBecomesOneOf(const Words& contents) const {
  const fs::path path = program().parent_path().parent_path() / "wfx.log";
  std::string seen;
  if (WaitUntil([&] {
        seen = ReadFile(path);
        return std::ranges::count(contents, seen) != 0;
      })) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "the file is " << testing::PrintToString(seen);
}

std::string Session::Path(const std::string& name) const {
  return (program().parent_path() / name).string();
}

}  // namespace system_windows
