#include "platform/linux/dbus/dbus_text.h"

#include <oleauto.h>

#include <cstdint>
#include <cstring>

namespace linux_host {
namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;
constexpr std::uint32_t kPrivatePlane = 0x100000;

bool IsHighSurrogate(std::uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(std::uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
bool IsSurrogate(std::uint32_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

// Whether the bus takes a character as it is.
bool IsCarried(std::uint32_t character) {
  const bool is_noncharacter =
      (character >= 0xFDD0 && character <= 0xFDEF) || (character & 0xFFFE) == 0xFFFE;
  return character != 0 && !IsSurrogate(character) && !is_noncharacter;
}

// 0x10FFFE and 0x10FFFF are not carried either: these two units have their places further down.
constexpr std::uint32_t kFirstMoved = 0xFFFE;
constexpr std::uint32_t kMovedTo = 0xFDF0;

// Takes the next character that travels for the text at `position`.
std::uint32_t TakeWide(const OLECHAR* text, std::size_t length, std::size_t& position) {
  const std::uint32_t unit = static_cast<std::uint32_t>(text[position++]);
  if (unit > 0xFFFF) return kReplacement;
  if (IsCarried(unit)) return unit;
  if (IsHighSurrogate(unit) && position < length) {
    const std::uint32_t next = static_cast<std::uint32_t>(text[position]);
    const std::uint32_t character = 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00);
    if (IsLowSurrogate(next) && IsCarried(character)) {
      ++position;
      return character;
    }
  }
  return kPrivatePlane + (unit >= kFirstMoved ? unit - kFirstMoved + kMovedTo : unit);
}

std::size_t EncodedSize(std::uint32_t character) {
  if (character < 0x80) return 1;
  if (character < 0x800) return 2;
  return character < 0x10000 ? 3 : 4;
}

char* Encode(std::uint32_t character, char* out) {
  const std::size_t size = EncodedSize(character);
  if (size == 1) {
    *out++ = static_cast<char>(character);
    return out;
  }
  constexpr std::uint8_t kLead[] = {0, 0, 0xC0, 0xE0, 0xF0};
  *out++ = static_cast<char>(kLead[size] | (character >> (6 * (size - 1))));
  for (std::size_t left = size - 1; left > 0; --left) {
    *out++ = static_cast<char>(0x80 | ((character >> (6 * (left - 1))) & 0x3F));
  }
  return out;
}

// Takes the next character of UTF-8 text; U+FFFD and one byte where it is malformed.
std::uint32_t TakeUtf8(const char* text, std::size_t size, std::size_t& position) {
  const auto lead = static_cast<std::uint8_t>(text[position++]);
  if (lead < 0x80) return lead;
  const std::size_t follow = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  if (lead < 0xC2 || lead > 0xF4 || size - position < follow) return kReplacement;
  std::uint32_t character = lead & (0x3F >> follow);
  for (std::size_t i = 0; i < follow; ++i) {
    const auto byte = static_cast<std::uint8_t>(text[position + i]);
    if ((byte & 0xC0) != 0x80) return kReplacement;
    character = (character << 6) | (byte & 0x3F);
  }
  if (EncodedSize(character) != follow + 1 || IsSurrogate(character) || character > 0x10FFFF) {
    return kReplacement;
  }
  position += follow;
  return character;
}

// The unit that a private character stands for, or the character itself.
std::uint32_t Restore(std::uint32_t character) {
  if (character < kPrivatePlane) return character;
  const std::uint32_t unit = character - kPrivatePlane;
  if (unit == kMovedTo || unit == kMovedTo + 1) return unit - kMovedTo + kFirstMoved;
  return IsCarried(unit) ? character : unit;
}

}  // namespace

std::size_t DBusTextSize(const OLECHAR* text, std::size_t length) {
  std::size_t size = 0;
  for (std::size_t position = 0; position < length;) {
    size += EncodedSize(TakeWide(text, length, position));
  }
  return size;
}

void WriteDBusText(const OLECHAR* text, std::size_t length, char* out) {
  for (std::size_t position = 0; position < length;) {
    out = Encode(TakeWide(text, length, position), out);
  }
}

std::size_t WideTextLength(const char* text, std::size_t size) {
  std::size_t length = 0;
  for (std::size_t position = 0; position < size;) {
    length += Restore(TakeUtf8(text, size, position)) < 0x10000 ? 1 : 2;
  }
  return length;
}

void WriteWideText(const char* text, std::size_t size, OLECHAR* out) {
  for (std::size_t position = 0; position < size;) {
    const std::uint32_t character = Restore(TakeUtf8(text, size, position));
    if (character < 0x10000) {
      *out++ = static_cast<OLECHAR>(character);
    } else {
      *out++ = static_cast<OLECHAR>(0xD800 + ((character - 0x10000) >> 10));
      *out++ = static_cast<OLECHAR>(0xDC00 + ((character - 0x10000) & 0x3FF));
    }
  }
}

BSTR BstrFromDBusText(const char* text) {
  const std::size_t size = std::strlen(text);
  const BSTR string = SysAllocStringLen(nullptr, static_cast<UINT>(WideTextLength(text, size)));
  if (string) WriteWideText(text, size, string);
  return string;
}

}  // namespace linux_host
