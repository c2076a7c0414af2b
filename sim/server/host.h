// What the program needs of its host: the way between it and those that control it, and word that
// it is to end. One header, one implementation per host.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "sim/bench.h"

namespace sim {

// One connection of a controlling program. Used by one thread at a time.
class ControlStream {
 public:
  virtual ~ControlStream() = default;

  // All of the bytes, or exactly as many as asked for. False: the connection is lost.
  virtual bool Send(const void* bytes, std::size_t size) = 0;
  virtual bool Receive(void* out, std::size_t size) = 0;
};

// Offers a bench to other processes for as long as it lives.
class BenchServer {
 public:
  virtual ~BenchServer() = default;
};

// Tells the program when to end: the user interrupts it, the system ends, or Ask was called. Made
// before any thread is started; one at a time.
class EndOfRun {
 public:
  EndOfRun();
  ~EndOfRun();
  EndOfRun(const EndOfRun&) = delete;
  EndOfRun& operator=(const EndOfRun&) = delete;

  void Ask();  // any thread
  void Wait();
};

// Where a simulator listens when `given` names the place, or by default when it is empty.
std::string ListeningPlace(const std::string& given);

// Stands in every path of this run's devices.
std::string RunName();

// `bench` outlives the server; `stop` is called on any thread when a controlling program asks for
// the end. Throws std::runtime_error when the place is taken or cannot be made.
std::unique_ptr<BenchServer> OfferBench(Bench& bench, const std::string& place,
                                        std::function<void()> stop);

// Attaches the probes to this machine's own USB, and offers only the commands at `place`: a probe
// has one host at a time. Throws std::runtime_error also when the host has no such way.
std::unique_ptr<BenchServer> AttachBench(Bench& bench, const std::string& place,
                                         std::function<void()> stop);

// Null when no simulator listens there; `error` then tells why.
std::unique_ptr<ControlStream> ConnectTo(const std::string& place, std::string& error);

}  // namespace sim
