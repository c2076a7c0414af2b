#include "platform/linux/usb/probe_ids.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

#include "platform/linux/kernel/paths.h"

namespace linux_host {
namespace {

// "VVVV_PPPP_" begins the key.
constexpr std::size_t kIdDigits = 4;
constexpr std::size_t kPrefix = 2 * (kIdDigits + 1);

std::optional<std::uint16_t> IdAt(std::string_view key, std::size_t at) {
  std::uint16_t id = 0;
  const char* const end = key.data() + at + kIdDigits;
  const auto [stopped, error] = std::from_chars(key.data() + at, end, id, 16);
  if (error != std::errc() || stopped != end || *end != '_') return std::nullopt;
  return id;
}

std::optional<UsbIds> IdsOfKey(std::string_view key) {
  if (key.size() <= kPrefix || !key.ends_with("DEVICE")) return std::nullopt;
  const auto vendor = IdAt(key, 0);
  const auto product = IdAt(key, kIdDigits + 1);
  if (!vendor || !product) return std::nullopt;
  return UsbIds(*vendor, *product);
}

std::string UpperCased(std::string_view key) {
  std::string upper(key);
  std::ranges::transform(upper, upper.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return upper;
}

bool NamesAState(std::string_view value) {
  if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
    value = value.substr(1, value.size() - 2);
  }
  return value == "CONFIGURED" || value == "UNCONFIGURED";
}

}  // namespace

std::set<UsbIds> ReadProbeIds(std::istream& settings) {
  constexpr char kEndOfText = 0x1A;
  std::set<UsbIds> ids;
  std::set<std::string> seen;
  bool ended = false;
  for (std::string line; !ended && std::getline(settings, line);) {
    const std::size_t end = line.find(kEndOfText);
    ended = end != std::string::npos;
    if (!settings.eof() && line.ends_with('\r')) line.pop_back();
    const std::string_view text = std::string_view(line).substr(0, end);
    const std::size_t equals = text.find('=');
    if (text.starts_with(';') || equals == std::string_view::npos) continue;
    const std::string key = UpperCased(text.substr(0, equals));
    if (!seen.insert(key).second || !NamesAState(text.substr(equals + 1))) continue;
    if (const auto found = IdsOfKey(key)) ids.insert(*found);
  }
  return ids;
}

std::string SettingsPath() {
  const std::string program = ExecutablePath();
  return program.substr(0, program.rfind('/') + 1) + "wfxusb.ini";
}

}  // namespace linux_host
