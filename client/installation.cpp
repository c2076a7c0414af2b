#include "client/installation.h"

#include <windows.h>

#include <objbase.h>

#include <array>
#include <fstream>

#include "api/identifiers.h"
#include "client/text.h"

namespace client {

namespace {

constexpr char kSettingsFile[] = "wfxusb.ini";

std::wstring TextOf(const GUID& id) {
  std::array<wchar_t, 39> text{};
  StringFromGUID2(id, text.data(), static_cast<int>(text.size()));
  return text.data();
}

// A text of the classes root; empty when there is none.
std::wstring RegisteredText(const std::wstring& path, const wchar_t* name) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return {};
  std::array<wchar_t, 1024> text{};
  DWORD type = 0;
  DWORD size = sizeof(text) - sizeof(wchar_t);  // a zero stays behind the longest text
  const LONG read =
      RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &size);
  RegCloseKey(key);
  return read == ERROR_SUCCESS && type == REG_SZ ? text.data() : std::wstring();
}

// The program of a command line, whose path may be in quotes.
std::string ProgramOf(const std::wstring& command) {
  const bool quoted = command.starts_with(L'"');
  return Utf8FromWide(quoted ? command.substr(1, command.find(L'"', 1) - 1) : command);
}

// One that stands by itself: with a drive, or where names begin with a slash with that.
bool IsAbsoluteName(const std::string& name) {
  const bool begins_with_slash = std::filesystem::path::preferred_separator == L'/';
  return (begins_with_slash && name.starts_with('/')) || (name.size() >= 2 && name[1] == ':');
}

}  // namespace

std::filesystem::path PathFromUtf8(const std::string& text) {
  return std::u8string(text.begin(), text.end());
}

std::string Utf8FromPath(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

bool IsMissing(const std::filesystem::path& path) {
  std::error_code unknown;
  return std::filesystem::status(path, unknown).type() == std::filesystem::file_type::not_found;
}

bool IsReadable(const std::filesystem::path& path) {
  // One without a writer would be waited for.
  std::error_code unknown;
  return !std::filesystem::is_fifo(path, unknown) && std::ifstream(path, std::ios::binary).good();
}

std::filesystem::path FileOf(const Installation& installation, const std::string& name) {
  const std::filesystem::path file = PathFromUtf8(Utf8FromArgument(name));
  if (IsAbsoluteName(name)) return file;
  return PathFromUtf8(installation.program).replace_filename(file);
}

Installation FindInstallation() {
  Installation found;
  found.program =
      ProgramOf(RegisteredText(L"CLSID\\" + TextOf(api::kClassId) + L"\\LocalServer32", nullptr));
  found.service = Utf8FromWide(RegisteredText(L"AppID\\" + TextOf(api::kAppId), L"LocalService"));
  if (found.program.empty()) return found;
  const std::filesystem::path settings =
      PathFromUtf8(found.program).replace_filename(kSettingsFile);
  found.settings = Utf8FromPath(settings);
  found.settings_missing = IsMissing(settings);
  std::ifstream file(settings, std::ios::binary);
  if (file) ReadSettingsTable(file, found.values.emplace());
  return found;
}

}  // namespace client
