// Owner of one reference to a component's interface.
#pragma once

#include <utility>

namespace windows_host {

template <typename Interface>
class ComPointer {
 public:
  ComPointer() = default;
  ComPointer(ComPointer&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ComPointer& operator=(ComPointer&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~ComPointer() { Reset(); }

  Interface* Get() const { return object_; }
  Interface* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

  // For a call that gives a new reference; the one held before is released.
  Interface** Receive() {
    Reset();
    return &object_;
  }
  void** ReceiveVoid() { return reinterpret_cast<void**>(Receive()); }

  void Reset() {
    if (Interface* object = std::exchange(object_, nullptr)) object->Release();
  }

 private:
  Interface* object_ = nullptr;
};

}  // namespace windows_host
