#include <memory>
#include <mutex>
#include <set>

#include "platform/windows/test_host/clock.h"
#include "platform/windows/test_host/device_files.h"
#include "platform/windows/test_host/made_once.h"
#include "platform/windows/test_host/system_calls.h"
#include "platform/windows/test_host/taken_calls.h"

namespace test_host::taken {
namespace {

// The handles that the program itself made. The language's libraries wait, too, for handles of
// their own; those waits stay the system's, and a thread in one counts as running.
class OwnHandles {
 public:
  HANDLE Add(HANDLE handle) {
    if (handle) {
      AcquireSRWLockExclusive(&mutex_);
      handles_.insert(handle);
      ReleaseSRWLockExclusive(&mutex_);
    }
    return handle;
  }

  void Remove(HANDLE handle) {
    AcquireSRWLockExclusive(&mutex_);
    handles_.erase(handle);
    ReleaseSRWLockExclusive(&mutex_);
  }

  bool HoldAll(const HANDLE* handles, DWORD count) {
    AcquireSRWLockShared(&mutex_);
    bool all = true;
    for (DWORD i = 0; i < count; ++i) all = all && handles_.contains(handles[i]);
    ReleaseSRWLockShared(&mutex_);
    return all;
  }

 private:
  SRWLOCK mutex_ = SRWLOCK_INIT;
  std::set<HANDLE> handles_;
};

constinit MadeOnce<OwnHandles> TheOwnHandles;

// Keeps the error that a call has left, over what follows it.
HANDLE AddKeepingError(HANDLE handle) {
  const DWORD error = GetLastError();
  TheOwnHandles().Add(handle);
  SetLastError(error);
  return handle;
}

struct NewThread {
  LPTHREAD_START_ROUTINE start;
  LPVOID parameter;
};

DWORD WINAPI RunThread(LPVOID parameter) {
  const std::unique_ptr<NewThread> thread(static_cast<NewThread*>(parameter));
  clock::BeginExpectedThread();
  const DWORD result = thread->start(thread->parameter);
  clock::EndThread();
  return result;
}

}  // namespace

DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD timeout_ms) {
  return taken::WaitForMultipleObjects(1, &handle, FALSE, timeout_ms);
}

DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                                    DWORD timeout_ms) {
  const bool on_clock = clock::GovernsThisThread() && !wait_all && count < MAXIMUM_WAIT_OBJECTS &&
                        TheOwnHandles().HoldAll(handles, count);
  if (on_clock) return clock::Wait(handles, count, timeout_ms);
  return system_call::WaitForMultipleObjects(count, handles, wait_all, timeout_ms);
}

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manual_reset, BOOL initial_state,
                           LPCWSTR name) {
  return AddKeepingError(system_call::CreateEventW(attributes, manual_reset, initial_state, name));
}

BOOL WINAPI SetEvent(HANDLE event) {
  const BOOL result = system_call::SetEvent(event);
  clock::WakeWaiters();
  return result;
}

HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES attributes, BOOL initial_owner, LPCWSTR name) {
  return AddKeepingError(system_call::CreateMutexW(attributes, initial_owner, name));
}

HANDLE WINAPI OpenMutexW(DWORD access, BOOL inherit_handle, LPCWSTR name) {
  return AddKeepingError(system_call::OpenMutexW(access, inherit_handle, name));
}

BOOL WINAPI ReleaseMutex(HANDLE mutex) {
  const BOOL result = system_call::ReleaseMutex(mutex);
  clock::WakeWaiters();
  return result;
}

HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack_size,
                           LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags,
                           LPDWORD thread_id) {
  // The test framework starts its own threads suspended, and they wait for as long as the program
  // lives: a clock that counted them would stand still.
  if (flags & CREATE_SUSPENDED) {
    return AddKeepingError(
        system_call::CreateThread(attributes, stack_size, start, parameter, flags, thread_id));
  }
  auto thread = std::make_unique<NewThread>(NewThread{start, parameter});
  clock::ExpectThread();
  const HANDLE handle = AddKeepingError(system_call::CreateThread(
      attributes, stack_size, &RunThread, static_cast<LPVOID>(thread.get()), flags, thread_id));
  if (handle) {
    thread.release();  // RunThread's
  } else {
    clock::UnexpectThread();
  }
  return handle;
}

BOOL WINAPI CloseHandle(HANDLE handle) {
  TheOwnHandles().Remove(handle);
  CloseDeviceFile(handle);
  return system_call::CloseHandle(handle);
}

}  // namespace test_host::taken
