// The events that another process reports, seen by the test as its debugger.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace system_windows {

// Stands in for the system's event log, which may keep nothing, as under Wine: the process's calls
// for it are answered here. The process does not outlive it.
class EventLogOf {
 public:
  // The process has made no such call yet that anybody wants to see.
  explicit EventLogOf(DWORD process_id);
  ~EventLogOf();
  EventLogOf(const EventLogOf&) = delete;
  EventLogOf& operator=(const EventLogOf&) = delete;

  // So far, each as source|type|category|id|string.
  std::vector<std::wstring> Events() const;

 private:
  enum class Call { kRegister, kReport };

  // All on the thread that is the debugger.
  void Run();
  void Intercept(const char* function, Call call);
  bool OnException(const DEBUG_EVENT& event);
  void OnCall(Call call, CONTEXT& context);
  std::uint64_t Load(std::uint64_t address) const;
  std::wstring LoadText(std::uint64_t address) const;

  const DWORD process_id_;
  HANDLE process_ = nullptr;
  std::map<std::uint64_t, Call> calls_;  // by the function's address
  std::wstring source_;                  // that was registered last
  std::atomic<bool> ending_ = false;
  std::atomic<bool> watching_ = false;
  mutable std::mutex mutex_;
  std::vector<std::wstring> events_;
  std::thread debugger_;
};

}  // namespace system_windows
