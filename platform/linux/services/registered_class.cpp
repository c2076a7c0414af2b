#include "platform/linux/services/registered_class.h"

#include <objbase.h>

#include <iterator>

#include "platform/linux/kernel/text.h"

namespace linux_host {
namespace {

// A text of the classes root; empty when there is none.
std::wstring TextAt(const std::wstring& path, const wchar_t* name) {
  HKEY key;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return {};
  DWORD type = 0, size = 0;
  std::wstring value;
  if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &size) == ERROR_SUCCESS &&
      type == REG_SZ) {
    value.resize(size / sizeof(WCHAR));
    if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(value.data()), &size) !=
        ERROR_SUCCESS) {
      value.clear();
    }
    value.resize(value.find(L'\0') == std::wstring::npos ? value.size() : value.find(L'\0'));
  }
  RegCloseKey(key);
  return value;
}

}  // namespace

RegisteredClass FindRegisteredClass(REFCLSID id) {
  OLECHAR text[40];
  StringFromGUID2(id, text, static_cast<int>(std::size(text)));
  const std::wstring path = L"CLSID\\" + std::wstring(text);
  RegisteredClass found;
  found.command = WideToUtf8(TextAt(path + L"\\LocalServer32", nullptr));
  const std::wstring app_id = TextAt(path, L"AppID");
  if (!app_id.empty()) found.service = WideToUtf8(TextAt(L"AppID\\" + app_id, L"LocalService"));
  return found;
}

}  // namespace linux_host
