#include "client/serve/tool_port.h"

#include <afunix.h>
#include <mstcpip.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <utility>

namespace client {

namespace {

// What may wait for the probe. A tool that sends more before it reads an answer has to wait, for
// which OpenOCD is not made: it gives up when it cannot send.
constexpr std::size_t kMaxWaitingBytes = 256u << 20;

// Those that have ended their part and wait for its end, and the one behind them.
constexpr std::size_t kMaxTools = 16;

// Connections that wait to be taken.
constexpr int kBacklog = 64;

constexpr std::chrono::seconds kSendTimeout(5);
// How often a thread that waits looks whether the port is closed.
constexpr int kPollMs = 100;

constexpr WORD kVersion = 0x0202;

// Lives as long as the process: sockets may be used until its end.
bool SocketsStarted() {
  static const bool started = [] {
    WSADATA data{};
    return WSAStartup(kVersion, &data) == 0;
  }();
  return started;
}

bool IsReady(SOCKET socket, short events, int timeout_ms) {
  WSAPOLLFD record{};
  record.fd = socket;
  record.events = events;
  return WSAPoll(&record, 1, timeout_ms) > 0;
}

template <typename Value>
void SetOption(SOCKET socket, int level, int option, Value value) {
  setsockopt(socket, level, option, reinterpret_cast<const char*>(&value), sizeof value);
}

std::string WhyNot() {
  const int error = WSAGetLastError();
  return error == WSAEADDRINUSE ? "somebody listens there already"
                                : "the system refuses it with error " + std::to_string(error);
}

struct Listener {
  SOCKET socket = INVALID_SOCKET;
  std::string name{};
  std::string local_path{};
};

// A socket file that nobody listens on is left over from a process that was killed.
void RemoveUnused(const sockaddr_un& address, const std::string& path) {
  const SOCKET probe = socket(AF_UNIX, SOCK_STREAM, 0);
  if (probe == INVALID_SOCKET) return;
  const bool unused =
      connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
      WSAGetLastError() == WSAECONNREFUSED;
  closesocket(probe);
  std::error_code error;
  if (unused && std::filesystem::is_socket(path, error)) std::filesystem::remove(path, error);
}

Listener ListenLocally(const std::string& path, std::string& problem) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    problem = "the path of a local socket is at most " +
              std::to_string(sizeof address.sun_path - 1) + " bytes long";
    return {};
  }
  std::ranges::copy(path, address.sun_path);
  RemoveUnused(address, path);
  Listener listener{socket(AF_UNIX, SOCK_STREAM, 0), path, path};
  if (listener.socket != INVALID_SOCKET &&
      bind(listener.socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return listener;
  }
  std::error_code error;
  const bool is_other =
      std::filesystem::is_regular_file(path, error) || std::filesystem::is_directory(path, error);
  problem = "cannot listen on " + path + ": " +
            (is_other ? "something else than a socket is there" : WhyNot());
  if (listener.socket != INVALID_SOCKET) closesocket(listener.socket);
  return {};
}

std::string NameOfAddress(SOCKET socket, const std::string& host) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  // The port stands at the same place for both families.
  const auto port = ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
  return (host.find(':') != std::string::npos ? "[" + host + "]" : host) + ":" +
         std::to_string(port);
}

Listener ListenOnPort(const std::string& host, const std::string& port, std::string& problem) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
    problem = "'" + host + "' is no address of this computer";
    return {};
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
  const SOCKET listener = socket(found->ai_family, SOCK_STREAM, 0);
  SetOption(listener, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
  if (listener != INVALID_SOCKET &&
      bind(listener, found->ai_addr, static_cast<socklen_t>(found->ai_addrlen)) == 0) {
    return {listener, NameOfAddress(listener, host)};
  }
  problem = "cannot listen on " + host + ":" + port + ": " + WhyNot();
  if (listener != INVALID_SOCKET) closesocket(listener);
  return {};
}

Listener Listen(const std::string& where, bool local_allowed, std::string& problem) {
  const std::size_t colon = where.rfind(':');
  const std::string port = colon == std::string::npos ? where : where.substr(colon + 1);
  std::string host = colon == std::string::npos ? "127.0.0.1" : where.substr(0, colon);
  const bool is_path = where.find('/') != std::string::npos;
  if (!is_path && ParseNumber(port, 0, 65535) && !port.starts_with("0x")) {
    if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    return ListenOnPort(host, port, problem);
  }
  if (local_allowed && !where.empty()) return ListenLocally(where, problem);
  problem = "'" + where + "' is no [ADDRESS:]PORT" + (local_allowed ? " or path" : "");
  return {};
}

}  // namespace

