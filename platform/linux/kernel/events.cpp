#include "platform/linux/kernel/events.h"

#include <string>

#include "platform/linux/kernel/clock.h"
#include "platform/linux/kernel/handle_table.h"
#include "platform/linux/kernel/object_names.h"

namespace linux_host {

std::optional<DWORD> Event::TryTake(ThreadRecord&) {
  std::uint32_t state = state_.load(std::memory_order_acquire);
  while (state & kSignalled) {
    if (manual_reset_) return WAIT_OBJECT_0;
    if (state_.compare_exchange_weak(state, state & ~kSignalled, std::memory_order_acq_rel)) {
      return WAIT_OBJECT_0;
    }
  }
  return std::nullopt;
}

std::optional<DWORD> Event::TakeAfterWork(ThreadRecord& self, Deadline until) {
  WaitingWork* const work = work_.load(std::memory_order_acquire);
  std::optional<DWORD> result;
  // Work is done in real time.
  if (!work || TestClockLives()) return result;
  const auto take = [&] {
    result = TryTake(self);
    return result.has_value();
  };
  using std::chrono::steady_clock;
  work->WorkUntil(take, steady_clock::time_point(std::chrono::nanoseconds(until)));
  return result;
}

void Event::Set() {
  std::uint32_t state = state_.load(std::memory_order_relaxed);
  while (!(state & kWaiters)) {
    if (state_.compare_exchange_weak(state, state | kSignalled, std::memory_order_acq_rel)) return;
  }
  DispatcherLock lock;
  if (manual_reset_) {
    state_.fetch_or(kSignalled, std::memory_order_acq_rel);
    while (WaitEntry* waiter = FirstWaiter()) GrantTo(lock, *waiter, WAIT_OBJECT_0);
  } else if (WaitEntry* waiter = FirstWaiter()) {
    GrantTo(lock, *waiter, WAIT_OBJECT_0);
  } else {
    state_.fetch_or(kSignalled, std::memory_order_acq_rel);
  }
}

void Event::MarkWaiters(bool present) {
  if (present) {
    state_.fetch_or(kWaiters, std::memory_order_acq_rel);
  } else {
    state_.fetch_and(~kWaiters, std::memory_order_acq_rel);
  }
}

}  // namespace linux_host

using namespace linux_host;

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manual_reset, BOOL initial_state, LPCWSTR name) {
  const ObjectName parsed = ParseObjectName(name);
  if (parsed.error != ERROR_SUCCESS) {
    SetLastError(parsed.error);
    return nullptr;
  }
  if (parsed.name.empty()) {
    SetLastError(ERROR_SUCCESS);
    return MakeHandle(MakeObject<Event>(manual_reset != FALSE, initial_state != FALSE));
  }
  return Names().OpenOrCreate(parsed.name, Event::kKind, [&] {
    return ObjectRef<KernelObject>(
        MakeObject<Named<Event>>(parsed.name, manual_reset != FALSE, initial_state != FALSE));
  });
}

BOOL SetEvent(HANDLE event) {
  const auto object = LookUp<Event>(event);
  if (!object) return FALSE;
  object->Set();
  return TRUE;
}

BOOL ResetEvent(HANDLE event) {
  const auto object = LookUp<Event>(event);
  if (!object) return FALSE;
  object->Reset();
  return TRUE;
}
