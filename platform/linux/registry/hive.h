// A registry hive in memory, and its text form.
//
// The text is UTF-8, one entry a line:
//
//   Wirefox registry 1
//
//   [AppID\TzWirefoxService.EXE]
//   "AppID"="{176dafbd-...}"
//   "AccessPermission"=hex(3):01,00,04,80
//   @="the default value"
//   "Count"=dword:0000001f
//
//   end
//
// A key line opens the key of that path, creating what is missing of it, and the value lines after
// it belong to that key. Quoted text, for names and for values of type REG_SZ, writes a backslash
// and a quote with a backslash before them. Any other value is dword:, for four bytes of REG_DWORD,
// or hex(TYPE):, its type in hexadecimal and its bytes; so is a text that cannot be written on one
// line. Empty lines and lines that begin with a semicolon say nothing and are not kept. The last
// line tells a whole file from one that was cut.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace linux_host {

// Orders names by their upper-cased characters, so that letter case makes no difference.
struct NameLess {
  using is_transparent = void;
  bool operator()(std::wstring_view a, std::wstring_view b) const;
};

// In characters, as on Windows.
inline constexpr std::size_t kMaxKeyName = 255;
inline constexpr std::size_t kMaxValueName = 16383;
inline constexpr std::size_t kMaxKeyDepth = 512;

struct RegistryValue {
  std::uint32_t type = 0;  // REG_...
  std::vector<std::uint8_t> data;

  bool operator==(const RegistryValue&) const = default;
};

struct RegistryKey {
  std::map<std::wstring, std::unique_ptr<RegistryKey>, NameLess> subkeys;
  std::map<std::wstring, RegistryValue, NameLess> values;  // "" is the default value

  // The key at `path`, relative to this one; null when there is none. The empty path is this key.
  const RegistryKey* Find(const std::vector<std::wstring>& path) const;
  RegistryKey* Find(const std::vector<std::wstring>& path);

  // The same, with what is missing created.
  RegistryKey& FindOrCreate(const std::vector<std::wstring>& path);
};

// As UTF-8, a text that can stand on one line: well-formed UTF-16 without control characters.
std::optional<std::string> PlainUtf8(std::wstring_view text);

// Whether the text form can hold a name: plain text within its length, for a key not empty and
// without backslashes.
bool IsKeyName(std::wstring_view name);
bool IsValueName(std::wstring_view name);

// The components of a path that backslashes separate.
std::vector<std::wstring> SplitKeyPath(std::wstring_view path);

std::string FormatHive(const RegistryKey& root);

struct HiveFault {
  std::size_t line = 0;  // counted from 1; 0: the text is well-formed
  std::string what;
};

// Fills the empty `root` from text that may hold anything.
HiveFault ParseHive(std::string_view text, RegistryKey& root);

}  // namespace linux_host
