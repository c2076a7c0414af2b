// An installation of its own for each test: programs, settings, images, bench, and the clients that
// the test runs on them.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/system/process.h"

namespace system_test {

using Words = std::vector<std::string>;

struct Finished {
  int exit_status;
  std::string out;
  std::string err;
};

std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& content);

// Registered and with the default bench running, unless a test does either by itself.
class SystemTest : public testing::Test {
 protected:
  SystemTest();
  ~SystemTest() override;  // ends every process of the installation

  // Puts the service with its settings into the installation's bin folder. `settings` stands before
  // those that are shipped; the first line of a key counts.
  void Install(const std::string& settings = "");
  void Register();
  void StartBench();
  void InstallAll(const std::string& settings = "");  // all three

  // Runs a program to its end.
  Finished Run(const Words& command, const std::string& input = "");
  Finished Wfx(const Words& arguments, const std::string& input = "");
  Finished Ctl(const Words& arguments);

  // The one line of JSON that a successful command prints.
  nlohmann::json Json(const Words& arguments);

  // A client that runs on while the test does other things.
  std::unique_ptr<Process> StartWfx(const Words& arguments, const std::string& input = "");

  // Keeps the service alive until the process ends; comes back once the client holds its object.
  std::unique_ptr<Process> Hold();

  // A JTAG call to WFX0001 that stays in the service, until its endpoint's time is over: the probe
  // is silent. The service writes `log`, at LOGLEVEL 8. All probes are there.
  std::unique_ptr<Process> StartCallThatStays(const std::filesystem::path& log);

  // Waits until the probes that clients see are these, in any order.
  testing::AssertionResult ProbesBecome(Words names);

  // The processes of this installation's service, whoever started them.
  std::vector<pid_t> ServicePids() const;
  bool ServiceEnds();

  std::filesystem::path home() const { return home_; }
  std::filesystem::path service_path() const { return bin / "TzWirefoxService"; }
  std::filesystem::path capture_path() const { return home_ / "usb.pcap"; }
  std::filesystem::path devices_changed_path() const { return home_ / "tmp" / "wfx.log"; }

  Environment environment;
  std::unique_ptr<Process> bench;
  std::filesystem::path bin;  // where the service is installed to

 private:
  std::string WriteInput(const std::string& input);
  std::string NextErrorFile() { return home_ / ("stderr." + std::to_string(++error_files_)); }

  std::filesystem::path home_;
  int error_files_ = 0;
  int input_files_ = 0;
};

}  // namespace system_test