std::unique_ptr<ToolPort> ToolPort::Open(const std::string& where, bool local_allowed,
                                         std::string& problem) {
  if (!SocketsStarted()) {
    problem = "this computer has no sockets";
    return nullptr;
  }
  Listener made = Listen(where, local_allowed, problem);
  if (made.socket == INVALID_SOCKET) return nullptr;
  u_long does_not_wait = 1;
  ioctlsocket(made.socket, FIONBIO, &does_not_wait);
  // Connections inherit it.
  SetOption(made.socket, SOL_SOCKET, SO_RCVBUF, 4 << 20);
  if (listen(made.socket, kBacklog) != 0) {
    problem = "cannot listen on " + made.name + ": " + WhyNot();
    closesocket(made.socket);
    return nullptr;
  }
  return std::unique_ptr<ToolPort>(
      new ToolPort(made.socket, std::move(made.name), std::move(made.local_path)));
}

ToolPort::ToolPort(SOCKET listener, std::string name, std::string local_path)
    : listener_(listener),
      name_(std::move(name)),
      local_path_(std::move(local_path)),
      event_(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      thread_([this] { Run(); }) {}

ToolPort::~ToolPort() {
  stops_ = true;
  while (!tools_.empty()) Drop();
  taken_.notify_all();
  thread_.join();
  closesocket(listener_);
  CloseHandle(event_);
  if (!local_path_.empty()) std::remove(local_path_.c_str());
}

bool ToolPort::WaitForInput(SOCKET socket, const std::atomic<bool>& ended) const {
  while (!stops_ && !ended) {
    if (IsReady(socket, POLLIN, kPollMs)) return true;
  }
  return false;
}

void ToolPort::Run() {
  while (WaitForInput(listener_, stops_)) {
    const SOCKET accepted = accept(listener_, nullptr, nullptr);
    if (accepted == INVALID_SOCKET) continue;
    const auto tool = std::make_shared<Tool>(accepted);
    // Answers are small and awaited.
    SetOption(accepted, IPPROTO_TCP, TCP_NODELAY, 1);
    u_long does_not_wait = 1;
    ioctlsocket(accepted, FIONBIO, &does_not_wait);
    {
      std::unique_lock lock(mutex_);
      taken_.wait(lock, [this] { return tools_.size() < kMaxTools || stops_; });
      tools_.push_back(tool);
      SetEvent(event_);
    }
    Receive(*tool);
  }
}

void ToolPort::Receive(Tool& tool) {
  std::array<char, 65536> buffer;
  while (true) {
    const auto size = recv(tool.socket, buffer.data(), buffer.size(), 0);
    if (size < 0 && (WSAGetLastError() == WSAEWOULDBLOCK || WSAGetLastError() == WSAEINTR)) {
      if (!WaitForInput(tool.socket, tool.dropped)) return;
      continue;
    }
    // A tool that waits for an acknowledgement before it sends the rest is not kept waiting for
    // the time that acknowledgements are saved up.
    int at_once = 1;
    DWORD returned = 0;
    WSAIoctl(tool.socket, SIO_TCP_SET_ACK_FREQUENCY, &at_once, sizeof at_once, nullptr, 0,
             &returned, nullptr, nullptr);
    if (!Keep(tool, {buffer.data(), static_cast<std::size_t>(std::max<long long>(size, 0))}))
      return;
  }
}

bool ToolPort::Keep(Tool& tool, std::span<const char> bytes) {
  std::unique_lock lock(mutex_);
  if (tool.dropped) return false;
  // What has not been taken has been told.
  const bool is_news = tool.input.bytes.empty() || bytes.empty();
  tool.input.bytes.insert(tool.input.bytes.end(), bytes.begin(), bytes.end());
  tool.input.ends = bytes.empty();
  if (is_news) SetEvent(event_);
  taken_.wait(lock,
              [&] { return tool.input.bytes.size() < kMaxWaitingBytes || tool.dropped || stops_; });
  return !tool.input.ends && !tool.dropped;
}

ToolPort::Input ToolPort::Take() {
  const std::lock_guard lock(mutex_);
  if (tools_.empty()) return {};
  taken_.notify_all();
  return std::exchange(tools_.front()->input, {});
}

bool ToolPort::Send(std::span<const std::uint8_t> bytes) {
  const std::shared_ptr<Tool> tool = [this] {
    const std::lock_guard lock(mutex_);
    return tools_.front();
  }();
  const auto deadline = std::chrono::steady_clock::now() + kSendTimeout;
  while (!bytes.empty()) {
    const auto sent = send(tool->socket, reinterpret_cast<const char*>(bytes.data()),
                           static_cast<int>(std::min<std::size_t>(bytes.size(), 1 << 20)), 0);
    if (sent > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(sent));
      continue;
    }
    if (WSAGetLastError() != WSAEWOULDBLOCK) return false;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0 || !IsReady(tool->socket, POLLOUT, static_cast<int>(left.count()))) {
      return false;
    }
  }
  return true;
}

void ToolPort::Drop() {
  const std::lock_guard lock(mutex_);
  if (tools_.empty()) return;
  tools_.front()->dropped = true;
  shutdown(tools_.front()->socket, SD_BOTH);
  tools_.pop_front();
  if (!tools_.empty()) SetEvent(event_);
  taken_.notify_all();
}

}  // namespace client
