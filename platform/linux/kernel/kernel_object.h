// What stands behind a handle: an object with a count of its users.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace linux_host {

enum class ObjectKind : std::uint8_t {
  kEvent,
  kMutex,
  kThread,  // the last that can be waited for
  kDeviceFile,
  kDeviceSet,
  kFile,
  kFileMapping,
  kProcess,
};

// Shared by its handles, by the calls that work on it, and by what it takes part in. Any thread.
class KernelObject {
 public:
  KernelObject(const KernelObject&) = delete;
  KernelObject& operator=(const KernelObject&) = delete;

  ObjectKind kind() const { return kind_; }
  bool waitable() const { return kind_ <= ObjectKind::kThread; }

  void AddRef() { references_.fetch_add(1, std::memory_order_relaxed); }
  // Who has the last one need not count down: nobody else can come by another.
  void Release() {
    if (references_.load(std::memory_order_acquire) == 1 ||
        references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      delete this;
    }
  }

  // A handle is being made, was not made for want of room, or is being closed: for the handle table
  // and the table of names alone. An object without a name has one handle all its life.
  virtual void HandleOpened() {}
  virtual void HandleNotMade() {}
  virtual void HandleClosed() { LastHandleClosed(); }

 protected:
  explicit KernelObject(ObjectKind kind) : kind_(kind) {}
  virtual ~KernelObject() = default;

  // No handle is left; calls that looked the object up before may still be using it.
  virtual void LastHandleClosed() {}

 private:
  std::atomic<std::uint32_t> references_ = 1;
  const ObjectKind kind_;
};

// Owns one reference. A raw pointer is taken over by Adopt and added to by Share.
template <typename T>
class ObjectRef {
 public:
  ObjectRef() = default;
  static ObjectRef Adopt(T* object) { return ObjectRef(object); }
  static ObjectRef Share(T* object) {
    if (object) object->AddRef();
    return ObjectRef(object);
  }
  ObjectRef(const ObjectRef& other) : ObjectRef(Share(other.object_)) {}
  ObjectRef(ObjectRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <typename U>
  ObjectRef(ObjectRef<U>&& other) : object_(other.Detach()) {}
  ~ObjectRef() {
    if (object_) object_->Release();
  }
  ObjectRef& operator=(ObjectRef other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  T* get() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }
  [[nodiscard]] T* Detach() { return std::exchange(object_, nullptr); }

 private:
  explicit ObjectRef(T* object) : object_(object) {}
  T* object_ = nullptr;
};

template <typename T, typename... Arguments>
ObjectRef<T> MakeObject(Arguments&&... arguments) {
  return ObjectRef<T>::Adopt(new T(std::forward<Arguments>(arguments)...));
}

}  // namespace linux_host
