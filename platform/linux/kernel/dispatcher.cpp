#include "platform/linux/kernel/dispatcher.h"

#include <errno.h>
#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/linux/kernel/clock.h"

namespace linux_host {
namespace {

// Never destroyed, as are the records: threads that outlive main still use them.
struct Globals {
  std::mutex mutex;
  DispatcherState state;
  std::vector<ThreadRecord*> spare_records;
};

Globals& TheGlobals() {
  static auto& globals = *new Globals;
  return globals;
}

void FutexWait(const std::atomic<std::uint32_t>& word, std::uint32_t seen, Deadline deadline) {
  timespec until;
  until.tv_sec = deadline / 1'000'000'000;
  until.tv_nsec = deadline % 1'000'000'000;
  syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, seen, deadline == kNever ? nullptr : &until,
          nullptr, FUTEX_BITSET_MATCH_ANY);
}

void FutexWake(const std::atomic<std::uint32_t>& word) {
  syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

thread_local ThreadRecord* t_record = nullptr;

// Its destruction is the end of the thread.
struct ThreadEnd {
  ~ThreadEnd() {
    ThreadRecord* record = t_record;
    const bool main_thread = getpid() == gettid();
    if (!record || main_thread) return;
    AbandonOwnedMutexes(*record);
    if (record->at_end) record->at_end();
    record->at_end = nullptr;
    t_record = nullptr;
    DispatcherLock lock;
    lock.SetTakesPart(*record, false);
    TheGlobals().spare_records.push_back(record);
  }
};
thread_local ThreadEnd t_thread_end;

ThreadRecord& MakeRecord() {
  [[maybe_unused]] ThreadEnd* const end = &t_thread_end;  // constructs it
  const DispatcherLock lock;
  auto& spare = TheGlobals().spare_records;
  if (spare.empty()) {
    t_record = new ThreadRecord;
  } else {
    t_record = spare.back();
    spare.pop_back();
  }
  t_record->thread_id = GetCurrentThreadId();
  return *t_record;
}

}  // namespace

DispatcherState& State() { return TheGlobals().state; }

ThreadRecord& CurrentThread() { return t_record ? *t_record : MakeRecord(); }

DispatcherLock::DispatcherLock() { Lock(); }

void DispatcherLock::Lock() {
  TheGlobals().mutex.lock();
  locked_ = true;
}

void DispatcherLock::Unlock() {
  if (!locked_) return;
  locked_ = false;
  TheGlobals().mutex.unlock();
  // Woken with the lock free, so that they need not wait for it.
  for (std::size_t i = 0; i < wakes_; ++i) FutexWake(pending_[i]->wake_word);
  wakes_ = 0;
}

void DispatcherLock::Wake(ThreadRecord& thread) {
  thread.wake_word.fetch_add(1, std::memory_order_release);
  if (thread.wake_descriptor >= 0) {
    // At once: the descriptor may be closed as soon as the lock is free.
    const std::uint64_t one = 1;
    while (write(thread.wake_descriptor, &one, sizeof(one)) < 0 && errno == EINTR) {
    }
  } else if (wakes_ < pending_.size()) {
    // The thread may have gone on, or ended, by then: the word is never freed, and whoever waits on
    // it looks again.
    pending_[wakes_++] = &thread;
  } else {
    FutexWake(thread.wake_word);
  }
}

void DispatcherLock::Link(ThreadRecord& self, Deadline deadline) {
  // An action of the test clock runs on a thread that is blocked already, and must not wait.
  if (self.blocked) std::abort();
  DispatcherState& state = State();
  self.blocked = true;
  self.granted = false;
  self.deadline = deadline;
  self.previous_blocked = nullptr;
  self.next_blocked = state.blocked_threads;
  if (state.blocked_threads) state.blocked_threads->previous_blocked = &self;
  state.blocked_threads = &self;
  if (self.takes_part) ++state.taking_part_and_blocked;
  TestClockSawBlock();
  MoveTestClockIfAllBlocked(*this);
}

void DispatcherLock::Unblock(ThreadRecord& thread) {
  DispatcherState& state = State();
  thread.blocked = false;
  if (thread.takes_part) --state.taking_part_and_blocked;
  (thread.previous_blocked ? thread.previous_blocked->next_blocked : state.blocked_threads) =
      thread.next_blocked;
  if (thread.next_blocked) thread.next_blocked->previous_blocked = thread.previous_blocked;
}

void DispatcherLock::Grant(ThreadRecord& thread, DWORD result) {
  Unblock(thread);
  thread.granted = true;
  thread.result = result;
  Wake(thread);
}

void DispatcherLock::CarryBlocksOver(Deadline from, Deadline to) {
  for (ThreadRecord* thread = State().blocked_threads; thread; thread = thread->next_blocked) {
    if (thread->deadline != kNever) thread->deadline += to - from;
    Wake(*thread);
  }
}

void DispatcherLock::ExpireBlocks(Deadline now) {
  for (ThreadRecord* thread = State().blocked_threads; thread;) {
    ThreadRecord* const next = thread->next_blocked;
    if (thread->deadline <= now) {
      Unblock(*thread);
      Wake(*thread);
    }
    thread = next;
  }
}

bool DispatcherLock::Block(ThreadRecord& self, Deadline deadline) {
  self.wake_descriptor = -1;
  Link(self, deadline);
  while (self.blocked) {
    // The deadline may have been carried over to another clock meanwhile.
    const bool test_clock = TestClockLives();
    if (!test_clock && self.deadline != kNever && Now() >= self.deadline) {
      Unblock(self);
      break;
    }
    const std::uint32_t seen = self.wake_word.load(std::memory_order_acquire);
    const Deadline until = test_clock ? kNever : self.deadline;
    Unlock();
    FutexWait(self.wake_word, seen, until);
    Lock();
  }
  return self.granted;
}

void DispatcherLock::BeginBlock(ThreadRecord& self, Deadline deadline, int wake_descriptor) {
  self.wake_descriptor = wake_descriptor;
  Link(self, deadline);
}

bool DispatcherLock::EndBlock(ThreadRecord& self) {
  if (self.blocked) Unblock(self);
  self.wake_descriptor = -1;
  return self.granted;
}

void DispatcherLock::SetTakesPart(ThreadRecord& thread, bool takes_part) {
  if (thread.takes_part == takes_part) return;
  thread.takes_part = takes_part;
  DispatcherState& state = State();
  state.taking_part += takes_part ? 1 : -1;
  if (thread.blocked) state.taking_part_and_blocked += takes_part ? 1 : -1;
  if (!takes_part) {
    TestClockSawBlock();
    MoveTestClockIfAllBlocked(*this);
  }
}

}  // namespace linux_host

void Sleep(DWORD ms) {
  using namespace linux_host;
  if (ms == 0) {
    sched_yield();
    return;
  }
  ThreadRecord& self = CurrentThread();
  DispatcherLock lock;
  lock.Block(self, DeadlineIn(ms));
}
