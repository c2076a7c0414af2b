// An installation of its own for each test: programs, settings, images, bench, and the clients that
// the test runs on them. The same on both hosts, but for what stands under one of them.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/process.h"
#ifdef _WIN32
#include "tests/system_windows/installation.h"
#endif

namespace system_test {

using support::Environment;
using support::Finished;
using support::Process;
using support::ReadFile;
using support::WaitUntil;
using support::Words;
using support::WriteFile;

#ifdef _WIN32
using Host = system_windows::Installation;
#else
using Host = testing::Test;
#endif

// A program that runs until it is interrupted, which is done at its end: a server keeps the object
// of a killed client for a while.
class Client : public Process {
 public:
  using Process::Process;
  ~Client() {
    Interrupt();
    Wait();
  }
};

// Nothing is there until a test asks for it.
class SystemTest : public Host {
 protected:
  SystemTest();
  ~SystemTest() override;  // ends every process of the installation

  // Puts the service with its settings into the installation's bin folder. `settings` stands before
  // those that are shipped; the first line of a key counts.
  void Install(const std::string& settings = "");
  void Register();
  void StartBench();
  void InstallAll(const std::string& settings = "");  // all three
  // The same, with a client that keeps the service, until the three probes of the bench are ready.
  void Begin(const std::string& settings = "");

  // Runs a program to its end.
  Finished Run(const Words& command, const std::string& input = "");
  Finished Wfx(const Words& arguments, const std::string& input = "");
  Finished Ctl(const Words& arguments);

  // The one line of JSON that a successful command prints.
  nlohmann::json Json(const Words& arguments);

  // Those of a script's lines.
  std::vector<nlohmann::json> RunScript(const std::string& lines);

  // A client that runs on while the test does other things.
  std::unique_ptr<Client> StartWfx(const Words& arguments, const std::string& input = "");

  // Keeps the service alive until the process ends; comes back once the client holds its object.
  std::unique_ptr<Client> Hold();

  // Waits until the devices-changed file, which the service writes without being asked, holds a
  // line for each of these probes and nothing else, in any order.
  testing::AssertionResult ProbesBecome(Words names);

  bool ServiceEnds();

  // The program of the build.
  static std::filesystem::path Program(const std::string& name);
  std::filesystem::path home() const { return home_; }
  std::filesystem::path devices_changed_path() const;

  std::unique_ptr<Process> bench;
  std::unique_ptr<Process> message_bus;
  std::unique_ptr<Client> holder;
  std::filesystem::path bin;  // where the service is installed to
  Environment environment;    // of the programs; on Windows they have the test's own

#ifndef _WIN32
  Words bench_options;  // of wfxsim, before StartBench

  // A JTAG call to WFX0001 that stays in the service, until its endpoint's time is over: the probe
  // is silent. The service writes `log`, at LOGLEVEL 8. All probes are there.
  std::unique_ptr<Client> StartCallThatStays(const std::filesystem::path& log);

  // What tshark tells of the bench's capture, which ends with this: the fields of the packets that
  // the filter takes, a line each. Of several `-r`, which `options` may hold, the last one counts.
  std::string Capture(const std::string& filter, const Words& fields, const Words& options = {});

  // Starts a message bus with nothing on it. The programs that are run from now on use it as their
  // session's. Returns its address.
  std::string StartMessageBus();

  // The processes of this installation's service, whoever started them.
  std::vector<pid_t> ServicePids() const;

  std::filesystem::path service_path() const { return bin / "TzWirefoxService"; }
  std::filesystem::path capture_path() const { return home_ / "usb.pcap"; }
#endif

 private:
  void CopyImagesAndSettings(const std::string& settings);
  support::Surroundings Around(const std::string& input);

  std::filesystem::path home_;
  int files_ = 0;
};

// With the bench's probes ready.
class OnBench : public SystemTest {
 protected:
  void SetUp() override { ASSERT_NO_FATAL_FAILURE(Begin()); }
};

inline const Words kAllProbes = {"EVK0001", "WFX0001", "WFX0002"};

}  // namespace system_test
