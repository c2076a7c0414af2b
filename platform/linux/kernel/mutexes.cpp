#include "platform/linux/kernel/mutexes.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "platform/linux/kernel/handle_table.h"
#include "platform/linux/kernel/object_names.h"

namespace linux_host {

std::optional<DWORD> Mutex::TryTake(ThreadRecord& self) {
  std::uintptr_t owner = owner_.load(std::memory_order_acquire);
  while ((owner & ~kWaiters) == 0) {
    // Threads may be waiting already when this one is about to block and looks again.
    if (owner_.compare_exchange_weak(owner, Word(self) | owner, std::memory_order_acq_rel)) {
      return TakeAbandonment();
    }
  }
  if (OwnedBy(self)) return WAIT_OBJECT_0;
  return std::nullopt;
}

DWORD Mutex::TakeAbandonment() {
  return std::exchange(abandoned_, false) ? WAIT_ABANDONED : WAIT_OBJECT_0;
}

DWORD Mutex::Taken(ThreadRecord& self, DWORD result, const WaitLimit& limit) {
  if (times_taken_++ > 0) return result;
  AddRef();
  self.owned_mutexes.push_back(this);
  if (!shared_) return result;
  switch (shared_->Lock(limit.LeftNs())) {
    case SharedLock::Outcome::kTaken:
      return result;
    case SharedLock::Outcome::kAbandoned:
      return WAIT_ABANDONED;
    case SharedLock::Outcome::kTimeOut:
      break;
    case SharedLock::Outcome::kFailed:
      SetLastError(ERROR_INVALID_HANDLE);
      result = WAIT_FAILED;
      break;
  }
  // Nothing of it was used: whoever takes it next is told of the abandonment instead.
  abandoned_ = result == WAIT_ABANDONED;
  times_taken_ = 0;
  GiveUp(self);
  return result == WAIT_FAILED ? WAIT_FAILED : WAIT_TIMEOUT;
}

bool Mutex::Unlock(ThreadRecord& self) {
  if (!OwnedBy(self)) return false;
  if (--times_taken_ > 0) return true;
  if (shared_) shared_->Unlock();
  GiveUp(self);
  return true;
}

void Mutex::Abandon(ThreadRecord& self) {
  abandoned_ = true;
  times_taken_ = 1;
  Unlock(self);
}

void Mutex::GiveUp(ThreadRecord& self) {
  auto& owned = self.owned_mutexes;
  owned.erase(std::find(owned.rbegin(), owned.rend(), this).base() - 1);
  PassOn(self);
  Release();
}

void Mutex::PassOn(ThreadRecord& self) {
  std::uintptr_t owner = Word(self);
  if (owner_.compare_exchange_strong(owner, 0, std::memory_order_acq_rel)) return;
  DispatcherLock lock;
  if (WaitEntry* waiter = FirstWaiter()) {
    owner_.store(Word(*waiter->thread) | kWaiters, std::memory_order_release);
    GrantTo(lock, *waiter, TakeAbandonment());
  } else {
    owner_.fetch_and(kWaiters, std::memory_order_acq_rel);
  }
}

void Mutex::MarkWaiters(bool present) {
  if (present) {
    owner_.fetch_or(kWaiters, std::memory_order_acq_rel);
  } else {
    owner_.fetch_and(~kWaiters, std::memory_order_acq_rel);
  }
}

bool Mutex::Forget(ThreadRecord& self) {
  if (OwnedBy(self)) {
    times_taken_ = 1;
    Unlock(self);
  }
  return (owner_.load(std::memory_order_acquire) & ~kWaiters) == 0;
}

bool Mutex::IsOwnedByOther(const ThreadRecord& self) const {
  return (owner_.load(std::memory_order_acquire) & ~kWaiters) != 0 && !OwnedBy(self);
}

void AbandonOwnedMutexes(ThreadRecord& thread) {
  while (!thread.owned_mutexes.empty()) thread.owned_mutexes.back()->Abandon(thread);
}

namespace {

// There is one object for each name as long as the process lives, for its shared lock does; another
// one follows when the name is used again while a thread owns what nobody has a handle to.
using NamedMutex = Named<Mutex>;

// The mutexes whose shared locks this process has opened. Used under the lock of the names. Never
// destroyed: threads that outlive main still use it.
std::map<std::wstring, ObjectRef<NamedMutex>>& OpenedMutexes() {
  static auto& mutexes = *new std::map<std::wstring, ObjectRef<NamedMutex>>;
  return mutexes;
}

// Null with the error set; otherwise the error is 183 when another process has the mutex.
ObjectRef<KernelObject> FindMutex(const std::wstring& name, bool create) {
  auto& mutexes = OpenedMutexes();
  bool used_by_others = false;
  auto found = mutexes.find(name);
  if (found != mutexes.end() && create && !found->second->Forget(CurrentThread()) &&
      found->second->shared()->RemoveFile()) {
    mutexes.erase(found);
    found = mutexes.end();
  }
  if (found == mutexes.end()) {
    SharedLock* const shared = SharedLock::Open(name, create, &used_by_others);
    if (!shared) return {};
    found = mutexes.emplace(name, MakeObject<NamedMutex>(name, shared)).first;
  } else {
    used_by_others = found->second->shared()->UsedByOthers();
  }
  if (!used_by_others && !create) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return {};
  }
  SetLastError(used_by_others ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  return ObjectRef<KernelObject>(ObjectRef<NamedMutex>(found->second));
}

void TakeOwnership(HANDLE handle) {
  const DWORD error = GetLastError();
  if (handle && error == ERROR_SUCCESS) WaitForSingleObject(handle, INFINITE);
  SetLastError(error);
}

}  // namespace

void RemoveMutexFiles() {
  Names().Look([] {
    for (const auto& [name, mutex] : OpenedMutexes()) {
      if (!mutex->IsOwnedByOther(CurrentThread())) mutex->shared()->RemoveFile();
    }
  });
  SharedLock::RemoveUnusedFiles();
}

}  // namespace linux_host

using namespace linux_host;

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL initial_owner, LPCWSTR name) {
  const ObjectName parsed = ParseObjectName(name);
  SetLastError(parsed.error);
  if (parsed.error != ERROR_SUCCESS) return nullptr;
  HANDLE handle;
  if (parsed.name.empty()) {
    handle = MakeHandle(MakeObject<Mutex>(nullptr));
  } else {
    handle = Names().OpenOrCreate(parsed.name, Mutex::kKind,
                                  [&] { return FindMutex(parsed.name, true); });
  }
  // An existing mutex is not taken, whatever the caller asked for.
  if (initial_owner) TakeOwnership(handle);
  return handle;
}

HANDLE OpenMutexW(DWORD, BOOL, LPCWSTR name) {
  const ObjectName parsed = ParseObjectName(name);
  if (parsed.error != ERROR_SUCCESS || parsed.name.empty()) {
    SetLastError(parsed.error != ERROR_SUCCESS ? parsed.error : ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const HANDLE handle = Names().OpenOrCreate(parsed.name, Mutex::kKind,
                                             [&] { return FindMutex(parsed.name, false); });
  if (handle) SetLastError(ERROR_SUCCESS);
  return handle;
}

BOOL ReleaseMutex(HANDLE mutex) {
  const auto object = LookUp<Mutex>(mutex);
  if (!object) return FALSE;
  if (object->Unlock(CurrentThread())) return TRUE;
  SetLastError(ERROR_NOT_OWNER);
  return FALSE;
}
