#include <signal.h>
#include <sys/un.h>
#include <time.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "platform/linux/home.h"
#include "platform/probe_driver/frame_socket.h"
#include "sim/bench.h"
#include "sim/server/program.h"
#include "sim/server/socket_server.h"

namespace sim {
namespace {

std::string SocketPath(const std::string& given) {
  if (!given.empty()) return given;
  return linux_host::HomePath(linux_host::HomeKind::kRuntime) + "/wfxsim.sock";
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
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

void Run(const ServeOptions& options, const sigset_t& ends) {
  const std::string description =
      options.bench_file.empty() ? Bench::DefaultDescription() : ReadFile(options.bench_file);
  BenchOptions bench_options;
  bench_options.instance = RunName();
  Bench bench(description, std::move(bench_options));
  if (!options.capture_file.empty() && !bench.CaptureTo(options.capture_file)) {
    throw std::runtime_error("cannot create " + options.capture_file);
  }
  const std::string path = SocketPath(options.socket_path);
  const SocketServer server(bench, path, [] { kill(getpid(), SIGTERM); });
  std::printf("wfxsim: listening on %s\n", path.c_str());
  std::fflush(stdout);
  int signal = 0;
  while (sigwait(&ends, &signal) != 0) {
  }
}

}  // namespace

int Serve(const ServeOptions& options) {
  // Blocked before any thread begins, so that only the wait above takes them.
  sigset_t ends;
  sigemptyset(&ends);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ends, signal);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  signal(SIGPIPE, SIG_IGN);  // whoever was to read the ready line may be gone
  try {
    Run(options, ends);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "wfxsim: %s\n", error.what());
    return 2;
  }
}

bool Ask(const std::string& socket_path, const std::string& request, std::string& answer,
         std::string& error) {
  const std::string path = SocketPath(socket_path);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    error = "the socket path " + path + " is too long";
    return false;
  }
  path.copy(address.sun_path, path.size());
  probe_driver::FrameSocket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    error = "no simulator listens on " + path + " (" + std::strerror(errno) + ")";
    return false;
  }
  const std::string all = std::string(kControlGreeting) + request + "\n";
  bool ok = socket.SendBytes(all.data(), all.size());
  answer.clear();
  for (char c = 0; ok && (ok = socket.Receive(&c, 1)) && c != '\n';) answer += c;
  if (!ok) error = "the simulator ended the connection";
  return ok;
}

}  // namespace sim
