// Conversion between UTF-8 and the layer's wide text, which holds one UTF-16 unit per WCHAR.
#pragma once

#include <string>
#include <string_view>

namespace linux_host {

// A maximal ill-formed part of the input (Unicode 3.9, D93b) and a lone surrogate each become
// U+FFFD. `malformed`, when given, is set to whether that happened. NUL is a character like others.
std::wstring Utf8ToWide(std::string_view text, bool* malformed = nullptr);
std::string WideToUtf8(std::wstring_view text, bool* malformed = nullptr);

}  // namespace linux_host
