// The things that client calls are compared with: a bare sd-bus method and a bare Unix-socket echo,
// each served by a process of its own.
#pragma once

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

// A child process that ends with this object.
class Child {
 public:
  explicit Child(pid_t pid) : pid_(pid) {}
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  pid_t Id() const { return pid_; }

 private:
  pid_t pid_;
};

// Answers each request with as many bytes as it is asked for.
class SocketEcho {
 public:
  SocketEcho();
  ~SocketEcho();
  SocketEcho(const SocketEcho&) = delete;
  SocketEcho& operator=(const SocketEcho&) = delete;

  void Call(const std::vector<std::uint8_t>& sent, std::vector<std::uint8_t>& reply);

 private:
  int socket_;
  Child server_;
};

// A peer-to-peer sd-bus connection to a server with two methods: one that returns a number, and one
// that returns half of the array that it is given.
class BareBus {
 public:
  BareBus();
  ~BareBus();
  BareBus(const BareBus&) = delete;
  BareBus& operator=(const BareBus&) = delete;

  std::int32_t GetNumber();
  void Half(const std::vector<std::uint8_t>& sent, std::vector<std::uint8_t>& reply);
  pid_t ServerId() const { return server_.Id(); }

 private:
  int socket_;
  Child server_;
  sd_bus* bus_ = nullptr;
};

}  // namespace bench
