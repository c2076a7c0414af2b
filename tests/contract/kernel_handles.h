// Kernel handles as a test holds them, and how calls with them fail.
#pragma once

#include <windows.h>

#include <utility>

namespace contract {

// Long enough for any machine; only a fault waits that long.
inline constexpr DWORD kPatienceMs = 20000;

// The error of a call that gave FALSE, null or INVALID_HANDLE_VALUE; 0 when it succeeded.
inline DWORD ErrorOf(BOOL succeeded) { return succeeded ? 0 : GetLastError(); }
inline DWORD ErrorOf(const void* handle) {
  return ErrorOf(BOOL{handle && handle != INVALID_HANDLE_VALUE});
}

// Owns a handle, which may be null.
class Handle {
 public:
  Handle(HANDLE handle) : value_(handle) {}
  ~Handle() { Close(); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  operator HANDLE() const { return value_; }
  void Close() {
    if (value_) CloseHandle(std::exchange(value_, nullptr));
  }

 private:
  HANDLE value_;
};

inline HANDLE AutoResetEvent(LPCWSTR name = nullptr) {
  return CreateEventW(nullptr, FALSE, FALSE, name);
}

inline HANDLE ManualResetEvent() { return CreateEventW(nullptr, TRUE, FALSE, nullptr); }

}  // namespace contract
