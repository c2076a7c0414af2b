// Text as it is and as tests show it.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace system_windows {

inline std::string Utf8(std::wstring_view text) {
  const int length = static_cast<int>(text.size());
  std::string bytes(text.size() * 3, '\0');
  const int written = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(),
                                          static_cast<int>(bytes.size()), nullptr, nullptr);
  bytes.resize(static_cast<std::size_t>(written));
  return bytes;
}

inline std::wstring GuidText(const GUID& id) {
  wchar_t text[39] = {};
  StringFromGUID2(id, text, 39);
  return text;
}

}  // namespace system_windows
