#include "sim/server/socket_server.h"

#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "platform/linux/kernel/file_descriptor.h"
#include "sim/server/control_session.h"

namespace sim {
namespace {

using linux_host::FileDescriptor;
using probe_driver::FrameSocket;

constexpr auto kAcceptPause = std::chrono::milliseconds(100);

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error(what + ": " + strerror(errno));
}

bool SomebodyListens(const sockaddr_un& address) {
  const FileDescriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return probe.get() >= 0 &&
         connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// Two simulators that start at once take turns by locking the directory, so that neither removes
// the socket of the other.
int Listen(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    throw std::runtime_error("the socket path " + path + " is empty or longer than 107 bytes");
  }
  path.copy(address.sun_path, path.size());
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const FileDescriptor lock(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (lock.get() < 0) Fail("cannot open the directory " + directory);
  if (flock(lock.get(), LOCK_EX) != 0) Fail("cannot lock the directory " + directory);

  struct stat entry {};
  if (lstat(path.c_str(), &entry) == 0) {
    if (!S_ISSOCK(entry.st_mode)) throw std::runtime_error(path + " exists and is not a socket");
    if (SomebodyListens(address)) {
      throw std::runtime_error("another simulator listens on " + path);
    }
    unlink(path.c_str());
  }
  FileDescriptor listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (listening.get() < 0) Fail("cannot make a socket");
  if (bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    Fail("cannot bind " + path);
  }
  if (listen(listening.get(), SOMAXCONN) != 0) Fail("cannot listen on " + path);
  return listening.Take();
}

}  // namespace

SocketServer::SocketServer(Bench& bench, const std::string& socket_path, std::function<void()> stop,
                           Offer offer)
    : bench_(bench), socket_path_(socket_path), stop_(std::move(stop)), offer_(offer) {
  listening_ = Listen(socket_path);
  if (offer_ == Offer::kBusAndCommands) bench_.SetListener(this);
  acceptor_ = std::thread([this] { Accept(); });
}

SocketServer::~SocketServer() {
  unlink(socket_path_.c_str());
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  ending_begins_.notify_all();
  shutdown(listening_, SHUT_RDWR);
  acceptor_.join();
  close(listening_);
  if (offer_ == Offer::kBusAndCommands) bench_.SetListener(nullptr);
  Reap(true);
}

void SocketServer::Accept() {
  while (true) {
    const int fd = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
    Reap(false);
    std::unique_lock lock(mutex_);
    // Most likely there is no descriptor left, and accepting would fail again until one comes free.
    if (fd < 0) ending_begins_.wait_for(lock, kAcceptPause, [&] { return ending_; });
    if (ending_) {
      if (fd >= 0) close(fd);
      return;
    }
    if (fd < 0) continue;
    Peer& peer = peers_.emplace_back();
    peer.socket = std::make_shared<FrameSocket>(fd);
    peer.thread = std::thread([this, &peer] { Serve(peer); });
  }
}

void SocketServer::Serve(Peer& peer) {
  std::array<char, 8> greeting;
  if (peer.socket->Receive(greeting.data(), greeting.size())) {
    const std::string_view text(greeting.data(), greeting.size());
    if (text == probe_driver::kBusGreeting && offer_ == Offer::kBusAndCommands) ServeBus(peer);
    if (text == kControlGreeting) {
      SocketStream stream(peer.socket);
      ServeControl(stream, bench_, stop_);
    }
  }
  peer.socket->Shutdown();
  const std::lock_guard lock(mutex_);
  peer.ended = true;
}

void SocketServer::ServeBus(Peer& peer) {
  {
    // Under the lock: an event comes either before the list is made or behind it.
    const std::lock_guard lock(mutex_);
    peer.bus = std::make_unique<BusConnection>(bench_, peer.socket);
    for (const std::string& path : bench_.ListDevices()) peer.bus->Tell(true, path);
    peer.bus->TellListed();
  }
  peer.bus->Run();
  const std::lock_guard lock(mutex_);
  peer.bus.reset();
}

void SocketServer::Tell(bool arrived, const std::string& path) {
  const std::lock_guard lock(mutex_);
  for (const Peer& peer : peers_) {
    if (peer.bus) peer.bus->Tell(arrived, path);
  }
}

void SocketServer::Reap(bool all) {
  std::list<Peer> ended;
  {
    const std::lock_guard lock(mutex_);
    for (auto it = peers_.begin(); it != peers_.end();) {
      const auto next = std::next(it);
      if (all) it->socket->Shutdown();
      if (all || it->ended) ended.splice(ended.end(), peers_, it);
      it = next;
    }
  }
  for (Peer& peer : ended) peer.thread.join();
}

}  // namespace sim
