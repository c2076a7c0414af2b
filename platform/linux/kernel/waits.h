// Objects that threads wait for, and the wait itself.
#pragma once

#include <windows.h>

#include <optional>

#include "platform/linux/kernel/dispatcher.h"
#include "platform/linux/kernel/kernel_object.h"

namespace linux_host {

class Waitable;

// How long a wait may take altogether.
struct WaitLimit {
  DWORD timeout_ms;
  Deadline deadline = kNever;  // set when the thread has blocked and `timeout_ms` is not INFINITE

  // What is left of it, kNever when there is no limit.
  Deadline LeftNs() const {
    if (timeout_ms == INFINITE) return kNever;
    return deadline == kNever ? timeout_ms * kNsPerMs : deadline - Now();
  }
};

// A thread's place in the queue of one object; lives on the waiting thread's stack. Guarded by the
// dispatcher lock.
struct WaitEntry {
  ThreadRecord* thread = nullptr;
  Waitable* object = nullptr;
  DWORD index = 0;  // of the object in the wait
  WaitEntry* next = nullptr;
  WaitEntry* previous = nullptr;
};

// An object that can be waited for. Taking it without blocking needs no lock; only when a thread
// blocks on it do all who change its state go through the dispatcher.
class Waitable : public KernelObject {
 public:
  // Takes the object for the calling thread when it can be had now: WAIT_OBJECT_0 or
  // WAIT_ABANDONED. An auto-reset event is reset by that, a mutex owned.
  virtual std::optional<DWORD> TryTake(ThreadRecord& self) = 0;

  // The object was granted to `self`, or taken by TryTake: what remains to be done on its own
  // thread before the wait ends. May turn the result into another one, WAIT_TIMEOUT and WAIT_FAILED
  // (with the error set) included.
  virtual DWORD Taken(ThreadRecord& self, DWORD result, const WaitLimit& limit);

  // For a wait for this object alone that would block: works until it can be taken, and takes it.
  // It may come back earlier, with nothing.
  virtual std::optional<DWORD> TakeAfterWork(ThreadRecord& /*self*/, Deadline /*until*/) {
    return std::nullopt;
  }

  // Whether a wait for several objects may include it.
  virtual bool CanBeOneOfMany() const { return true; }

  // For the wait, with the dispatcher lock held: from now on a thread waits, or none does any more.
  void AddWaiter(WaitEntry& entry);
  void RemoveWaiter(WaitEntry& entry);

 protected:
  using KernelObject::KernelObject;

  // Marks in the object's state that its changes have to go through the dispatcher, or need not.
  virtual void MarkWaiters(bool present) = 0;

  // The waiter that came first and can still be granted something; null: none. Lock held.
  WaitEntry* FirstWaiter() const;
  // Lock held.
  void GrantTo(DispatcherLock& lock, WaitEntry& entry, DWORD result) {
    lock.Grant(*entry.thread, result + entry.index);
  }

 private:
  WaitEntry* first_ = nullptr;
  WaitEntry* last_ = nullptr;
};

// As WaitForSingleObject.
DWORD WaitForObject(Waitable& object, DWORD timeout_ms);

}  // namespace linux_host
