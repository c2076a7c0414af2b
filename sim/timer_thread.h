// A thread that runs actions at their time, in real time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace sim {

class TimerThread {
 public:
  TimerThread();
  // Drops the actions that have not run and waits for the one that runs.
  ~TimerThread();
  TimerThread(const TimerThread&) = delete;
  TimerThread& operator=(const TimerThread&) = delete;

  // Any thread. Actions of one time run in the order of the calls.
  void CallAfter(std::uint64_t delay_ms, std::function<void()> action);

 private:
  using Clock = std::chrono::steady_clock;

  void Run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::multimap<Clock::time_point, std::function<void()>> actions_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace sim
