#include "platform/linux/com/class_server.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/linux/kernel/home.h"

namespace linux_host {
namespace {

// Between two tries for the lock of another process that serves the class.
constexpr std::uint64_t kLockRetryMicroseconds = 20'000;
// For how long no connection is taken after descriptors or memory ran out.
constexpr std::uint64_t kAcceptPauseMicroseconds = 100'000;

}  // namespace

ClassServer::ClassServer(const ClassPlan& plan, IClassFactory* factory)
    : exported_(plan), factory_(factory) {
  factory_->AddRef();
}

std::unique_ptr<ClassServer> ClassServer::Publish(const ClassPlan& plan, IClassFactory* factory) {
  std::unique_ptr<ClassServer> server(new ClassServer(plan, factory));
  if (!server->TryListen()) return nullptr;
  server->bus_ = MessageBus::Open(server->exported_, factory);
  AddMessageLoopSource(server.get());
  return server;
}

ClassServer::~ClassServer() {
  RemoveMessageLoopSource(this);
  const ClassPlan& plan = exported_.plan();
  // The names go while the lock is held: they could be a successor's afterwards.
  if (listener_.is_open()) {
    directory_.Remove(SocketFile(plan));
    // Whoever has started this server may have found it used up by others before it could connect.
    directory_.Mark(StartLockFile(plan));
    directory_.Remove(ServeLockFile(plan));
  }
  listener_.Reset();
  serve_lock_.Reset();
  bus_.reset();
  connections_.clear();
  factory_->Release();
}

// True also when another process has the lock: it is tried for again.
bool ClassServer::TryListen() {
  const ClassPlan& plan = exported_.plan();
  listen_deadline_ = UINT64_MAX;
  serve_lock_ = directory_.TryLock(ServeLockFile(plan));
  if (!serve_lock_.is_open()) {
    if (errno != EWOULDBLOCK) return false;
    listen_deadline_ = MonotonicMicroseconds() + kLockRetryMicroseconds;
    return true;
  }
  const mode_t others = geteuid() == 0 ? 0666 : 0660;
  listener_ = directory_.Listen(SocketFile(plan), ServesOtherAccounts() ? others : 0600);
  if (!listener_.is_open()) serve_lock_.Reset();
  return listener_.is_open();
}

void ClassServer::Accept() {
  const int descriptor = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (descriptor < 0) {
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
      listen_deadline_ = MonotonicMicroseconds() + kAcceptPauseMicroseconds;
    }
    return;
  }
  auto connection = PrivateConnection::Open(descriptor, exported_, factory_);
  if (connection) connections_.push_back(std::move(connection));
}

void ClassServer::AppendDescriptors(std::vector<pollfd>& descriptors) {
  // A call that runs a message loop of its own is not interrupted by other calls.
  is_listener_polled_ = false;
  if (exported_.is_serving()) return;
  is_listener_polled_ = listener_.is_open() && listen_deadline_ == UINT64_MAX;
  if (is_listener_polled_) descriptors.push_back({listener_.get(), POLLIN, 0});
  for (std::size_t i = 0; i < LinkCount(); ++i) LinkAt(i).AppendDescriptor(descriptors);
}

int ClassServer::WaitLimitMs() {
  if (exported_.is_serving()) return -1;
  std::uint64_t deadline = listen_deadline_;
  for (std::size_t i = 0; i < LinkCount(); ++i) {
    deadline = std::min(deadline, LinkAt(i).Deadline());
  }
  if (deadline == UINT64_MAX) return -1;
  const std::uint64_t now = deadline == 0 ? 0 : MonotonicMicroseconds();
  if (deadline <= now) return 0;
  return static_cast<int>(std::min<std::uint64_t>((deadline - now + 999) / 1000, 60'000));
}

bool ClassServer::Dispatch(const pollfd* ready, std::size_t count) {
  if (exported_.is_serving()) return false;
  const std::size_t first = is_listener_polled_ ? 1 : 0;
  const std::size_t links = count > first ? std::min(count - first, LinkCount()) : 0;
  if (is_listener_polled_ && count > 0 && ready[0].revents != 0) Accept();
  if (listen_deadline_ != UINT64_MAX && listen_deadline_ <= MonotonicMicroseconds()) {
    if (listener_.is_open()) {
      listen_deadline_ = UINT64_MAX;
    } else if (!TryListen()) {
      listen_deadline_ = MonotonicMicroseconds() + kLockRetryMicroseconds;
    }
  }
  std::size_t served = links;
  bool has_more = false;
  for (std::size_t i = 0; i < links && !has_more; ++i) {
    const std::size_t index = (next_link_ + i) % links;
    if (!IsReady(index, ready[first + index].revents)) continue;
    if (served == links) {
      served = index;
    } else {
      has_more = true;
    }
  }
  if (served == links) return false;
  next_link_ = served + 1;
  if (!ProcessAt(served)) {
    DropAt(served);
  } else {
    has_more = has_more || LinkAt(served).HasQueued();
  }
  return has_more;
}

bool ClassServer::IsReady(std::size_t index, short events) const {
  if (events != 0) return true;
  const std::uint64_t deadline = LinkAt(index).Deadline();
  return deadline != UINT64_MAX && (deadline == 0 || deadline <= MonotonicMicroseconds());
}

// The message bus comes first, so that a new connection moves no other.
DBusLink& ClassServer::LinkAt(std::size_t index) const {
  if (!bus_) return connections_[index]->link();
  return index == 0 ? bus_->link() : connections_[index - 1]->link();
}

bool ClassServer::ProcessAt(std::size_t index) {
  return bus_ && index == 0 ? bus_->Process() : LinkAt(index).Process();
}

void ClassServer::DropAt(std::size_t index) {
  if (bus_ && index-- == 0) {
    bus_.reset();
    return;
  }
  // Out of the list first: releasing the object may end up here again.
  const auto dropped = std::move(connections_[index]);
  connections_.erase(connections_.begin() + static_cast<std::ptrdiff_t>(index));
}

}  // namespace linux_host
