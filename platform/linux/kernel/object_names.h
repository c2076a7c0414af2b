// The names of kernel objects in this process: which object bears which name while it has handles.
#pragma once

#include <windows.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

#include "platform/linux/kernel/kernel_object.h"

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

  // Runs under the lock of the names.
  void Look(const std::function<void()>& look);

  // A handle of the object that bears `name` has been closed; `handles` counts them. True: it was
  // the last one, and nobody bears the name any more.
  bool HandleClosed(std::atomic<std::uint32_t>& handles, const std::wstring& name);

 private:
  std::mutex mutex_;
  std::unordered_map<std::wstring, KernelObject*> bearers_;  // no reference: they have handles
};

ObjectNames& Names();

// An object of the kind Base with a name, which it bears while it has handles.
template <typename Base>
class Named : public Base {
 public:
  template <typename... Arguments>
  explicit Named(std::wstring name, Arguments... arguments)
      : Base(arguments...), name_(std::move(name)) {}

  void HandleOpened() override { handles_.fetch_add(1, std::memory_order_relaxed); }
  void HandleNotMade() override { handles_.fetch_sub(1, std::memory_order_relaxed); }
  void HandleClosed() override {
    if (Names().HandleClosed(handles_, name_)) this->LastHandleClosed();
  }

 private:
  const std::wstring name_;
  std::atomic<std::uint32_t> handles_ = 0;
};

}  // namespace linux_host
