#include "platform/linux/kernel/clock.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <utility>

namespace linux_host {
namespace {

// The lock guards all but the atomics, which are written under it and read anywhere.
struct TestClockState {
  std::atomic<bool> lives = false;
  std::atomic<Deadline> now = 0;
  bool moving = false;                                     // one thread moves the clock at a time
  std::multimap<Deadline, std::function<void()>> actions;  // equal times in order of insertion

  std::condition_variable_any settled;
  bool someone_settles = false;
};

// Never destroyed: threads that outlive main still use it.
TestClockState& Clock() {
  static auto& clock = *new TestClockState;
  return clock;
}

std::atomic<std::int64_t> g_fixed_wall_clock = -1;

// The next moment at which something is due; kNever when nothing is.
Deadline NextMoment() {
  const TestClockState& clock = Clock();
  Deadline next = clock.actions.empty() ? kNever : clock.actions.begin()->first;
  for (const ThreadRecord* thread = State().blocked_threads; thread;
       thread = thread->next_blocked) {
    next = std::min(next, thread->deadline);
  }
  return next;
}

// Makes it `moment`: first the actions that are due run, which may grant what threads wait for,
// then the deadlines that have passed end.
void MoveTo(DispatcherLock& lock, Deadline moment) {
  TestClockState& clock = Clock();
  if (moment > clock.now.load(std::memory_order_relaxed)) clock.now.store(moment);
  while (!clock.actions.empty() && clock.actions.begin()->first <= moment) {
    const std::function<void()> action = std::move(clock.actions.begin()->second);
    clock.actions.erase(clock.actions.begin());
    lock.Unlock();
    action();
    lock.Lock();
  }
  lock.ExpireBlocks(moment);
}

// Those that take part and run, the caller left out.
int RunningBeside(const ThreadRecord& self) {
  const DispatcherState& state = State();
  return state.taking_part - state.taking_part_and_blocked - (self.takes_part ? 1 : 0);
}

// What a condition variable needs of a lock.
struct Lockable {
  DispatcherLock& dispatcher;
  void lock() { dispatcher.Lock(); }
  void unlock() { dispatcher.Unlock(); }
};

// Waits until no more than `count` threads run beside the caller.
void Settle(DispatcherLock& lock, const ThreadRecord& self, int count) {
  // A thread may block elsewhere, where the clock cannot see it: the clock then moves on without
  // it.
  constexpr auto kPatience = std::chrono::seconds(1);
  TestClockState& clock = Clock();
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  Lockable lockable{lock};
  clock.someone_settles = true;
  while (RunningBeside(self) > count &&
         clock.settled.wait_until(lockable, limit) != std::cv_status::timeout) {
  }
  clock.someone_settles = false;
}

}  // namespace

Deadline MonotonicNow() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * Deadline{1'000'000'000} + now.tv_nsec;
}

bool TestClockLives() { return Clock().lives.load(std::memory_order_relaxed); }

void TestClockSawBlock() {
  if (Clock().someone_settles) Clock().settled.notify_all();
}

void BeginTestClock(DispatcherLock& lock, Deadline start) {
  TestClockState& clock = Clock();
  clock.now.store(start);
  clock.lives.store(true);
  lock.CarryBlocksOver(MonotonicNow(), start);
}

void EndTestClock(DispatcherLock& lock) {
  TestClockState& clock = Clock();
  clock.lives.store(false);
  clock.actions.clear();
  lock.CarryBlocksOver(clock.now.load(), MonotonicNow());
}

void AddTestClockAction(Deadline time, std::function<void()> action) {
  Clock().actions.emplace(time, std::move(action));
}

void AdvanceTestClock(DispatcherLock& lock, ThreadRecord& self, Deadline target) {
  TestClockState& clock = Clock();
  clock.moving = true;
  Settle(lock, self, 0);
  const int never_settling = RunningBeside(self);
  for (Deadline next = NextMoment(); next <= target; next = NextMoment()) {
    MoveTo(lock, next);
    Settle(lock, self, never_settling);
  }
  if (target > clock.now.load()) clock.now.store(target);
  clock.moving = false;
  MoveTestClockIfAllBlocked(lock);
}

void MoveTestClockIfAllBlocked(DispatcherLock& lock) {
  TestClockState& clock = Clock();
  const DispatcherState& state = State();
  while (TestClockLives() && !clock.moving && state.taking_part > 0 &&
         state.taking_part_and_blocked == state.taking_part) {
    const Deadline next = NextMoment();
    if (next == kNever) return;
    clock.moving = true;
    MoveTo(lock, next);
    clock.moving = false;
  }
}

Deadline Now() {
  return TestClockLives() ? Clock().now.load(std::memory_order_relaxed) : MonotonicNow();
}

Deadline DeadlineIn(DWORD timeout_ms) {
  return timeout_ms == INFINITE ? kNever : Now() + timeout_ms * kNsPerMs;
}

void SetFixedWallClock(std::int64_t seconds) { g_fixed_wall_clock = seconds; }

}  // namespace linux_host

ULONGLONG GetTickCount64() {
  return static_cast<ULONGLONG>(linux_host::Now() / linux_host::kNsPerMs);
}

DWORD GetTickCount() { return static_cast<DWORD>(GetTickCount64()); }

void GetLocalTime(LPSYSTEMTIME time) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts;
  const std::int64_t fixed = linux_host::g_fixed_wall_clock;
  if (fixed >= 0) {
    now = {static_cast<time_t>(fixed), 0};
    gmtime_r(&now.tv_sec, &parts);
  } else {
    localtime_r(&now.tv_sec, &parts);
  }
  time->wYear = static_cast<WORD>(parts.tm_year + 1900);
  time->wMonth = static_cast<WORD>(parts.tm_mon + 1);
  time->wDayOfWeek = static_cast<WORD>(parts.tm_wday);
  time->wDay = static_cast<WORD>(parts.tm_mday);
  time->wHour = static_cast<WORD>(parts.tm_hour);
  time->wMinute = static_cast<WORD>(parts.tm_min);
  time->wSecond = static_cast<WORD>(parts.tm_sec);
  time->wMilliseconds = static_cast<WORD>(now.tv_nsec / linux_host::kNsPerMs);
}
