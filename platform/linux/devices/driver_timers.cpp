#include "platform/linux/devices/driver_timers.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <utility>

#include "platform/linux/kernel/dispatcher.h"
#include "platform/linux/kernel/events.h"
#include "platform/linux/kernel/threads.h"

namespace linux_host {
namespace {

class TimerThread : public probe_driver::DriverTimers {
 public:
  std::uint64_t Start(std::uint32_t ms, std::function<void()> fire) override {
    const Deadline due = DeadlineIn(ms);
    const std::lock_guard lock(mutex_);
    const std::uint64_t id = next_id_++;
    timers_.emplace(id, Timer{due, std::move(fire)});
    by_time_.emplace(due, id);
    if (thread_id_ == 0) thread_id_ = StartThread([this] { return Run(); });
    // A timer that is due later than the next wake-up is seen then.
    if (due < wakes_at_) wake_->Set();
    return id;
  }

  void Stop(std::uint64_t id) override {
    std::unique_lock lock(mutex_);
    if (const auto found = timers_.find(id); found != timers_.end()) {
      by_time_.erase({found->second.due, id});
      timers_.erase(found);
      return;
    }
    if (GetCurrentThreadId() == thread_id_) return;
    finished_.wait(lock, [&] { return running_ != id; });
  }

 private:
  struct Timer {
    Deadline due;
    std::function<void()> fire;
  };

  DWORD Run() {
    for (;;) {
      const DWORD wait_ms = FireWhatIsDue();
      WaitForObject(*wake_, wait_ms);
    }
  }

  // Returns the milliseconds until the next timer is due.
  DWORD FireWhatIsDue() {
    std::unique_lock lock(mutex_);
    while (!by_time_.empty()) {
      const auto [due, id] = *by_time_.begin();
      const Deadline left = due - Now();
      if (left > 0) {
        wakes_at_ = due;
        return static_cast<DWORD>((left + kNsPerMs - 1) / kNsPerMs);
      }
      const auto found = timers_.find(id);
      const std::function<void()> fire = std::move(found->second.fire);
      by_time_.erase(by_time_.begin());
      timers_.erase(found);
      running_ = id;
      lock.unlock();
      fire();
      lock.lock();
      running_ = 0;
      finished_.notify_all();
    }
    wakes_at_ = kNever;
    return INFINITE;
  }

  const ObjectRef<Event> wake_ = MakeObject<Event>(false, false);
  std::mutex mutex_;
  std::condition_variable finished_;
  std::map<std::uint64_t, Timer> timers_;
  std::set<std::pair<Deadline, std::uint64_t>> by_time_;
  std::uint64_t next_id_ = 1;
  std::uint64_t running_ = 0;
  DWORD thread_id_ = 0;
  Deadline wakes_at_ = kNever;  // when the thread looks again by itself
};

}  // namespace

// Never destroyed: its thread runs until the process has ended.
probe_driver::DriverTimers& Timers() {
  static auto& timers = *new TimerThread;
  return timers;
}

}  // namespace linux_host
