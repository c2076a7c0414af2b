// Event objects.
#pragma once

#include <atomic>

#include "base/waiting_work.h"
#include "platform/linux/kernel/waits.h"

namespace linux_host {

// Setting, resetting and taking an event on which nobody is blocked is one atomic operation.
class Event : public Waitable {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kEvent;

  Event(bool manual_reset, bool signalled)
      : Waitable(kKind), manual_reset_(manual_reset), state_(signalled ? kSignalled : 0) {}

  void Set();
  void Reset() {
    if (state_.load(std::memory_order_acquire) & kSignalled) {
      state_.fetch_and(~kSignalled, std::memory_order_acq_rel);
    }
  }

  // What a thread that waits for the event does meanwhile, from now on; null: it blocks. Lives as
  // long as anybody may wait.
  void SetWork(WaitingWork* work) { work_.store(work, std::memory_order_release); }

  std::optional<DWORD> TryTake(ThreadRecord& self) override;
  std::optional<DWORD> TakeAfterWork(ThreadRecord& self, Deadline until) override;

 protected:
  void MarkWaiters(bool present) override;

 private:
  static constexpr std::uint32_t kSignalled = 1;
  static constexpr std::uint32_t kWaiters = 2;

  const bool manual_reset_;
  std::atomic<std::uint32_t> state_;
  std::atomic<WaitingWork*> work_ = nullptr;
};

}  // namespace linux_host
