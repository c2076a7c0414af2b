#include "service/registry_key.h"

#include <array>

namespace {

// The longest name of a key has 255 characters.
constexpr DWORD kNameRoom = 256;

LONG FirstSubkey(HKEY key, std::wstring& name) {
  std::array<wchar_t, kNameRoom> buffer;
  DWORD length = kNameRoom;
  const LONG result =
      RegEnumKeyExW(key, 0, buffer.data(), &length, nullptr, nullptr, nullptr, nullptr);
  if (result == ERROR_SUCCESS) name.assign(buffer.data(), length);
  return result;
}

}  // namespace

LONG OpenKey(HKEY parent, const std::wstring& path, REGSAM access, RegistryKey& key) {
  HKEY opened = nullptr;
  const LONG result = RegOpenKeyExW(parent, path.c_str(), 0, access, &opened);
  if (result == ERROR_SUCCESS) key.Reset(opened);
  return result;
}

LONG CreateKey(HKEY parent, const std::wstring& path, REGSAM access, RegistryKey& key) {
  HKEY opened = nullptr;
  const LONG result = RegCreateKeyExW(parent, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                      access, nullptr, &opened, nullptr);
  if (result == ERROR_SUCCESS) key.Reset(opened);
  return result;
}

LONG SetText(HKEY key, const wchar_t* name, const std::wstring& text) {
  const auto bytes = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
  return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), bytes);
}

LONG DeleteValueIfPresent(HKEY key, const wchar_t* name) {
  const LONG result = RegDeleteValueW(key, name);
  return result == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : result;
}

LONG DeleteTree(HKEY parent, const std::wstring& path) {
  {
    RegistryKey key;
    const LONG opened = OpenKey(parent, path, KEY_READ | KEY_WRITE, key);
    if (opened == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (opened != ERROR_SUCCESS) return opened;
    std::wstring subkey;
    LONG result = FirstSubkey(key.Get(), subkey);
    while (result == ERROR_SUCCESS) {
      if (const LONG deleted = DeleteTree(key.Get(), subkey); deleted != ERROR_SUCCESS) {
        return deleted;
      }
      result = FirstSubkey(key.Get(), subkey);
    }
    if (result != ERROR_NO_MORE_ITEMS) return result;
  }
  return RegDeleteKeyW(parent, path.c_str());
}

bool HasSubkeys(HKEY key) {
  std::wstring name;
  return FirstSubkey(key, name) != ERROR_NO_MORE_ITEMS;
}
