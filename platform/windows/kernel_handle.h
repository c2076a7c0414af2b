// Owns a handle of the system, for the parts of the platform and the bench that run on Windows.
#pragma once

#include <windows.h>

#include <utility>

namespace windows_host {

class KernelHandle {
 public:
  KernelHandle() = default;
  // Null and INVALID_HANDLE_VALUE both mean: none.
  explicit KernelHandle(HANDLE handle)
      : handle_(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
  KernelHandle(KernelHandle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  KernelHandle& operator=(KernelHandle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~KernelHandle() {
    if (handle_) CloseHandle(handle_);
  }

  HANDLE Get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }

 private:
  HANDLE handle_ = nullptr;
};

// An event that stays set until it is reset.
inline KernelHandle MakeEvent() {
  return KernelHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

}  // namespace windows_host
