// Owners of what the component library hands out.
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <string>
#include <utility>

namespace system_windows {

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

class Bstr {
 public:
  Bstr() = default;
  explicit Bstr(const wchar_t* text) : text_(SysAllocString(text)) {}
  Bstr(Bstr&& other) noexcept : text_(std::exchange(other.text_, nullptr)) {}
  ~Bstr() { SysFreeString(text_); }

  BSTR Get() const { return text_; }
  BSTR* Receive() { return &text_; }
  std::wstring Text() const { return text_ != nullptr ? text_ : L""; }

 private:
  BSTR text_ = nullptr;
};

}  // namespace system_windows
