#include <signal.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "platform/linux/kernel/home.h"
#include "platform/probe_driver/frame_socket.h"
#include "sim/server/host.h"
#include "sim/server/kernel_hub.h"
#include "sim/server/socket_server.h"

namespace sim {
namespace {

constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

sigset_t EndingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : kEndingSignals) sigaddset(&signals, signal);
  return signals;
}

class AttachedBench : public BenchServer {
 public:
  AttachedBench(Bench& bench, const std::string& place, std::function<void()> stop)
      : commands_(bench, place, std::move(stop), SocketServer::Offer::kCommands), devices_(bench) {}

 private:
  SocketServer commands_;
  KernelHub devices_;
};

}  // namespace

// Blocked before any thread begins, so that only Wait takes them.
EndOfRun::EndOfRun() {
  const sigset_t ends = EndingSignals();
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  signal(SIGPIPE, SIG_IGN);  // whoever was to read the ready line may be gone
}

EndOfRun::~EndOfRun() = default;

void EndOfRun::Ask() { kill(getpid(), SIGTERM); }

void EndOfRun::Wait() {
  const sigset_t ends = EndingSignals();
  int signal = 0;
  while (sigwait(&ends, &signal) != 0) {
  }
}

std::string ListeningPlace(const std::string& given) {
  if (!given.empty()) return given;
  return linux_host::HomePath(linux_host::HomeKind::kRuntime) + "/wfxsim.sock";
}

// Told apart from every other run, so that a user of the bus who sees two runs sees no path twice.
std::string RunName() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  char name[40];
  std::snprintf(name, sizeof name, "%llx%05lx", static_cast<unsigned long long>(now.tv_sec),
                static_cast<unsigned long>(now.tv_nsec / 1000));
  return name;
}

std::unique_ptr<BenchServer> OfferBench(Bench& bench, const std::string& place,
                                        std::function<void()> stop) {
  return std::make_unique<SocketServer>(bench, place, std::move(stop));
}

std::unique_ptr<BenchServer> AttachBench(Bench& bench, const std::string& place,
                                         std::function<void()> stop) {
  return std::make_unique<AttachedBench>(bench, place, std::move(stop));
}

std::unique_ptr<ControlStream> ConnectTo(const std::string& place, std::string& error) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (place.size() >= sizeof address.sun_path) {
    error = "the socket path " + place + " is too long";
    return nullptr;
  }
  place.copy(address.sun_path, place.size());
  auto socket =
      std::make_shared<probe_driver::FrameSocket>(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(socket->fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    error = "no simulator listens on " + place + " (" + std::strerror(errno) + ")";
    return nullptr;
  }
  return std::make_unique<SocketStream>(std::move(socket));
}

}  // namespace sim
