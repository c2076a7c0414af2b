// The names of kernel objects in this process: which object bears which name while it has handles.
#pragma once

#include <windows.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>

#include "platform/linux/kernel_object.h"

namespace linux_host {

struct ObjectName {
  std::wstring name;  // without "Local\" or "Global\"; empty: no name
  DWORD error = ERROR_SUCCESS;
};

// Takes what a caller passes as a name, null included.
ObjectName ParseObjectName(LPCWSTR name);

// Any thread.
class ObjectNames {
 public:
  // Another handle to the object of that name and error 183; null and error 6 when it is of another
  // kind; otherwise a handle to what `make` gives, which bears the name from now on, and no error
  // (null, and the error that `make` set, when it gives null). `make` runs under the lock of the
  // names.
  HANDLE OpenOrCreate(const std::wstring& name, ObjectKind kind,
                      const std::function<ObjectRef<KernelObject>()>& make);

  // For objects with names, in place of counting their handles themselves. HandleClosed tells
  // whether it was the last one.
  static void HandleOpened(std::atomic<std::uint32_t>& handles);
  bool HandleClosed(std::atomic<std::uint32_t>& handles, const std::wstring& name);

 private:
  std::mutex mutex_;
  std::unordered_map<std::wstring, KernelObject*> bearers_;  // no reference: they have handles
};

ObjectNames& Names();

}  // namespace linux_host
