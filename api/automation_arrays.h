// The automation arrays of the interface: input bytes used in place, results made for the client.
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <cstdint>
#include <memory>
#include <span>

namespace api {

// Is thrown when a string for a client cannot be copied; the method frame turns it into
// E_OUTOFMEMORY.
struct OutOfStrings {};

// Access to the bytes of an array while it lives. No access, and no bytes, when the array is null,
// has other than one dimension of single bytes, or refuses it.
class ByteArrayAccess {
 public:
  explicit ByteArrayAccess(SAFEARRAY* array);
  ~ByteArrayAccess();
  ByteArrayAccess(const ByteArrayAccess&) = delete;
  ByteArrayAccess& operator=(const ByteArrayAccess&) = delete;

  explicit operator bool() const { return accessed_; }
  std::span<std::uint8_t> bytes() const { return bytes_; }

 private:
  SAFEARRAY* array_;
  bool accessed_ = false;
  std::span<std::uint8_t> bytes_;
};

// Number of elements of a client's byte array; 0 where there could be no access to it anyway.
std::uint32_t ByteCount(SAFEARRAY* array);

// A new array of `count` zero bytes, the caller's; null when there is no memory for it.
SAFEARRAY* CreateByteArray(std::uint64_t count);

struct ArrayDestroyer {
  void operator()(SAFEARRAY* array) const { SafeArrayDestroy(array); }
};
using OwnedArray = std::unique_ptr<SAFEARRAY, ArrayDestroyer>;

// Access to the elements of a new array of strings. The array owns what is stored in it.
class StringArrayAccess {
 public:
  explicit StringArrayAccess(SAFEARRAY* array);
  ~StringArrayAccess();
  StringArrayAccess(const StringArrayAccess&) = delete;
  StringArrayAccess& operator=(const StringArrayAccess&) = delete;

  explicit operator bool() const { return accessed_; }

  // Stores a copy of `text` in an element that is still null; a null text leaves it null.
  void Set(std::size_t index, const wchar_t* text);

 private:
  SAFEARRAY* array_;
  bool accessed_ = false;
  BSTR* strings_ = nullptr;  // may be null for an empty array
};

// Null when there is no memory for it.
OwnedArray CreateStringArray(std::size_t count);

}  // namespace api
