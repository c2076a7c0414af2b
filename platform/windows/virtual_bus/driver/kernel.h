// What all of the driver builds on: the kernel's declarations, and owners for its locks and memory.
#pragma once

// The kernel headers declare these two once more, in a way that C++ takes for another function.
#define __INTRINSIC_DEFINED_InterlockedBitTestAndSet
#define __INTRINSIC_DEFINED_InterlockedBitTestAndReset
#include <ntifs.h>
#include <wdm.h>

#include <cstdint>
#include <new>

namespace virtual_bus {

// Guards lists for a few steps at a time; nothing that waits is called with it held.
class SpinLock {
 public:
  void Initialize() { KeInitializeSpinLock(&lock_); }

 private:
  friend class SpinGuard;
  KSPIN_LOCK lock_ = 0;
};

class SpinGuard {
 public:
  explicit SpinGuard(SpinLock& lock) : lock_(lock) { KeAcquireSpinLock(&lock_.lock_, &level_); }
  ~SpinGuard() { KeReleaseSpinLock(&lock_.lock_, level_); }
  SpinGuard(const SpinGuard&) = delete;
  SpinGuard& operator=(const SpinGuard&) = delete;

 private:
  SpinLock& lock_;
  KIRQL level_ = 0;
};

inline constexpr ULONG kPoolTag = 0x73756276;  // "vbus" in memory

// An object in the kernel's memory, or none.
template <typename T>
class Owned {
 public:
  Owned() = default;
  explicit Owned(T* object) : object_(object) {}
  Owned(Owned&& other) noexcept : object_(other.Release()) {}
  Owned& operator=(Owned&& other) noexcept {
    Reset();
    object_ = other.Release();
    return *this;
  }
  ~Owned() { Reset(); }

  // None when there is no memory left.
  static Owned Make() {
    void* const memory = ExAllocatePoolWithTag(NonPagedPool, sizeof(T), kPoolTag);
    return Owned(memory ? new (memory) T : nullptr);
  }

  T* operator->() const { return object_; }
  T* Get() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }
  T* Release() {
    T* const object = object_;
    object_ = nullptr;
    return object;
  }

 private:
  void Reset() {
    if (!object_) return;
    object_->~T();
    ExFreePoolWithTag(object_, kPoolTag);
    object_ = nullptr;
  }

  T* object_ = nullptr;
};

// Completes a request and gives back its status, as dispatch routines return it.
inline NTSTATUS Finish(IRP* irp, NTSTATUS status, ULONG_PTR information = 0) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = information;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

inline FILE_OBJECT* FileOf(IRP* irp) { return IoGetCurrentIrpStackLocation(irp)->FileObject; }

// What every device object of the driver has in its extension, in first place.
enum class DeviceKind { kControl, kBus, kProbe };

struct DeviceExtension {
  DeviceKind kind;
};

}  // namespace virtual_bus
