#include "sim/server/kernel_hub.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace sim {
namespace {

constexpr char kController[] = "/sys/devices/platform/vhci_hcd.0/";
constexpr int kFreePort = 4;   // VDEV_ST_NULL
constexpr int kHighSpeed = 3;  // USB_SPEED_HIGH
constexpr unsigned kBus = 1;   // of the number by which the kernel names the device to its server

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

// The controller's first high-speed port that is free from `from` on; negative: there is none.
int FreePort(int from) {
  std::ifstream status(std::string(kController) + "status");
  for (std::string line; std::getline(status, line);) {
    int port = 0;
    int state = 0;
    if (std::sscanf(line.c_str(), "hs %d %d", &port, &state) == 2 && state == kFreePort &&
        port >= from) {
      return port;
    }
  }
  return -1;
}

bool AttachTo(int port, int socket, std::uint8_t number) {
  const std::string line = std::to_string(port) + " " + std::to_string(socket) + " " +
                           std::to_string(kBus << 16 | number) + " " + std::to_string(kHighSpeed);
  const int file = open((std::string(kController) + "attach").c_str(), O_WRONLY | O_CLOEXEC);
  if (file < 0) return false;
  const bool attached = write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  const int error = errno;
  close(file);
  errno = error;
  return attached;
}

// Another program may take the port meanwhile; then it is the next one's turn.
bool AttachToFreePort(int socket, std::uint8_t number) {
  errno = EBUSY;
  for (int port = FreePort(0); port >= 0; port = FreePort(port + 1)) {
    if (AttachTo(port, socket, number)) return true;
    if (errno != EBUSY) return false;
  }
  return false;
}

}  // namespace

KernelHub::KernelHub(Bench& bench) : bench_(bench) {
  if (access((std::string(kController) + "attach").c_str(), W_OK) != 0) {
    Fail("cannot attach probes to the kernel (modprobe vhci-hcd, and be root)");
  }
  bench_.SetListener(this);
  for (const std::string& path : bench_.ListDevices()) Plug(path);
  thread_ = std::thread([this] { Work(); });
}

KernelHub::~KernelHub() {
  bench_.SetListener(nullptr);
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void KernelHub::Enqueue(bool arrived, const std::string& path) {
  const std::lock_guard lock(mutex_);
  events_.emplace_back(arrived, path);
  changed_.notify_one();
}

void KernelHub::Work() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [&] { return ending_ || !events_.empty(); });
    if (ending_) break;
    const auto [arrived, path] = std::move(events_.front());
    events_.pop_front();
    lock.unlock();
    if (arrived) {
      Plug(path);
    } else {
      ports_.erase(path);
    }
    lock.lock();
  }
  ports_.clear();
}

// A probe that came while those before it were plugged in is listed and told as well.
void KernelHub::Plug(const std::string& path) {
  auto device = bench_.OpenDevice(path);
  if (!device || ports_.count(path) != 0) return;
  const std::uint8_t number = device->Facts().usb_address;
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    std::fprintf(stderr, "wfxsim: no socket for %s: %s\n", path.c_str(), std::strerror(errno));
    return;
  }
  const bool attached = AttachToFreePort(ends[1], number);
  if (!attached) {
    std::fprintf(stderr, "wfxsim: the kernel does not take %s: %s\n", path.c_str(),
                 std::strerror(errno));
  }
  close(ends[1]);  // the kernel's own now
  if (attached) {
    ports_.emplace(path, std::make_unique<KernelPort>(std::move(device), ends[0]));
  } else {
    close(ends[0]);
  }
}

}  // namespace sim
