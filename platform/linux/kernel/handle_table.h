// The process's handles: small numbers, multiples of four, each standing for a kernel object.
//
// Values fit into 31 bits, which the session handles of clients rely on. Any thread may call.
#pragma once

#include <windows.h>

#include "platform/linux/kernel/kernel_object.h"

namespace linux_host {

// A new handle, which holds the reference that is passed and counts as one of the object's handles.
// Null with error 8 when there are too many.
HANDLE MakeHandle(ObjectRef<KernelObject> object);

class HandleSlot;

// An open handle, which is not closed while this lives. Every other call on the handle waits
// meanwhile: there is time to take what keeps the object, and for nothing else.
class OpenHandle {
 public:
  explicit OpenHandle(HANDLE handle);
  ~OpenHandle();
  OpenHandle(const OpenHandle&) = delete;
  OpenHandle& operator=(const OpenHandle&) = delete;

  // Null when the handle is not open.
  KernelObject* object() const { return object_; }

 private:
  HandleSlot* const slot_;
  KernelObject* object_ = nullptr;
};

// The object behind an open handle, otherwise null.
ObjectRef<KernelObject> LookUpHandle(HANDLE handle);

// The object when it is a T (T::kKind); otherwise null with error 6.
template <typename T>
ObjectRef<T> LookUp(HANDLE handle) {
  ObjectRef<KernelObject> object = LookUpHandle(handle);
  if (!object || object->kind() != T::kKind) {
    SetLastError(ERROR_INVALID_HANDLE);
    return {};
  }
  return ObjectRef<T>::Adopt(static_cast<T*>(object.Detach()));
}

// Closes an open handle. False with error 6 when it is not open, or not to a `kind` when one is
// given; without, to a device set, which has a call of its own for that.
bool CloseOpenHandle(HANDLE handle, const ObjectKind* kind = nullptr);

}  // namespace linux_host
