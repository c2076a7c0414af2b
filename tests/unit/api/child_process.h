// A process of the test's own that runs until it is ended.
#pragma once

#include <cstdint>

class ChildProcess {
 public:
  ChildProcess();
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  std::uint32_t Id() const { return id_; }

  // Ends it, and returns when the system does not list it any more.
  void End();

 private:
  std::uint32_t id_ = 0;
  void* handle_ = nullptr;
};
