// An owner of one system handle, which it closes. What kind of handle, and which value means none,
// is said by a traits class.
#pragma once

#include <windows.h>

#include <utility>

// Traits has: `using Type`, `static Type Null()`, `static void Close(Type)`. Close is called for
// every value but Null(), and its failure is of no interest to the owner.
template <typename Traits>
class UniqueHandle {
 public:
  using Type = typename Traits::Type;

  UniqueHandle() = default;
  explicit UniqueHandle(Type handle) : handle_(handle) {}
  ~UniqueHandle() { Reset(); }
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.Release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;

  Type Get() const { return handle_; }
  explicit operator bool() const { return handle_ != Traits::Null(); }

  // Gives the handle up without closing it.
  Type Release() { return std::exchange(handle_, Traits::Null()); }

  void Reset(Type handle = Traits::Null()) {
    const Type old = std::exchange(handle_, handle);
    if (old != Traits::Null()) Traits::Close(old);
  }

 private:
  Type handle_ = Traits::Null();
};

// Events, mutexes and threads: null is none.
struct KernelHandleTraits {
  using Type = HANDLE;
  static Type Null() { return nullptr; }
  static void Close(Type handle) { CloseHandle(handle); }
};
using KernelHandle = UniqueHandle<KernelHandleTraits>;

// Device files: the invalid-handle value is none.
struct FileHandleTraits {
  using Type = HANDLE;
  static Type Null() { return INVALID_HANDLE_VALUE; }
  static void Close(Type handle) { CloseHandle(handle); }
};
using FileHandle = UniqueHandle<FileHandleTraits>;
