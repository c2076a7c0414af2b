// The test in systemd's place: it starts the registered service, hears what that tells, and is
// asked for it by a bus of its own.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "tests/system/harness.h"

namespace system_test {

// The socket on which a service tells its manager.
class NotifySocket {
 public:
  explicit NotifySocket(const std::filesystem::path& path);
  ~NotifySocket();
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  // The next message; "nothing" after the time.
  std::string Next();
  bool IsEmpty();  // now

 private:
  int socket_;
};

inline constexpr char kReady[] = "READY=1\nSTATUS=Running";
inline constexpr char kStopping[] = "STOPPING=1\nSTATUS=Stopping";

class ManagerTest : public SystemTest {
 protected:
  // Installs the program, registers it as a service and starts the bench.
  void InstallService(const std::string& settings = "");

  // Runs `-RegServer`, `-Service` or `-UnregServer` and expects success.
  void Command(const std::string& option);

  // As systemd does: with a socket to tell on.
  std::unique_ptr<Process> StartService();

  // What is registered outside the registry: each file below the home's folders of systemd and the
  // buses, under its path there.
  std::map<std::string, std::string> RegisteredFiles() const;

  NotifySocket notify{home() / "notify"};
};

// What systemd says of the unit TzWirefoxService.service, and does with it.
struct Unit {
  std::string state = {};  // "active" and so on; empty: it is not loaded
  std::string file = {};
  bool is_silent = false;  // calls are not answered
  bool refuses_stop = false;
  std::function<void()> stop = [] {};  // called on another thread
};

// A message bus with the activation files and policies of the home. It knows nothing of the
// installation's variables.
class ActivatingBus {
 public:
  // `asks_systemd`: it does not start services itself; this process is systemd then. For root it is
  // as strict as the system's bus.
  ActivatingBus(const std::filesystem::path& home, Environment environment, bool asks_systemd);
  ~ActivatingBus();
  ActivatingBus(const ActivatingBus&) = delete;
  ActivatingBus& operator=(const ActivatingBus&) = delete;

  const std::string& address() const { return address_; }

  // The unit that the bus next asks for; "nothing" after the time.
  std::string NextRequest();

  void SetUnit(Unit unit);
  // The calls of systemd's manager since the last time, a line each.
  std::string TakeCalls();

 private:
  class Systemd;

  std::unique_ptr<Process> daemon_;  // ended first, which ends the other's thread
  std::string address_;
  std::unique_ptr<Systemd> systemd_;
};

}  // namespace system_test
