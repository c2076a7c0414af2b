// Who is blocked: one lock under which threads block, are woken, and under which the test clock can
// see whether anything still runs.
//
// Calls that need not block never come here. A thread that must blocks with a deadline until
// another thread grants what it waits for, or until the deadline has passed. While a test clock
// lives, deadlines are times of that clock, which moves when every thread that takes part in it is
// blocked.
#pragma once

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <limits>
#include <mutex>
#include <vector>

namespace linux_host {

class Mutex;

// Nanoseconds of the present clock: the monotonic clock, or the test clock while one lives.
using Deadline = std::int64_t;
inline constexpr Deadline kNever = std::numeric_limits<Deadline>::max();
inline constexpr Deadline kNsPerMs = 1'000'000;

Deadline Now();
// `timeout_ms` from now; INFINITE is kNever.
Deadline DeadlineIn(DWORD timeout_ms);

// A thread as far as blocking is concerned. Records are kept and used again when their thread has
// ended, so that a late wake-up never meets freed memory. Guarded by the dispatcher lock unless
// stated.
struct ThreadRecord {
  DWORD thread_id = 0;      // written once, before the record is shared
  bool takes_part = false;  // in the test clock
  bool blocked = false;     // and not yet granted or expired
  bool granted = false;
  DWORD result = 0;  // what was granted
  Deadline deadline = kNever;
  int wake_descriptor = -1;  // while the thread blocks in ppoll; otherwise it waits on wake_word
  std::atomic<std::uint32_t> wake_word = 0;
  ThreadRecord* next_blocked = nullptr;
  ThreadRecord* previous_blocked = nullptr;

  void (*at_end)() = nullptr;         // called on the thread when it ends; its own, no lock
  std::vector<Mutex*> owned_mutexes;  // with a reference each; the thread's own, no lock
};

// The calling thread's record, made at first use.
ThreadRecord& CurrentThread();

// Gives up the mutexes that the calling thread owns, which become abandoned. Runs by itself at the
// end of every thread but the main one, whose end is the process's: what that holds then stays held
// until the process is gone.
void AbandonOwnedMutexes(ThreadRecord& thread);

// The dispatcher lock, held. Threads that were granted something are woken when it is let go.
class DispatcherLock {
 public:
  DispatcherLock();
  ~DispatcherLock() { Unlock(); }
  DispatcherLock(const DispatcherLock&) = delete;
  DispatcherLock& operator=(const DispatcherLock&) = delete;

  void Lock();
  void Unlock();

  // Ends the block of `thread` with `result`. It is blocked and not granted yet.
  void Grant(ThreadRecord& thread, DWORD result);

  // Blocks the calling thread until it is granted (true) or `deadline` has passed (false). The lock
  // is released meanwhile.
  bool Block(ThreadRecord& self, Deadline deadline);

  // The same for a thread that waits by its own means, with the lock released between the two. A
  // grant, and the expiry under a test clock, add 1 to the eventfd `wake_descriptor`. EndBlock
  // tells whether it was granted.
  void BeginBlock(ThreadRecord& self, Deadline deadline, int wake_descriptor);
  bool EndBlock(ThreadRecord& self);

  // The test clock counts the thread from now on, or no longer.
  void SetTakesPart(ThreadRecord& thread, bool takes_part);

  // For the test clock: ends the blocks whose deadline is not after `now`; carries the deadlines of
  // all blocks over from the clock at `from` to the clock at `to`.
  void ExpireBlocks(Deadline now);
  void CarryBlocksOver(Deadline from, Deadline to);

 private:
  void Wake(ThreadRecord& thread);
  void Unblock(ThreadRecord& thread);
  void Link(ThreadRecord& self, Deadline deadline);

  bool locked_ = false;
  std::size_t wakes_ = 0;
  std::array<ThreadRecord*, 8> pending_;  // to be woken when the lock is let go
};

// Moves the test clock on when every thread that takes part is blocked. The lock is held, and
// released while the actions of the clock run.
void MoveTestClockIfAllBlocked(DispatcherLock& lock);

// What the dispatcher and the clock know together; guarded by the dispatcher lock.
struct DispatcherState {
  ThreadRecord* blocked_threads = nullptr;
  int taking_part = 0;
  int taking_part_and_blocked = 0;
};
DispatcherState& State();

}  // namespace linux_host
