// Offers the commands that rearrange a bench to other processes on a named pipe.
#pragma once

#include <array>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/windows/kernel_handle.h"
#include "sim/bench.h"
#include "sim/server/host.h"

namespace sim {

// A controlling connection on a pipe.
class PipeStream : public ControlStream {
 public:
  // `pipe` is connected and open for overlapped operation. `end`, null or an event that outlives
  // the stream, makes all that goes on fail once it is set.
  PipeStream(windows_host::KernelHandle pipe, HANDLE end);

  bool Send(const void* bytes, std::size_t size) override;
  bool Receive(void* out, std::size_t size) override;

 private:
  // Waits for an operation that was started with `started` as its result; the bytes it moved, 0
  // when it failed or the end came first.
  DWORD Await(BOOL started);

  const windows_host::KernelHandle pipe_;
  const HANDLE end_;
  const windows_host::KernelHandle event_ = windows_host::MakeEvent();
  OVERLAPPED operation_{};
  std::array<char, 4096> buffer_;  // received, begin_ to end_of_buffer_ not yet handed out
  std::size_t begin_ = 0;
  std::size_t end_of_buffer_ = 0;
};

class PipeServer : public BenchServer {
 public:
  // Listens from now on. `bench` outlives the server; `stop` is called on any thread when a
  // controlling connection asks for the end. Throws std::runtime_error when another process has a
  // pipe of that name, or when there can be none.
  PipeServer(Bench& bench, const std::string& name, std::function<void()> stop);
  // Ends all connections.
  ~PipeServer() override;

 private:
  struct Peer {
    bool ended = false;
    std::thread thread;
  };

  windows_host::KernelHandle MakeInstance(bool first) const;
  bool AwaitClient(HANDLE pipe) const;
  void Accept(windows_host::KernelHandle first);
  void Serve(PipeStream& stream);
  // Joins the threads of peers that have ended, or of all.
  void Reap(bool all);

  Bench& bench_;
  const std::string name_;
  const std::function<void()> stop_;
  const windows_host::KernelHandle end_ = windows_host::MakeEvent();
  std::mutex mutex_;  // of the peers
  std::list<Peer> peers_;
  std::thread acceptor_;
};

// A connection to the pipe; null when nobody listens, and `error` tells why.
std::unique_ptr<ControlStream> ConnectToPipe(const std::string& name, std::string& error);

}  // namespace sim
