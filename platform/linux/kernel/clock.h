// The clock behind sleeps, tick counts, timers and time-outs: the monotonic one, or the test clock
// of platform/linux/test_host.h while one lives. The functions here want the dispatcher lock held,
// apart from TestClockLives and MonotonicNow.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "platform/linux/kernel/dispatcher.h"

namespace linux_host {

// May be asked without the lock, too.
bool TestClockLives();

// The monotonic clock, whether a test clock lives or not.
Deadline MonotonicNow();

// A thread that takes part has blocked or ended: whoever lets the clock settle looks again.
void TestClockSawBlock();

// The test clock begins at `start` or ends; the time that is left of every block is carried over.
void BeginTestClock(DispatcherLock& lock, Deadline start);
void EndTestClock(DispatcherLock& lock);

void AddTestClockAction(Deadline time, std::function<void()> action);

// Moves the test clock to `target` in steps from deadline to deadline, and lets the threads that
// each step wakes block again before the next, unless they block elsewhere for long.
void AdvanceTestClock(DispatcherLock& lock, ThreadRecord& self, Deadline target);

// The wall-clock time in seconds since the epoch that is shown instead of the real one; negative:
// the real one. Without the lock.
void SetFixedWallClock(std::int64_t seconds);

}  // namespace linux_host
