// Owners of automation strings and arrays, and their conversion from and to the client's own types.
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/numbers.h"

namespace client {

struct BstrFree {
  void operator()(WCHAR* text) const { SysFreeString(text); }
};
using Bstr = std::unique_ptr<WCHAR, BstrFree>;

Bstr MakeBstr(std::string_view utf8);

// Null gives an empty text.
std::string Utf8FromBstr(BSTR text);

struct SafeArrayFree {
  void operator()(SAFEARRAY* array) const { SafeArrayDestroy(array); }
};
using SafeArray = std::unique_ptr<SAFEARRAY, SafeArrayFree>;

// Null when memory runs out.
SafeArray MakeByteArray(std::span<const std::uint8_t> bytes);

// A null array, or one of another kind, gives no elements. The bus of one host knows no null
// arrays, so the client does not tell them from empty ones on either.
Bytes BytesOf(SAFEARRAY* array);
std::vector<std::string> StringsOf(SAFEARRAY* array);

}  // namespace client
