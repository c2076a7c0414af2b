// Mutex objects.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "platform/linux/kernel/named_mutex.h"
#include "platform/linux/kernel/waits.h"

namespace linux_host {

// Re-entrant, handed over to the thread that has waited longest, abandoned when its owner ends.
//
// Threads of this process contend for the object itself, so that a test clock sees them; whoever
// owns it then takes the lock that all processes share, when it has one.
class Mutex : public Waitable {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kMutex;

  // `shared` is null for a mutex of this process alone, and is the mutex's otherwise.
  explicit Mutex(SharedLock* shared) : Waitable(kKind), shared_(shared) {}

  // For a mutex without a handle, which on Windows would be gone: ends the thread's own ownership.
  // False when another thread owns it, which it does until that thread ends.
  bool Forget(ThreadRecord& self);

  bool IsOwnedByOther(const ThreadRecord& self) const;

  // False when the thread does not own it.
  bool Unlock(ThreadRecord& self);

  // At the end of the owning thread: whoever takes it next is told.
  void Abandon(ThreadRecord& self);

  std::optional<DWORD> TryTake(ThreadRecord& self) override;
  DWORD Taken(ThreadRecord& self, DWORD result, const WaitLimit& limit) override;
  // Taking the shared lock may block.
  bool CanBeOneOfMany() const override { return shared_ == nullptr; }

  SharedLock* shared() const { return shared_.get(); }

 protected:
  void MarkWaiters(bool present) override;

  // An owner without a handle cannot give it back.
  void LastHandleClosed() override { Forget(CurrentThread()); }

 private:
  static constexpr std::uintptr_t kWaiters = 1;

  static std::uintptr_t Word(const ThreadRecord& thread) {
    return reinterpret_cast<std::uintptr_t>(&thread);
  }
  bool OwnedBy(const ThreadRecord& thread) const {
    return (owner_.load(std::memory_order_relaxed) & ~kWaiters) == Word(thread);
  }
  DWORD TakeAbandonment();
  void GiveUp(ThreadRecord& self);
  void PassOn(ThreadRecord& self);

  const std::unique_ptr<SharedLock> shared_;
  std::atomic<std::uintptr_t> owner_ = 0;  // the owner's record, and whether threads wait
  // The owner's own.
  std::uint32_t times_taken_ = 0;
  bool abandoned_ = false;
};

// For the end of a process: takes away the files of named mutexes that no other process uses, those
// that have been left by ended ones too. Those of this process go on working in it, but whoever
// opens their names from now on meets others; one that another thread owns is let be.
void RemoveMutexFiles();

}  // namespace linux_host
