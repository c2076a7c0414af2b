// A port for tools that speak a byte protocol: one of them at a time is connected, and what it
// sends is read as it comes, whether or not somebody has time for it.
#pragma once

#include <windows.h>

#include <winsock2.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>

#include "client/numbers.h"

namespace client {

class ToolPort {
 public:
  // "PORT" (of the loopback interface), "ADDRESS:PORT", "[ADDRESS]:PORT" or, with `local_allowed`,
  // the path of a local socket, which is removed with this object. Port 0 is any that is free. On
  // failure gives null and says why.
  static std::unique_ptr<ToolPort> Open(const std::string& where, bool local_allowed,
                                        std::string& problem);
  ~ToolPort();
  ToolPort(const ToolPort&) = delete;
  ToolPort& operator=(const ToolPort&) = delete;

  // Where it listens, as tools are told.
  const std::string& name() const { return name_; }

  // Set when Take has something new.
  HANDLE event() const { return event_; }

  struct Input {
    bool begins = false;  // a tool has connected; its bytes come with this or later
    Bytes bytes{};
    bool ends = false;  // it has closed its side, behind these bytes
  };
  Input Take();

  // Sends to the tool that is connected. False when it is gone, or reads nothing for ten seconds.
  bool Send(std::span<const std::uint8_t> bytes);

  // Ends the connection; what it has sent since is forgotten, and the next tool may come.
  void Drop();

 private:
  ToolPort(SOCKET listener, std::string name, std::string local_path);

  void Run();                 // the thread: one connection after another
  void Receive(SOCKET tool);  // until its end, or Drop
  bool WaitForInput(SOCKET socket);

  const SOCKET listener_;
  const std::string name_;
  const std::string local_path_;
  const HANDLE event_;
  std::atomic<bool> stops_ = false;

  std::mutex mutex_;
  std::condition_variable taken_;
  Input input_;                   // not taken yet
  SOCKET tool_ = INVALID_SOCKET;  // from its connection until the thread has seen Drop
  bool dropped_ = false;
  std::jthread thread_;
};

}  // namespace client
