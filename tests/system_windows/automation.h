// Owners of texts and arrays that pass between a client and the service.
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <algorithm>
#include <cstdint>
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
  std::wstring Text() const { return text_ != nullptr ? text_ : L""; }

 private:
  BSTR text_ = nullptr;
};

using Bytes = std::vector<std::uint8_t>;

class Array {
 public:
  Array() = default;
  explicit Array(const Bytes& bytes)
      : array_(SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()))) {
    std::ranges::copy(bytes, static_cast<std::uint8_t*>(array_->pvData));
  }
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  ~Array() { SafeArrayDestroy(array_); }

  SAFEARRAY* Get() const { return array_; }
  SAFEARRAY** Receive() { return &array_; }

  Bytes AsBytes() const {
    if (array_ == nullptr) return {};
    const auto* data = static_cast<const std::uint8_t*>(array_->pvData);
    return Bytes(data, data + array_->rgsabound[0].cElements);
  }
  std::vector<std::wstring> AsStrings() const {
    if (array_ == nullptr) return {};
    const auto* data = static_cast<const BSTR*>(array_->pvData);
    return std::vector<std::wstring>(data, data + array_->rgsabound[0].cElements);
  }

 private:
  SAFEARRAY* array_ = nullptr;
};

}  // namespace system_windows
