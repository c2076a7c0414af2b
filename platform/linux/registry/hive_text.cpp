#include <windows.h>

#include <winreg.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "platform/linux/kernel/text.h"
#include "platform/linux/registry/hive.h"

namespace linux_host {
namespace {

constexpr std::string_view kFirstLine = "Wirefox registry 1";
constexpr std::string_view kLastLine = "end";
constexpr std::string_view kDwordPrefix = "dword:";
constexpr std::string_view kHexPrefix = "hex(";

// The text of a REG_SZ value that can stand between quotes: whole characters that end with the only
// NUL and can be written on one line.
std::optional<std::string> PlainText(const RegistryValue& value) {
  if (value.type != REG_SZ || value.data.empty() || value.data.size() % sizeof(WCHAR) != 0) {
    return std::nullopt;
  }
  std::wstring text(value.data.size() / sizeof(WCHAR), L'\0');
  std::memcpy(text.data(), value.data.data(), value.data.size());
  if (text.back() != 0) return std::nullopt;
  text.pop_back();
  return PlainUtf8(text);
}

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

void AppendHex(std::string& out, std::uint32_t number, int digits) {
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
    out += "0123456789abcdef"[number >> shift & 0xF];
  }
}

int HexDigits(std::uint32_t number) {
  int digits = 1;
  while (number >>= 4) ++digits;
  return digits;
}

std::string FormatData(const RegistryValue& value) {
  if (const auto text = PlainText(value)) return Quoted(*text);
  std::string out;
  if (value.type == REG_DWORD && value.data.size() == 4) {
    out = kDwordPrefix;
    for (int i = 3; i >= 0; --i) AppendHex(out, value.data[i], 2);
    return out;
  }
  out = kHexPrefix;
  AppendHex(out, value.type, HexDigits(value.type));
  out += "):";
  for (std::size_t i = 0; i < value.data.size(); ++i) {
    if (i > 0) out += ',';
    AppendHex(out, value.data[i], 2);
  }
  return out;
}

void FormatKey(const RegistryKey& key, const std::string& path, std::string& out) {
  if (!path.empty()) out.append("[").append(path).append("]\n");
  for (const auto& [name, value] : key.values) {
    out.append(name.empty() ? "@" : Quoted(WideToUtf8(name))).append("=");
    out.append(FormatData(value)).append("\n");
  }
  if (!path.empty() || !key.values.empty()) out += "\n";
  for (const auto& [name, subkey] : key.subkeys) {
    FormatKey(*subkey, path.empty() ? WideToUtf8(name) : path + "\\" + WideToUtf8(name), out);
  }
}

std::optional<std::wstring> WellFormedWide(std::string_view text) {
  bool malformed = false;
  std::wstring wide = Utf8ToWide(text, &malformed);
  if (malformed) return std::nullopt;
  return wide;
}

std::optional<std::uint32_t> ParseHex(std::string_view digits, std::size_t longest) {
  if (digits.empty() || digits.size() > longest) return std::nullopt;
  std::uint32_t number = 0;
  for (const char c : digits) {
    const int digit = c >= '0' && c <= '9'   ? c - '0'
                      : c >= 'a' && c <= 'f' ? c - 'a' + 10
                      : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                             : -1;
    if (digit < 0) return std::nullopt;
    number = number << 4 | static_cast<std::uint32_t>(digit);
  }
  return number;
}

// Takes a quoted text from the front of `line`.
std::optional<std::wstring> TakeQuoted(std::string_view& line) {
  if (!line.starts_with('"')) return std::nullopt;
  std::string text;
  for (std::size_t i = 1; i < line.size(); ++i) {
    if (line[i] == '"') {
      line.remove_prefix(i + 1);
      return WellFormedWide(text);
    }
    if (line[i] == '\\' && ++i == line.size()) return std::nullopt;
    text += line[i];
  }
  return std::nullopt;
}

std::optional<RegistryValue> ParseText(std::string_view data) {
  auto text = TakeQuoted(data);
  if (!text || !data.empty()) return std::nullopt;
  RegistryValue value{.type = REG_SZ, .data = {}};
  value.data.resize((text->size() + 1) * sizeof(WCHAR));
  std::memcpy(value.data.data(), text->c_str(), value.data.size());
  return value;
}

std::optional<RegistryValue> ParseDword(std::string_view data) {
  data.remove_prefix(kDwordPrefix.size());
  const auto number = ParseHex(data, 8);
  if (!number) return std::nullopt;
  RegistryValue value{.type = REG_DWORD, .data = {}};
  for (int shift = 0; shift < 32; shift += 8) {
    value.data.push_back(static_cast<std::uint8_t>(*number >> shift));
  }
  return value;
}

std::optional<RegistryValue> ParseBytes(std::string_view data) {
  data.remove_prefix(kHexPrefix.size());
  const auto type_end = data.find("):");
  if (type_end == data.npos) return std::nullopt;
  const auto type = ParseHex(data.substr(0, type_end), 8);
  if (!type) return std::nullopt;
  data.remove_prefix(type_end + 2);
  RegistryValue value{.type = *type, .data = {}};
  while (!data.empty()) {
    const auto byte = ParseHex(data.substr(0, 2), 2);
    if (!byte) return std::nullopt;
    value.data.push_back(static_cast<std::uint8_t>(*byte));
    data.remove_prefix(std::min<std::size_t>(2, data.size()));
    if (data.empty()) break;
    // A comma stands between two bytes only.
    if (data[0] != ',' || data.size() == 1) return std::nullopt;
    data.remove_prefix(1);
  }
  return value;
}

std::optional<RegistryValue> ParseData(std::string_view data) {
  if (data.starts_with(kDwordPrefix)) return ParseDword(data);
  if (data.starts_with(kHexPrefix)) return ParseBytes(data);
  return ParseText(data);
}

class HiveParser {
 public:
  explicit HiveParser(RegistryKey& root) : root_(root), key_(&root) {}

