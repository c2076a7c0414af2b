#include "api/automation_arrays.h"

#include <limits>

#include "usb/kept_memory.h"

namespace api {
namespace {

bool IsByteArray(SAFEARRAY* array) {
  return array && SafeArrayGetDim(array) == 1 && SafeArrayGetElemsize(array) == 1;
}

SAFEARRAY* CreateArray(VARTYPE type, std::uint64_t count) {
  if (count > std::numeric_limits<ULONG>::max()) return nullptr;
  SAFEARRAYBOUND bound = {};
  bound.cElements = static_cast<ULONG>(count);
  bound.lLbound = 0;
  return SafeArrayCreate(type, 1, &bound);
}

}  // namespace

ByteArrayAccess::ByteArrayAccess(SAFEARRAY* array) : array_(array) {
  void* data = nullptr;
  if (!IsByteArray(array) || FAILED(SafeArrayAccessData(array, &data))) return;
  accessed_ = true;
  // An array descriptor may state a size and have no storage.
  const std::uint32_t count = ByteCount(array);
  if (!data && count != 0) {
    SafeArrayUnaccessData(array);
    accessed_ = false;
    return;
  }
  bytes_ = {static_cast<std::uint8_t*>(data), count};
}

ByteArrayAccess::~ByteArrayAccess() {
  // An array that a driver may still write into stays locked: so the system does not free it, and
  // who destroys it is refused.
  if (accessed_ && !IsKept(bytes_)) SafeArrayUnaccessData(array_);
}

std::uint32_t ByteCount(SAFEARRAY* array) {
  LONG lower = 0;
  LONG upper = 0;
  if (!IsByteArray(array) || FAILED(SafeArrayGetLBound(array, 1, &lower)) ||
      FAILED(SafeArrayGetUBound(array, 1, &upper))) {
    return 0;
  }
  // In unsigned arithmetic: the bounds of an empty array are 0 and -1.
  return static_cast<std::uint32_t>(upper) - static_cast<std::uint32_t>(lower) + 1;
}

SAFEARRAY* CreateByteArray(std::uint64_t count) { return CreateArray(VT_UI1, count); }

StringArrayAccess::StringArrayAccess(SAFEARRAY* array) : array_(array) {
  void* data = nullptr;
  if (array && SUCCEEDED(SafeArrayAccessData(array, &data))) {
    accessed_ = true;
    strings_ = static_cast<BSTR*>(data);
  }
}

StringArrayAccess::~StringArrayAccess() {
  if (accessed_) SafeArrayUnaccessData(array_);
}

void StringArrayAccess::Set(std::size_t index, const wchar_t* text) {
  if (!text) return;
  strings_[index] = SysAllocString(text);
  if (!strings_[index]) throw OutOfStrings{};
}

OwnedArray CreateStringArray(std::size_t count) { return OwnedArray(CreateArray(VT_BSTR, count)); }

}  // namespace api
