#include "tests/system/harness.h"

#include <algorithm>
#include <sstream>

namespace system_test {

namespace fs = std::filesystem;

namespace {

Words Joined(Words words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

}  // namespace

void SystemTest::CopyImagesAndSettings(const std::string& settings) {
  const fs::path source = WIREFOX_SOURCE_DIR;
  for (const char* image : {"wirefox.hex", "evk.hex", "wirefox.fpga"}) {
    fs::copy_file(source / "firmware" / image, bin / image);
  }
  WriteFile(bin / "wfxusb.ini", settings + ReadFile(source / "service" / "wfxusb.ini"));
}

void SystemTest::InstallAll(const std::string& settings) {
  ASSERT_NO_FATAL_FAILURE(Install(settings));
  // The bench comes after the registration, which would configure the probes on it already.
  ASSERT_NO_FATAL_FAILURE(Register());
  ASSERT_NO_FATAL_FAILURE(StartBench());
}

void SystemTest::Begin(const std::string& settings) {
  ASSERT_NO_FATAL_FAILURE(InstallAll(settings));
  holder = Hold();
  ASSERT_TRUE(ProbesBecome(kAllProbes));
}

support::Surroundings SystemTest::Around(const std::string& input) {
  const std::string number = std::to_string(++files_);
  support::Surroundings around;
  if (!environment.empty()) around.environment = environment;
  around.error_file = (home_ / ("stderr." + number)).string();
  if (input.empty()) return around;
  around.input_file = (home_ / ("stdin." + number)).string();
  WriteFile(around.input_file, input);
  return around;
}

Finished SystemTest::Run(const Words& command, const std::string& input) {
  return support::RunToEnd(command, Around(input));
}

Finished SystemTest::Wfx(const Words& arguments, const std::string& input) {
  return Run(Joined({Program("wfx").string()}, arguments), input);
}

nlohmann::json SystemTest::Json(const Words& arguments) {
  const Finished finished = Wfx(Joined({"--json"}, arguments));
  EXPECT_EQ(finished.exit_status, 0) << arguments[0] << ": " << finished.err;
  EXPECT_EQ(finished.err, "");
  EXPECT_EQ(std::ranges::count(finished.out, '\n'), 1) << finished.out;
  return nlohmann::json::parse(finished.out, nullptr, false);
}

std::vector<nlohmann::json> SystemTest::RunScript(const std::string& lines) {
  const Finished finished = Wfx({"script", "-", "--json"}, lines);
  EXPECT_EQ(finished.exit_status, 0) << finished.err;
  std::vector<nlohmann::json> results;
  std::istringstream text(finished.out);
  for (std::string line; std::getline(text, line);) {
    results.push_back(nlohmann::json::parse(line, nullptr, false));
  }
  return results;
}

std::unique_ptr<Client> SystemTest::StartWfx(const Words& arguments, const std::string& input) {
  return std::make_unique<Client>(Joined({Program("wfx").string()}, arguments), Around(input));
}

std::unique_ptr<Client> SystemTest::Hold() {
  auto hold = StartWfx({"hold"});
  EXPECT_EQ(hold->ReadLine(), "holding TzWirefoxService; interrupt (Ctrl-C) to let it go");
  return hold;
}

testing::AssertionResult SystemTest::ProbesBecome(Words names) {
  std::ranges::sort(names);
  std::string file;
  if (WaitUntil([&] {
        Words seen;
        std::istringstream text(file = ReadFile(devices_changed_path()));
        for (std::string line; std::getline(text, line);) seen.push_back(line);
        std::ranges::sort(seen);
        return std::ranges::equal(
            seen, names, [](const auto& line, const auto& name) { return line == name + "\r"; });
      })) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "the file is " << testing::PrintToString(file);
}

}  // namespace system_test
