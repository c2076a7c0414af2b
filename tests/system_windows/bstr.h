// Owner of a text that the component library made.
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <string>
#include <utility>

namespace system_windows {

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
