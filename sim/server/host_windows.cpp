#include <windows.h>

#include <stdexcept>
#include <utility>

#include "platform/windows/virtual_bus/virtual_bus.h"
#include "sim/server/host.h"
#include "sim/server/pipe_server.h"

namespace sim {
namespace {

constexpr char kPipes[] = R"(\\.\pipe\)";
constexpr char kDefaultName[] = "wfxsim";

// How long the system lets a console program take when its window is closed or the user leaves.
constexpr DWORD kGraceMs = 5000;

// Both stay set. The handler runs on threads of the system's and may outlive the program's own
// objects, so these are never closed.
struct Ending {
  HANDLE asked = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

Ending& TheEnding() {
  static auto& ending = *new Ending;
  return ending;
}

BOOL WINAPI HandleConsoleControl(DWORD control) {
  SetEvent(TheEnding().asked);
  // For these the process is ended when the handler returns.
  if (control != CTRL_C_EVENT && control != CTRL_BREAK_EVENT) {
    WaitForSingleObject(TheEnding().done, kGraceMs);
  }
  return TRUE;
}

// The devices go through the virtual bus driver, the commands through the pipe.
class WindowsServer : public BenchServer {
 public:
  WindowsServer(Bench& bench, const std::string& place, std::function<void()> stop)
      : devices_(bench), commands_(bench, place, std::move(stop)) {}

 private:
  virtual_bus::VirtualBus devices_;
  PipeServer commands_;
};

}  // namespace

EndOfRun::EndOfRun() {
  TheEnding();
  SetConsoleCtrlHandler(HandleConsoleControl, TRUE);
}

EndOfRun::~EndOfRun() { SetEvent(TheEnding().done); }

void EndOfRun::Ask() { SetEvent(TheEnding().asked); }

void EndOfRun::Wait() { WaitForSingleObject(TheEnding().asked, INFINITE); }

// A name stands for the pipe of that name.
std::string ListeningPlace(const std::string& given) {
  if (given.empty()) return std::string(kPipes) + kDefaultName;
  return given.find('\\') == std::string::npos ? kPipes + given : given;
}

// The system remembers every path that it ever had, and one simulator runs at a time: so paths are
// those of the last run.
std::string RunName() { return {}; }

std::unique_ptr<BenchServer> OfferBench(Bench& bench, const std::string& place,
                                        std::function<void()> stop) {
  return std::make_unique<WindowsServer>(bench, place, std::move(stop));
}

std::unique_ptr<BenchServer> AttachBench(Bench&, const std::string&, std::function<void()>) {
  throw std::runtime_error("probes are attached to the kernel on Linux only");
}

std::unique_ptr<ControlStream> ConnectTo(const std::string& place, std::string& error) {
  return ConnectToPipe(place, error);
}

}  // namespace sim