  // What is wrong with the line; null when nothing is.
  const char* TakeLine(std::string_view line) {
    if (line.ends_with('\r')) line.remove_suffix(1);  // of an editor's
    if (ended_) return line.empty() ? nullptr : "text after the last line";
    if (!begun_) {
      begun_ = true;
      return line == kFirstLine ? nullptr : "this is no registry of a known form";
    }
    if (line.empty() || line[0] == ';') return nullptr;
    if (line == kLastLine) {
      ended_ = true;
      return nullptr;
    }
    return line[0] == '[' ? TakeKey(line) : TakeValue(line);
  }

  bool ended() const { return ended_; }

 private:
  const char* TakeKey(std::string_view line) {
    if (!line.ends_with(']') || line.size() < 3) return "a key without its closing bracket";
    const auto path = WellFormedWide(line.substr(1, line.size() - 2));
    if (!path) return "a key's path is not UTF-8";
    const auto components = SplitKeyPath(*path);
    if (components.size() > kMaxKeyDepth) return "a key lies too deep";
    for (const std::wstring& name : components) {
      if (!IsKeyName(name)) return "a key's name is not allowed";
    }
    key_ = &root_.FindOrCreate(components);
    return nullptr;
  }

  const char* TakeValue(std::string_view line) {
    std::wstring name;
    if (line[0] == '@') {
      line.remove_prefix(1);
    } else if (auto quoted = TakeQuoted(line)) {
      name = std::move(*quoted);
    } else {
      return "neither a key nor a value";
    }
    if (!IsValueName(name)) return "a value's name is not allowed";
    if (!line.starts_with('=')) return "a value without an equals sign";
    auto value = ParseData(line.substr(1));
    if (!value) return "a value's data is malformed";
    if (!key_->values.emplace(std::move(name), std::move(*value)).second) {
      return "a value stands twice";
    }
    return nullptr;
  }

  RegistryKey& root_;
  RegistryKey* key_;  // the one that value lines belong to
  bool begun_ = false;
  bool ended_ = false;
};

}  // namespace

std::string FormatHive(const RegistryKey& root) {
  std::string out = std::string(kFirstLine) + "\n\n";
  FormatKey(root, "", out);
  out.append(kLastLine).append("\n");
  return out;
}

HiveFault ParseHive(std::string_view text, RegistryKey& root) {
  HiveParser parser(root);
  std::size_t line_number = 0;
  while (!text.empty()) {
    ++line_number;
    const auto end = std::min(text.find('\n'), text.size());
    if (const char* what = parser.TakeLine(text.substr(0, end))) return {line_number, what};
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  if (!parser.ended()) return {line_number + 1, "the end is missing"};
  return {};
}

}  // namespace linux_host
