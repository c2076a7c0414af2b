// A bus's arrivals and removals on their way to its listener.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "platform/probe_driver/usb_bus.h"

namespace probe_driver {

// Any thread. Its lock is the last one that is taken, so a bus may call all but Tell while it holds
// its own.
class BusNews {
 public:
  // As UsbBus::SetListener. What waits to be told belongs to the list that the new one sees.
  void SetListener(UsbBusListener* listener) {
    std::unique_lock lock(mutex_);
    waiting_.clear();
    const UsbBusListener* const previous = std::exchange(listener_, listener);
    if (teller_ == std::this_thread::get_id()) return;
    told_.wait(lock, [&] { return !calling_ || calling_ != previous; });
  }

  // Without a listener nobody has seen the list of before, and there is nothing to tell.
  void Add(bool arrived, const std::string& path) {
    const std::lock_guard lock(mutex_);
    if (listener_) waiting_.emplace_back(arrived, path);
  }

  bool IsEmpty() {
    const std::lock_guard lock(mutex_);
    return waiting_.empty();
  }

  // Tells what waits, one after another. While another thread does so, it is left to that one.
  void Tell() {
    std::unique_lock lock(mutex_);
    if (teller_ != std::thread::id()) return;
    teller_ = std::this_thread::get_id();
    while (!waiting_.empty()) {
      const auto [arrived, path] = std::move(waiting_.front());
      waiting_.pop_front();
      calling_ = listener_;
      lock.unlock();
      arrived ? calling_->OnDeviceArrived(path) : calling_->OnDeviceRemoved(path);
      lock.lock();
      calling_ = nullptr;
      told_.notify_all();
    }
    teller_ = {};
  }

 private:
  std::mutex mutex_;
  std::condition_variable told_;
  std::deque<std::pair<bool, std::string>> waiting_;  // arrived or removed, path
  UsbBusListener* listener_ = nullptr;
  UsbBusListener* calling_ = nullptr;
  std::thread::id teller_;
};

}  // namespace probe_driver
