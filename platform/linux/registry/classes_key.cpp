#include "platform/linux/registry/classes_key.h"

#include <iterator>

namespace linux_host {

bool ClassesKey::Open(const std::wstring& path) {
  return RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &key_) == ERROR_SUCCESS;
}

bool ClassesKey::Create(const std::wstring& path) {
  return RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                         KEY_WRITE, nullptr, &key_, nullptr) == ERROR_SUCCESS;
}

bool ClassesKey::Get(const wchar_t* name, std::wstring& text) const {
  DWORD type = 0, size = 0;
  if (RegQueryValueExW(key_, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
      type != REG_SZ) {
    return false;
  }
  std::wstring value(size / sizeof(WCHAR), L'\0');
  if (RegQueryValueExW(key_, name, nullptr, &type, reinterpret_cast<BYTE*>(value.data()), &size) !=
      ERROR_SUCCESS) {
    return false;
  }
  text = value.substr(0, value.find(L'\0'));
  return true;
}

bool ClassesKey::Set(const wchar_t* name, const std::wstring& text) const {
  return RegSetValueExW(key_, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR))) == ERROR_SUCCESS;
}

bool ClassesKey::SubkeyAt(DWORD index, std::wstring& name) const {
  WCHAR buffer[256];
  DWORD length = static_cast<DWORD>(std::size(buffer));
  if (RegEnumKeyExW(key_, index, buffer, &length, nullptr, nullptr, nullptr, nullptr) !=
      ERROR_SUCCESS) {
    return false;
  }
  name.assign(buffer, length);
  return true;
}

}  // namespace linux_host
