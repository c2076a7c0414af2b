#include "client/numbers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include "base/little_endian.h"

namespace client {

namespace {

constexpr int kNoDigit = -1;

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return kNoDigit;
}

bool TakePrefix(std::string_view& text, char letter) {
  if (text.size() < 2 || text[0] != '0' || (text[1] | 0x20) != letter) return false;
  text.remove_prefix(2);
  return true;
}

std::optional<std::uint64_t> ParseUnsigned(std::string_view text, int base) {
  std::uint64_t value = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (problem != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// Digits of `bits_per_digit` bits each, the most significant first.
std::optional<Bytes> BitsFromDigits(std::string_view digits, std::uint32_t bits_per_digit,
                                    std::uint32_t bits) {
  Bytes bytes((bits + 7) / 8);
  std::uint64_t position = 0;
  for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
    const int value = DigitValue(*digit);
    if (value == kNoDigit || value >= 1 << bits_per_digit) return std::nullopt;
    for (std::uint32_t bit = 0; bit < bits_per_digit; ++bit, ++position) {
      if ((value >> bit & 1) == 0) continue;
      if (position >= bits) return std::nullopt;
      bytes[position / 8] |= static_cast<std::uint8_t>(1u << position % 8);
    }
  }
  if (digits.empty()) return std::nullopt;
  return bytes;
}

bool IsSeparator(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == ',' || c == ':';
}

}  // namespace

std::optional<std::int64_t> ParseNumber(std::string_view text, std::int64_t lowest,
                                        std::int64_t highest) {
  const bool negative = !text.empty() && text[0] == '-';
  if (negative) text.remove_prefix(1);
  const int base = TakePrefix(text, 'x') ? 16 : 10;
  const auto magnitude = ParseUnsigned(text, base);
  if (!magnitude || *magnitude > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
  const auto value = static_cast<std::int64_t>(*magnitude);
  const std::int64_t result = negative ? -value : value;
  if (result < lowest || result > highest) return std::nullopt;
  return result;
}

std::optional<Bytes> ParseBits(std::string_view text, std::uint32_t bits) {
  if (TakePrefix(text, 'x')) return BitsFromDigits(text, 4, bits);
  if (TakePrefix(text, 'b')) return BitsFromDigits(text, 1, bits);
  const auto value = ParseUnsigned(text, 10);
  if (!value) return std::nullopt;
  std::array<char, 16> digits{};
  const auto [end, problem] =
      std::to_chars(digits.data(), digits.data() + digits.size(), *value, 16);
  return BitsFromDigits(std::string_view(digits.data(), end), 4, bits);
}

std::optional<Bytes> BytesFromHex(std::string_view text) {
  Bytes bytes;
  while (!text.empty()) {
    if (IsSeparator(text[0])) {
      text.remove_prefix(1);
      continue;
    }
    if (text[0] == '#') {
      text.remove_prefix(std::min(text.find('\n'), text.size()));
      continue;
    }
    TakePrefix(text, 'x');
    if (text.size() < 2) return std::nullopt;
    const int high = DigitValue(text[0]);
    const int low = DigitValue(text[1]);
    if (high == kNoDigit || low == kNoDigit) return std::nullopt;
    bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    text.remove_prefix(2);
  }
  return bytes;
}

std::string HexFromBytes(std::span<const std::uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string NumberFromBits(std::span<const std::uint8_t> bytes, std::uint32_t bits) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "0x";
  for (std::uint32_t digit = (bits + 3) / 4; digit-- > 0;) {
    const std::uint32_t first = digit * 4;
    unsigned value = bytes[first / 8] >> first % 8 & 15u;
    if (bits - first < 4) value &= (1u << (bits - first)) - 1;
    text += kDigits[value];
  }
  return text;
}

std::string HexWord(std::uint32_t value) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%08x", static_cast<unsigned>(value));
  return text.data();
}

std::string VersionText(std::int32_t version) {
  const auto bits = static_cast<std::uint32_t>(version);
  return std::to_string(bits >> 24) + "." + std::to_string(bits >> 16 & 0xFF) + "." +
         std::to_string(bits >> 8 & 0xFF) + "." + std::to_string(bits & 0xFF);
}

std::string HexDump(std::span<const std::uint8_t> bytes, std::uint64_t first_address) {
  static constexpr std::size_t kBytesPerLine = 16;
  std::string dump;
  std::array<char, 32> field{};
  for (std::size_t at = 0; at < bytes.size(); at += kBytesPerLine) {
    const auto line = bytes.subspan(at, std::min(kBytesPerLine, bytes.size() - at));
    std::snprintf(field.data(), field.size(), "%08llx ",
                  static_cast<unsigned long long>(first_address + at));
    dump += field.data();
    std::string characters;
    for (std::size_t i = 0; i < kBytesPerLine; ++i) {
      if (i < line.size()) {
        std::snprintf(field.data(), field.size(), " %02x", line[i]);
        characters += line[i] >= 0x20 && line[i] < 0x7F ? static_cast<char>(line[i]) : '.';
      }
      dump += i < line.size() ? field.data() : "   ";
    }
    dump += "  " + characters + "\n";
  }
  return dump;
}

std::uint32_t LoadWord(std::span<const std::uint8_t> bytes, std::size_t offset) {
  return LoadLe32(&bytes[offset]);
}

void AppendWord(Bytes& bytes, std::uint32_t value) {
  bytes.resize(bytes.size() + 4);
  StoreLe32(&bytes.end()[-4], value);
}

}  // namespace client
