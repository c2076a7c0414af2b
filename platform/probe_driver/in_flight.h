// Counts what a device object has in flight, so that its destruction can wait for the end of it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace probe_driver {

// Shared by the device object and by every transfer in flight, so that the last End touches
// nothing that is gone. It is awaited after the last Begin.
class InFlight {
 public:
  void Begin() { count_.fetch_add(1); }
  void End() {
    if (count_.fetch_sub(1) == 1 && awaited_.load()) {
      const std::lock_guard lock(mutex_);
      none_.notify_all();
    }
  }
  void AwaitNone() {
    awaited_.store(true);
    std::unique_lock lock(mutex_);
    none_.wait(lock, [&] { return count_.load() == 0; });
  }
  bool IsNone() const { return count_.load() == 0; }
  // False when something is left after `longest`.
  bool AwaitNoneFor(std::chrono::seconds longest) {
    awaited_.store(true);
    std::unique_lock lock(mutex_);
    return none_.wait_for(lock, longest, [&] { return count_.load() == 0; });
  }

 private:
  std::atomic<std::uint32_t> count_{0};
  std::atomic<bool> awaited_{false};
  std::mutex mutex_;
  std::condition_variable none_;
};

}  // namespace probe_driver
