// The form of wfxusb.ini, for all who read it: the service, the host's bus, and clients that look
// what the service will do.
#pragma once

#include <charconv>
#include <cstdint>
#include <istream>
#include <map>
#include <optional>
#include <string>
#include <string_view>

// Values by key, the keys in capitals.
using SettingsTable = std::map<std::string, std::string, std::less<>>;

namespace settings {

inline constexpr char kEndOfText = 0x1A;

// Letters a to z only, whatever the locale: keys are bytes.
inline std::string UpperCased(std::string_view key) {
  std::string upper(key);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

inline std::string_view WithoutEnclosingQuotes(std::string_view value) {
  if (value.empty() || value.front() != '"' || value.back() != '"') return value;
  // A single quote is both the first and the last character; nothing is left of it.
  return value.substr(1, value.size() < 2 ? 0 : value.size() - 2);
}

// Nothing is trimmed: blanks beside the equals sign belong to the key or to the value. Section
// headers and other lines without an equals sign mean nothing.
inline void TakeLine(std::string_view line, SettingsTable& table) {
  if (line.starts_with(';')) return;
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) return;
  // The first line with a key wins.
  table.emplace(UpperCased(line.substr(0, equals)),
                WithoutEnclosingQuotes(line.substr(equals + 1)));
}

}  // namespace settings

// Adds the file's keys that the table does not hold. The stream is binary, so that both hosts read
// the same: the CR of a CR LF is dropped here, and a file from a host where Ctrl-Z ends a text ends
// there.
inline void ReadSettingsTable(std::istream& file, SettingsTable& table) {
  std::string line;
  while (std::getline(file, line)) {
    const std::size_t end = line.find(settings::kEndOfText);
    const bool ended_by_lf = !file.eof();
    if (ended_by_lf && line.ends_with('\r')) line.pop_back();
    settings::TakeLine(std::string_view(line).substr(0, end), table);
    if (end != std::string::npos) return;
  }
}

// A key that is about the devices of a vendor and product id: VVVV_PPPP_KIND.
struct DeviceKey {
  std::uint16_t vendor_id = 0;
  std::uint16_t product_id = 0;
  std::string_view kind;  // part of the key
};

// Nothing for any other key.
inline std::optional<DeviceKey> ParseDeviceKey(std::string_view key) {
  constexpr std::size_t kIdDigits = 4;
  constexpr std::size_t kPrefix = 2 * (kIdDigits + 1);
  if (key.size() <= kPrefix) return std::nullopt;
  const auto parse = [key](std::size_t at, std::uint16_t& id) {
    const char* const end = key.data() + at + kIdDigits;
    const auto [stopped, error] = std::from_chars(key.data() + at, end, id, 16);
    return error == std::errc() && stopped == end && *end == '_';
  };
  DeviceKey parsed;
  if (!parse(0, parsed.vendor_id) || !parse(kIdDigits + 1, parsed.product_id)) return std::nullopt;
  parsed.kind = key.substr(kPrefix);
  return parsed;
}
