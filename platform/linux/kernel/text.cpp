#include "platform/linux/kernel/text.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>

namespace linux_host {
namespace {

constexpr wchar_t kReplacement = 0xFFFD;

struct Sequence {
  char32_t code_point;  // kReplacement when ill-formed
  std::size_t length;   // bytes consumed, at least 1
  bool well_formed;
};

// The bytes that may follow a lead byte first (Unicode 3.9, table 3-7): what excludes overlong
// forms, surrogates and code points beyond U+10FFFF. `trailing` 0 marks a byte that leads nothing.
struct Lead {
  int trailing;
  std::uint8_t low;
  std::uint8_t high;
};

Lead LeadOf(std::uint8_t byte) {
  if (byte < 0xC2 || byte > 0xF4) return {0, 0, 0};
  if (byte < 0xE0) return {1, 0x80, 0xBF};
  if (byte < 0xF0) {
    return {2, static_cast<std::uint8_t>(byte == 0xE0 ? 0xA0 : 0x80),
            static_cast<std::uint8_t>(byte == 0xED ? 0x9F : 0xBF)};
  }
  return {3, static_cast<std::uint8_t>(byte == 0xF0 ? 0x90 : 0x80),
          static_cast<std::uint8_t>(byte == 0xF4 ? 0x8F : 0xBF)};
}

Sequence DecodeSequence(std::string_view text) {
  const auto first = static_cast<std::uint8_t>(text[0]);
  if (first < 0x80) return {first, 1, true};
  const Lead lead = LeadOf(first);
  if (lead.trailing == 0) return {kReplacement, 1, false};
  char32_t code_point = first & (0x3F >> lead.trailing);
  std::size_t length = 1;
  for (int i = 0; i < lead.trailing; ++i, ++length) {
    if (length == text.size()) return {kReplacement, length, false};
    const auto byte = static_cast<std::uint8_t>(text[length]);
    const std::uint8_t low = i == 0 ? lead.low : 0x80;
    const std::uint8_t high = i == 0 ? lead.high : 0xBF;
    if (byte < low || byte > high) return {kReplacement, length, false};
    code_point = code_point << 6 | (byte & 0x3F);
  }
  return {code_point, length, true};
}

bool IsHighSurrogate(wchar_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(wchar_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

void AppendUtf8(std::string& out, char32_t code_point) {
  if (code_point < 0x80) {
    out += static_cast<char>(code_point);
    return;
  }
  const int trailing = code_point < 0x800 ? 1 : code_point < 0x10000 ? 2 : 3;
  constexpr std::uint8_t kLeads[] = {0, 0xC0, 0xE0, 0xF0};
  out += static_cast<char>(kLeads[trailing] | code_point >> (6 * trailing));
  for (int i = trailing - 1; i >= 0; --i) {
    out += static_cast<char>(0x80 | (code_point >> (6 * i) & 0x3F));
  }
}

}  // namespace

std::wstring Utf8ToWide(std::string_view text, bool* malformed) {
  std::wstring wide;
  wide.reserve(text.size());
  bool bad = false;
  while (!text.empty()) {
    const Sequence sequence = DecodeSequence(text);
    text.remove_prefix(sequence.length);
    bad |= !sequence.well_formed;
    if (sequence.code_point < 0x10000) {
      wide += static_cast<wchar_t>(sequence.code_point);
    } else {
      wide += static_cast<wchar_t>(0xD800 + ((sequence.code_point - 0x10000) >> 10));
      wide += static_cast<wchar_t>(0xDC00 + ((sequence.code_point - 0x10000) & 0x3FF));
    }
  }
  if (malformed) *malformed = bad;
  return wide;
}

std::string WideToUtf8(std::wstring_view text, bool* malformed) {
  std::string narrow;
  narrow.reserve(text.size());
  bool bad = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t code_point = static_cast<std::uint32_t>(text[i]);
    if (IsHighSurrogate(text[i]) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
      code_point = 0x10000 + ((text[i] - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (IsHighSurrogate(text[i]) || IsLowSurrogate(text[i]) || code_point > 0xFFFF) {
      // An element beyond 16 bits is no UTF-16 unit: whoever made it mistook WCHAR for UTF-32.
      code_point = kReplacement;
      bad = true;
    }
    AppendUtf8(narrow, code_point);
  }
  if (malformed) *malformed = bad;
  return narrow;
}

}  // namespace linux_host

namespace {

int Fail(DWORD error) {
  SetLastError(error);
  return 0;
}

bool IsUtf8CodePage(UINT code_page) {
  return code_page == CP_UTF8 || code_page == CP_ACP || code_page == CP_THREAD_ACP;
}

// Stores as much of `converted` as fits; the result of the calls.
template <typename Char>
int Store(const std::basic_string<Char>& converted, Char* out, int room) {
  if (room == 0) return static_cast<int>(converted.size());
  const auto fitting = std::min(converted.size(), static_cast<std::size_t>(room));
  std::copy_n(converted.data(), fitting, out);
  if (fitting < converted.size()) return Fail(ERROR_INSUFFICIENT_BUFFER);
  return static_cast<int>(converted.size());
}

}  // namespace

int MultiByteToWideChar(UINT code_page, DWORD flags, LPCSTR text, int length, LPWSTR wide,
                        int room) {
  if (!text || length == 0 || length < -1 || room < 0 || (room > 0 && !wide)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  if (!IsUtf8CodePage(code_page)) return Fail(ERROR_INVALID_PARAMETER);
  // Windows takes MB_PRECOMPOSED for the older code pages, which CP_ACP may be there.
  const DWORD allowed = MB_ERR_INVALID_CHARS | (code_page == CP_UTF8 ? 0 : MB_PRECOMPOSED);
  if (flags & ~allowed) return Fail(ERROR_INVALID_FLAGS);
  bool malformed = false;
  const std::size_t size = length == -1 ? std::strlen(text) + 1 : static_cast<std::size_t>(length);
  const std::wstring converted = linux_host::Utf8ToWide({text, size}, &malformed);
  if (malformed && flags & MB_ERR_INVALID_CHARS) return Fail(ERROR_NO_UNICODE_TRANSLATION);
  return Store(converted, wide, room);
}

int WideCharToMultiByte(UINT code_page, DWORD flags, LPCWSTR wide, int length, LPSTR text, int room,
                        LPCSTR default_char, LPBOOL used_default) {
  if (!wide || length == 0 || length < -1 || room < 0 || (room > 0 && !text)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  if (!IsUtf8CodePage(code_page) || default_char || used_default) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  const DWORD allowed =
      code_page == CP_UTF8 ? WC_ERR_INVALID_CHARS : WC_ERR_INVALID_CHARS | WC_NO_BEST_FIT_CHARS;
  if (flags & ~allowed) return Fail(ERROR_INVALID_FLAGS);
  bool malformed = false;
  const std::size_t size = length == -1 ? std::wcslen(wide) + 1 : static_cast<std::size_t>(length);
  const std::string converted = linux_host::WideToUtf8({wide, size}, &malformed);
  if (malformed && flags & WC_ERR_INVALID_CHARS) return Fail(ERROR_NO_UNICODE_TRANSLATION);
  return Store(converted, text, room);
}
