#include "platform/windows/test_host/clock.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <utility>
#include <vector>

#include "platform/windows/test_host/made_once.h"
#include "platform/windows/test_host/system_calls.h"

namespace test_host::clock {
namespace {

// The system's own locks: those of the standard library wait through calls that are taken over.
class Lock {
 public:
  Lock() { AcquireSRWLockExclusive(&mutex); }
  ~Lock() { ReleaseSRWLockExclusive(&mutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void WaitFor(CONDITION_VARIABLE& condition, DWORD ms) {
    SleepConditionVariableSRW(&condition, &mutex, ms, 0);
  }

  // While one lives, the lock is free.
  struct Gap {
    Gap() { ReleaseSRWLockExclusive(&mutex); }
    ~Gap() { AcquireSRWLockExclusive(&mutex); }
    Gap(const Gap&) = delete;
    Gap& operator=(const Gap&) = delete;
  };

 private:
  static constinit inline SRWLOCK mutex = SRWLOCK_INIT;
};

struct ThreadRecord {
  HANDLE wake = nullptr;
  bool takes_part = false;
  bool blocked = false;
  std::uint64_t deadline = kNever;
};

struct Action {
  std::uint64_t id;
  std::function<void()> run;
};

constinit std::atomic<bool> lives = false;
constinit std::atomic<std::uint64_t> now_ms = 0;

// Guarded by the lock. Made by Begin or the first thread, never destroyed.
struct State {
  int running = 0;  // of the threads that take part, those not blocked
  std::vector<ThreadRecord*> blocked;
  std::vector<HANDLE> ending;  // threads that have left, until their handles are signalled
  std::multimap<std::uint64_t, Action> actions;
  std::uint64_t next_id = 1;
  std::uint64_t running_action = 0;
  DWORD acting_thread = 0;
  bool moving = false;
  CONDITION_VARIABLE action_over = CONDITION_VARIABLE_INIT;
  CONDITION_VARIABLE settled = CONDITION_VARIABLE_INIT;
};

constinit MadeOnce<State> TheState;

// The slot is made before any thread can take part; until then no thread has a record.
DWORD Slot() {
  static const DWORD slot = TlsAlloc();
  return slot;
}

constinit std::atomic<bool> anyone_took_part = false;

ThreadRecord* FindRecord() {
  if (!anyone_took_part.load(std::memory_order_acquire)) return nullptr;
  const DWORD error = GetLastError();  // which TlsGetValue resets
  auto* record = static_cast<ThreadRecord*>(TlsGetValue(Slot()));
  SetLastError(error);
  return record;
}

ThreadRecord& RecordOfThisThread() {
  Slot();
  anyone_took_part.store(true, std::memory_order_release);
  ThreadRecord* record = FindRecord();
  if (!record) {
    record = new ThreadRecord;
    record->wake = system_call::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    TlsSetValue(Slot(), record);
  }
  return *record;
}

void Unblock(ThreadRecord& thread) {
  State& state = TheState();
  std::erase(state.blocked, &thread);
  thread.blocked = false;
  ++state.running;
}

template <typename Condition>
void Wake(Condition condition) {
  const std::vector<ThreadRecord*> blocked = TheState().blocked;
  for (ThreadRecord* thread : blocked) {
    if (!condition(*thread)) continue;
    Unblock(*thread);
    system_call::SetEvent(thread->wake);
  }
}

void WakeAll() {
  Wake([](const ThreadRecord&) { return true; });
}

void RunAction(State& state) {
  const auto first = state.actions.begin();
  const Action action = std::move(first->second);
  state.actions.erase(first);
  state.running_action = action.id;
  state.acting_thread = GetCurrentThreadId();
  {
    const Lock::Gap gap;
    action.run();
  }
  state.running_action = 0;
  WakeAllConditionVariable(&state.action_over);
}

// The next moment at which something is due; kNever when nothing is.
std::uint64_t NextMoment() {
  const State& state = TheState();
  std::uint64_t next = state.actions.empty() ? kNever : state.actions.begin()->first;
  for (const ThreadRecord* thread : state.blocked) next = std::min(next, thread->deadline);
  return next;
}

void MoveTo(std::uint64_t moment) {
  State& state = TheState();
  if (moment > now_ms) now_ms = moment;
  while (!state.actions.empty() && state.actions.begin()->first <= moment) RunAction(state);
  Wake([moment](const ThreadRecord& thread) { return thread.deadline <= moment; });
}

// Lets threads that have left end altogether: only then are their handles signalled and their
// mutexes free for those who wait.
void AwaitEndingThreads() {
  State& state = TheState();
  while (!state.ending.empty()) {
    const HANDLE thread = state.ending.back();
    state.ending.pop_back();
    {
      const Lock::Gap gap;
      system_call::WaitForSingleObject(thread, INFINITE);
      system_call::CloseHandle(thread);
    }
    WakeAll();
  }
}

void MoveIfAllBlocked() {
  State& state = TheState();
  while (lives && !state.moving && state.running == 0) {
    state.moving = true;
    AwaitEndingThreads();
    const std::uint64_t next = state.running == 0 ? NextMoment() : kNever;
    if (next != kNever) MoveTo(next);
    state.moving = false;
    if (next == kNever) return;
  }
}

// Waits until no more than `count` threads run, for a while: one may block where the clock cannot
// see it.
void Settle(Lock& lock, int count) {
  constexpr DWORD kPatienceMs = 1000;
  State& state = TheState();
  const ULONGLONG limit = system_call::GetTickCount64() + kPatienceMs;
  for (;;) {
    AwaitEndingThreads();
    const ULONGLONG now = system_call::GetTickCount64();
    if (state.running <= count || now >= limit) return;
    lock.WaitFor(state.settled, static_cast<DWORD>(limit - now));
  }
}

}  // namespace

bool Lives() { return lives.load(std::memory_order_relaxed); }

std::uint64_t NowMs() { return now_ms.load(std::memory_order_relaxed); }

bool TakesPart() {
  const ThreadRecord* record = FindRecord();
  return record && record->takes_part;
}

bool GovernsThisThread() { return Lives() && TakesPart(); }

void Join() {
  ThreadRecord& record = RecordOfThisThread();
  const Lock lock;
  if (!std::exchange(record.takes_part, true)) ++TheState().running;
}

void Leave() {
  ThreadRecord& record = RecordOfThisThread();
  const Lock lock;
  if (std::exchange(record.takes_part, false)) --TheState().running;
}

void ExpectThread() {
  const Lock lock;
  ++TheState().running;
}

void UnexpectThread() {
  const Lock lock;
  --TheState().running;
}

void BeginExpectedThread() { RecordOfThisThread().takes_part = true; }

void EndThread() {
  ThreadRecord& record = RecordOfThisThread();
  HANDLE thread = nullptr;
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread,
                  SYNCHRONIZE, FALSE, 0);
  system_call::CloseHandle(record.wake);
  TlsSetValue(Slot(), nullptr);
  {
    const Lock lock;
    State& state = TheState();
    --state.running;
    state.ending.push_back(thread);
    // They block again, and whoever does so last awaits this thread's end.
    WakeAll();
    WakeAllConditionVariable(&state.settled);
  }
  delete &record;
}

void Begin(std::uint64_t start_ms) {
  const Lock lock;
  TheState();
  now_ms = start_ms;
  lives = true;
}

void End() {
  const Lock lock;
  lives = false;
  TheState().actions.clear();
  WakeAll();
}

void Advance(std::uint64_t ms) {
  Lock lock;
  State& state = TheState();
  const int own = TakesPart() ? 1 : 0;
  const std::uint64_t target = now_ms + ms;
  state.moving = true;
  Settle(lock, own);
  const int never_settling = std::max(state.running, own);
  for (std::uint64_t next = NextMoment(); next <= target; next = NextMoment()) {
    MoveTo(next);
    Settle(lock, never_settling);
  }
  if (target > now_ms) now_ms = target;
  state.moving = false;
  MoveIfAllBlocked();
}

std::uint64_t CallAt(std::uint64_t time_ms, std::function<void()> action) {
  const Lock lock;
  State& state = TheState();
  const std::uint64_t id = state.next_id++;
  state.actions.emplace(time_ms, Action{id, std::move(action)});
  return id;
}

void CancelCall(std::uint64_t id) {
  Lock lock;
  State& state = TheState();
  std::erase_if(state.actions, [id](const auto& entry) { return entry.second.id == id; });
  while (state.running_action == id && state.acting_thread != GetCurrentThreadId()) {
    lock.WaitFor(state.action_over, INFINITE);
  }
}

DWORD Wait(const HANDLE* handles, DWORD count, DWORD timeout_ms) {
  ThreadRecord& self = RecordOfThisThread();
  std::vector<HANDLE> all(handles, handles + count);
  all.push_back(self.wake);
  const std::uint64_t deadline = timeout_ms == INFINITE ? kNever : NowMs() + timeout_ms;
  for (;;) {
    {
      const Lock lock;
      // Under the lock, so that who sets a handle from now on finds this thread blocked and wakes
      // it.
      if (count > 0) {
        const DWORD result = system_call::WaitForMultipleObjects(count, handles, FALSE, DWORD{0});
        if (result != WAIT_TIMEOUT) return result;
      }
      if (now_ms >= deadline) return WAIT_TIMEOUT;
      if (!lives) break;
      State& state = TheState();
      system_call::ResetEvent(self.wake);
      self.blocked = true;
      self.deadline = deadline;
      state.blocked.push_back(&self);
      --state.running;
      WakeAllConditionVariable(&state.settled);
      MoveIfAllBlocked();
    }
    const DWORD result = system_call::WaitForMultipleObjects(static_cast<DWORD>(all.size()),
                                                             all.data(), FALSE, DWORD{INFINITE});
    const Lock lock;
    if (self.blocked) Unblock(self);
    if (result != WAIT_OBJECT_0 + count) return result;
  }
  // The clock has ended: the rest of the time is real.
  const DWORD left = deadline == kNever ? INFINITE : static_cast<DWORD>(deadline - NowMs());
  if (count > 0) return system_call::WaitForMultipleObjects(count, handles, FALSE, left);
  system_call::Sleep(left);
  return WAIT_TIMEOUT;
}

void WakeWaiters() {
  if (!Lives()) return;
  const Lock lock;
  WakeAll();
}

}  // namespace test_host::clock
