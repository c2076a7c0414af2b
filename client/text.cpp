#include "client/text.h"

#include <windows.h>

namespace client {

namespace {

std::wstring ToWide(UINT code_page, std::string_view text) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  const int needed = MultiByteToWideChar(code_page, 0, text.data(), length, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(needed), L'\0');
  MultiByteToWideChar(code_page, 0, text.data(), length, wide.data(), needed);
  return wide;
}

}  // namespace

std::wstring WideFromUtf8(std::string_view text) { return ToWide(CP_UTF8, text); }

std::string Utf8FromWide(std::wstring_view text) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  const int needed =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(needed), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), length, narrow.data(), needed, nullptr, nullptr);
  return narrow;
}

std::string Utf8FromArgument(std::string_view argument) {
  return Utf8FromWide(ToWide(CP_ACP, argument));
}

std::string Printable(std::string_view utf8) {
  std::string text;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    // Those above ASCII begin with 0xC2.
    const bool is_long = utf8[i] == '\xC2' && i + 1 < utf8.size() && utf8[i + 1] < '\xA0';
    const auto byte = static_cast<std::uint8_t>(utf8[i]);
    if (is_long) ++i;
    text += is_long || byte < 0x20 || byte == 0x7F ? '?' : utf8[i];
  }
  return text;
}

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

}  // namespace client
