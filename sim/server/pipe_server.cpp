#include "sim/server/pipe_server.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "sim/server/control_session.h"

namespace sim {
namespace {

using windows_host::KernelHandle;

constexpr DWORD kBufferBytes = 64 * 1024;
constexpr DWORD kBusyWaitMs = 5000;

std::string ErrorText(DWORD error) { return " (error " + std::to_string(error) + ")"; }

}  // namespace

PipeStream::PipeStream(KernelHandle pipe, HANDLE end) : pipe_(std::move(pipe)), end_(end) {}

DWORD PipeStream::Await(BOOL started) {
  if (!started && GetLastError() != ERROR_IO_PENDING) return 0;
  const HANDLE handles[] = {event_.Get(), end_};
  const DWORD count = end_ ? 2 : 1;
  if (WaitForMultipleObjects(count, handles, FALSE, INFINITE) != WAIT_OBJECT_0) {
    CancelIoEx(pipe_.Get(), &operation_);
  }
  DWORD moved = 0;
  return GetOverlappedResult(pipe_.Get(), &operation_, &moved, TRUE) ? moved : 0;
}

bool PipeStream::Send(const void* bytes, std::size_t size) {
  const char* at = static_cast<const char*>(bytes);
  while (size > 0) {
    operation_ = {};
    operation_.hEvent = event_.Get();
    const auto piece = static_cast<DWORD>(std::min<std::size_t>(size, kBufferBytes));
    const DWORD moved = Await(WriteFile(pipe_.Get(), at, piece, nullptr, &operation_));
    if (moved == 0) return false;
    at += moved;
    size -= moved;
  }
  return true;
}

bool PipeStream::Receive(void* out, std::size_t size) {
  char* at = static_cast<char*>(out);
  while (size > 0) {
    if (begin_ == end_of_buffer_) {
      operation_ = {};
      operation_.hEvent = event_.Get();
      begin_ = 0;
      end_of_buffer_ = Await(ReadFile(pipe_.Get(), buffer_.data(),
                                      static_cast<DWORD>(buffer_.size()), nullptr, &operation_));
      if (end_of_buffer_ == 0) return false;
    }
    const std::size_t taken = std::min(size, end_of_buffer_ - begin_);
    std::memcpy(at, buffer_.data() + begin_, taken);
    begin_ += taken;
    at += taken;
    size -= taken;
  }
  return true;
}

PipeServer::PipeServer(Bench& bench, const std::string& name, std::function<void()> stop)
    : bench_(bench), name_(name), stop_(std::move(stop)) {
  KernelHandle first = MakeInstance(true);
  if (!first) {
    const DWORD error = GetLastError();
    if (error == ERROR_ACCESS_DENIED || error == ERROR_PIPE_BUSY) {
      throw std::runtime_error("another simulator listens on " + name);
    }
    throw std::runtime_error("cannot make the pipe " + name + ErrorText(error));
  }
  acceptor_ = std::thread([this, pipe = std::move(first)]() mutable { Accept(std::move(pipe)); });
}

PipeServer::~PipeServer() {
  SetEvent(end_.Get());
  acceptor_.join();
  Reap(true);
}

KernelHandle PipeServer::MakeInstance(bool first) const {
  return KernelHandle(CreateNamedPipeA(
      name_.c_str(),
      PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | (first ? FILE_FLAG_FIRST_PIPE_INSTANCE : 0),
      PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
      PIPE_UNLIMITED_INSTANCES, kBufferBytes, kBufferBytes, 0, nullptr));
}

// False when the end has come. A client that has gone again by now is found out when it is served.
bool PipeServer::AwaitClient(HANDLE pipe) const {
  const KernelHandle event = windows_host::MakeEvent();
  OVERLAPPED operation{};
  operation.hEvent = event.Get();
  if (ConnectNamedPipe(pipe, &operation) || GetLastError() != ERROR_IO_PENDING) {
    return WaitForSingleObject(end_.Get(), 0) != WAIT_OBJECT_0;
  }
  const HANDLE handles[] = {event.Get(), end_.Get()};
  const bool connected = WaitForMultipleObjects(2, handles, FALSE, INFINITE) == WAIT_OBJECT_0;
  if (!connected) CancelIoEx(pipe, &operation);
  DWORD ignored = 0;
  GetOverlappedResult(pipe, &operation, &ignored, TRUE);
  return connected;
}

// The next instance is made before a client is served, so that there always is one to connect to.
void PipeServer::Accept(KernelHandle pipe) {
  while (pipe && AwaitClient(pipe.Get())) {
    auto stream = std::make_unique<PipeStream>(std::move(pipe), end_.Get());
    pipe = MakeInstance(false);
    Reap(false);
    const std::lock_guard lock(mutex_);
    Peer& peer = peers_.emplace_back();
    peer.thread = std::thread([this, &peer, stream = std::move(stream)] {
      Serve(*stream);
      const std::lock_guard ending(mutex_);
      peer.ended = true;
    });
  }
}

void PipeServer::Serve(PipeStream& stream) {
  std::array<char, kControlGreeting.size()> greeting;
  if (!stream.Receive(greeting.data(), greeting.size())) return;
  if (std::string_view(greeting.data(), greeting.size()) != kControlGreeting) return;
  ServeControl(stream, bench_, stop_);
}

void PipeServer::Reap(bool all) {
  std::list<Peer> ended;
  {
    const std::lock_guard lock(mutex_);
    for (auto it = peers_.begin(); it != peers_.end();) {
      const auto next = std::next(it);
      if (all || it->ended) ended.splice(ended.end(), peers_, it);
      it = next;
    }
  }
  for (Peer& peer : ended) peer.thread.join();
}

std::unique_ptr<ControlStream> ConnectToPipe(const std::string& name, std::string& error) {
  while (true) {
    KernelHandle pipe(CreateFileA(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    if (pipe) return std::make_unique<PipeStream>(std::move(pipe), nullptr);
    const DWORD failure = GetLastError();
    if (failure == ERROR_PIPE_BUSY && WaitNamedPipeA(name.c_str(), kBusyWaitMs)) continue;
    error = "no simulator listens on " + name + ErrorText(failure);
    return nullptr;
  }
}

}  // namespace sim
