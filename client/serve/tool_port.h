// A port for tools that speak a byte protocol: one of them at a time is connected, and what it
// sends is read as it comes, whether or not somebody has time for it.
#pragma once

#include <windows.h>

#include <winsock2.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
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

  // Sends to the tool whose input was taken. False when it is gone, or has not read all within five
  // seconds.
  bool Send(std::span<const std::uint8_t> bytes);

  // Ends its connection, also one that it has closed; Take goes on to the next tool.
  void Drop();

 private:
  struct Tool {
    explicit Tool(SOCKET s) : socket(s) {}
    ~Tool() { closesocket(socket); }
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    const SOCKET socket;
    Input input{.begins = true};  // not taken yet
    std::atomic<bool> dropped = false;
  };

  ToolPort(SOCKET listener, std::string name, std::string local_path);

  void Run();  // the thread: one connection after another
  void Receive(Tool& tool);
  // Adds to what waits to be taken. False: nothing more is wanted.
  bool Keep(Tool& tool, std::span<const char> bytes);
  // False when nothing is wanted any more. A connection that this side has ended wakes nobody on
  // some hosts.
  bool WaitForInput(SOCKET socket, const std::atomic<bool>& ended) const;

  const SOCKET listener_;
  const std::string name_;
  const std::string local_path_;
  const HANDLE event_;
  std::atomic<bool> stops_ = false;

  std::mutex mutex_;
  std::condition_variable taken_;
  // The first is being served. A tool that did not wait for the end of its work may be followed by
  // others, which are read already.
  std::deque<std::shared_ptr<Tool>> tools_;
  std::jthread thread_;
};

}  // namespace client
