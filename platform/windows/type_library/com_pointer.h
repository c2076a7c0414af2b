// Owner of one reference to a component's interface.
#pragma once

namespace type_library {

template <typename Interface>
class ComPointer {
 public:
  ComPointer() = default;
  ~ComPointer() { Reset(); }
  ComPointer(const ComPointer&) = delete;
  ComPointer& operator=(const ComPointer&) = delete;

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
    if (object_ != nullptr) object_->Release();
    object_ = nullptr;
  }

 private:
  Interface* object_ = nullptr;
};

}  // namespace type_library
