#include "platform/linux/kernel/threads.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <utility>

#include "platform/linux/kernel/events.h"
#include "platform/linux/kernel/handle_table.h"

namespace linux_host {

void Thread::End() {
  DispatcherLock lock;
  ended_.store(true, std::memory_order_release);
  while (WaitEntry* waiter = FirstWaiter()) GrantTo(lock, *waiter, WAIT_OBJECT_0);
}

std::optional<DWORD> Thread::TryTake(ThreadRecord&) {
  if (ended_.load(std::memory_order_acquire)) return WAIT_OBJECT_0;
  return std::nullopt;
}

namespace {

struct Launch {
  std::function<DWORD()> body;
  ObjectRef<Thread> thread;
  std::atomic<DWORD> thread_id = 0;
};

// What the new thread and its starter share until the thread has begun.
using SharedLaunch = std::shared_ptr<Launch>;

void* RunThread(void* argument) {
  SharedLaunch launch = std::move(*static_cast<SharedLaunch*>(argument));
  delete static_cast<SharedLaunch*>(argument);
  const std::function<DWORD()> body = std::move(launch->body);
  const ObjectRef<Thread> thread = std::move(launch->thread);
  ThreadRecord& record = CurrentThread();
  {
    DispatcherLock lock;
    lock.SetTakesPart(record, true);
  }
  launch->thread_id.store(record.thread_id, std::memory_order_release);
  launch->thread_id.notify_one();
  launch.reset();

  body();
  // In this order: whoever waits for the thread runs again before the test clock stops counting it,
  // and finds its mutexes free.
  AbandonOwnedMutexes(record);
  if (thread) thread->End();
  DispatcherLock lock;
  lock.SetTakesPart(record, false);
  return nullptr;
}

}  // namespace

DWORD StartThread(std::function<DWORD()> body, ObjectRef<Thread> thread, SIZE_T stack_size) {
  const auto launch = std::make_shared<Launch>();
  launch->body = std::move(body);
  launch->thread = std::move(thread);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  if (stack_size > 0) {
    pthread_attr_setstacksize(&attributes, std::max<std::size_t>(stack_size, PTHREAD_STACK_MIN));
  }
  pthread_t id;
  auto argument = std::make_unique<SharedLaunch>(launch);
  const int error = pthread_create(&id, &attributes, RunThread, argument.get());
  pthread_attr_destroy(&attributes);
  if (error != 0) return 0;
  (void)argument.release();
  launch->thread_id.wait(0, std::memory_order_acquire);
  return launch->thread_id.load(std::memory_order_acquire);
}

}  // namespace linux_host

using namespace linux_host;

HANDLE CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T stack_size, LPTHREAD_START_ROUTINE start,
                    LPVOID parameter, DWORD flags, LPDWORD thread_id) {
  if (!start || flags != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const auto thread = MakeObject<Thread>();
  const HANDLE handle = MakeHandle(ObjectRef<Thread>(thread));
  if (!handle) return nullptr;
  const DWORD id = StartThread([start, parameter] { return start(parameter); }, thread, stack_size);
  if (id == 0) {
    CloseHandle(handle);
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  if (thread_id) *thread_id = id;
  return handle;
}

DWORD GetCurrentThreadId() {
  thread_local const DWORD id = static_cast<DWORD>(syscall(SYS_gettid));
  return id;
}

DWORD GetCurrentProcessId() { return static_cast<DWORD>(getpid()); }
