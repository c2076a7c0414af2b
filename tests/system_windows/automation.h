// Owners of texts and arrays that pass between a client and the service.
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <string>
#include <utility>
#include <vector>

namespace system_windows {

class Bstr {
 public:
  Bstr() = default;
  explicit Bstr(const wchar_t* text) : text_(SysAllocString(text)) {}
  Bstr(Bstr&& other) noexcept : text_(std::exchange(other.text_, nullptr)) {}
  ~Bstr() { SysFreeString(text_); }

  BSTR Get() const { return text_; }
  BSTR* Receive() { return &text_; }
  std::wstring Text() const { return text_ ? text_ : L""; }

 private:
  BSTR text_ = nullptr;
};

class Array {
 public:
  explicit Array(SAFEARRAY* array = nullptr) : array_(array) {}
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  ~Array() { SafeArrayDestroy(array_); }

  SAFEARRAY* Get() const { return array_; }
  SAFEARRAY** Receive() { return &array_; }

  std::vector<std::wstring> AsStrings() const {
    if (!array_) return {};
    const auto* data = static_cast<const BSTR*>(array_->pvData);
    return std::vector<std::wstring>(data, data + array_->rgsabound[0].cElements);
  }

 private:
  SAFEARRAY* array_;
};

}  // namespace system_windows
