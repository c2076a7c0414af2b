#include "sim/timer_thread.h"

#include <utility>

namespace sim {

TimerThread::TimerThread() : thread_([this] { Run(); }) {}

TimerThread::~TimerThread() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void TimerThread::CallAfter(std::uint64_t delay_ms, std::function<void()> action) {
  const auto time = Clock::now() + std::chrono::milliseconds(delay_ms);
  {
    const std::lock_guard lock(mutex_);
    actions_.emplace(time, std::move(action));
  }
  changed_.notify_one();
}

void TimerThread::Run() {
  std::unique_lock lock(mutex_);
  while (!ending_) {
    if (actions_.empty()) {
      changed_.wait(lock);
    } else if (const auto time = actions_.begin()->first; time > Clock::now()) {
      changed_.wait_until(lock, time);
    } else {
      const std::function<void()> action = std::move(actions_.begin()->second);
      actions_.erase(actions_.begin());
      lock.unlock();
      action();
      lock.lock();
    }
  }
}

}  // namespace sim
