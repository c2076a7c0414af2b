// The service on a bench of probes that the machine sees, and the programs that the test runs on
// them.
#pragma once

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/system_windows/installation.h"
#include "tests/system_windows/virtual_bus/simulator.h"

namespace system_windows {

using Words = std::vector<std::string>;

// A program that runs until it is interrupted, which is done at its end.
class Client : public Program {
 public:
  explicit Client(const std::string& arguments) : Program("wfx.exe", arguments) {}
  ~Client() { EXPECT_EQ(Interrupt(), 0); }
};

class Session : public Installation {
 protected:
  // The service ends by itself with its last client. One that was killed would stay in the system's
  // list of servers, where the clients of the next test find it.
  ~Session() override { EXPECT_TRUE(ServiceProcessesEnd()); }

  void SetUp() override;  // the driver is there, and no probe of an earlier test

  // The program as it was built, with the images and the settings that are shipped. `settings`
  // stands before these; the first line of a key counts.
  void InstallFiles(const std::string& settings = "");

  // All of it: registered, and then the probes come, which the registration would configure
  // already.
  void InstallAll(const std::string& settings = "");

  // The default bench, whose fresh probes take longer to come back.
  void StartBench();

  static Finished Wfx(const std::string& arguments) { return RunToEnd("wfx.exe", arguments); }
  // The one line of JSON that a successful command prints.
  nlohmann::json Json(const std::string& arguments);
  // A client that keeps the service; it holds its object when this returns.
  std::unique_ptr<Client> Hold();

  // Runs the lines as one client; the JSON of each is one line of the program's output.
  std::unique_ptr<Program> StartScript(const std::string& lines);

  // Waits for the devices-changed file, which the service writes without being asked.
  testing::AssertionResult FileBecomes(const std::string& content);

  // The same for all probes of the bench. Either Wirefox may be the first: the fresh one goes away
  // while the service goes through the list, and then the next one waits for the next time.
  testing::AssertionResult AllProbesCome();

  std::string Path(const std::string& name) const;  // in the service's folder

  std::unique_ptr<Simulator> bench;

 private:
  testing::AssertionResult FileBecomesOneOf(const Words& contents) const;
};

}  // namespace system_windows
