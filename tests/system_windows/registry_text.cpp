#include "tests/system_windows/registry_text.h"

#include <cstdint>
#include <cstdio>
#include <utility>

namespace system_windows {
namespace {

std::wstring ValueText(DWORD type, const std::vector<std::uint8_t>& data) {
  const auto* text = reinterpret_cast<const wchar_t*>(data.data());
  const std::size_t length = data.size() / sizeof(wchar_t);
  switch (type) {
    case REG_SZ:
    case REG_MULTI_SZ: {
      // Zeros show as bars; the one that ends the text is expected and not shown.
      std::wstring shown(text, length);
      if (!shown.empty() && shown.back() == 0) shown.pop_back();
      for (wchar_t& c : shown) c = c == 0 ? L'|' : c;
      return (type == REG_SZ ? L"text " : L"list ") + shown;
    }
    case REG_DWORD:
      return data.size() == sizeof(DWORD)
                 ? L"number " + std::to_wstring(*reinterpret_cast<const DWORD*>(data.data()))
                 : L"number of a strange size";
    default: {
      std::wstring shown = type == REG_BINARY ? L"bytes " : L"type " + std::to_wstring(type) + L" ";
      for (const std::uint8_t byte : data) {
        wchar_t digits[3];
        std::swprintf(digits, 3, L"%02x", byte);
        shown += digits;
      }
      return shown;
    }
  }
}

void ReadKey(HKEY key, const std::wstring& path, RegistryText& text) {
  DWORD longest_data = 0;
  RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                   &longest_data, nullptr, nullptr);
  std::vector<wchar_t> name(16384);
  std::vector<std::uint8_t> data;
  for (DWORD i = 0;; ++i) {
    DWORD name_length = static_cast<DWORD>(name.size());
    DWORD type = 0;
    data.resize(longest_data + sizeof(wchar_t));
    DWORD size = static_cast<DWORD>(data.size());
    if (RegEnumValueW(key, i, name.data(), &name_length, nullptr, &type, data.data(), &size)) break;
    data.resize(size);
    text[path + (name_length > 0 ? std::wstring(name.data(), name_length) : L"@")] =
        ValueText(type, data);
  }
  for (DWORD i = 0;; ++i) {
    DWORD name_length = 256;
    if (RegEnumKeyExW(key, i, name.data(), &name_length, nullptr, nullptr, nullptr, nullptr)) break;
    HKEY subkey = nullptr;
    const std::wstring subname(name.data(), name_length);
    text[path + subname + L"\\"] = L"key";
    if (RegOpenKeyExW(key, subname.c_str(), 0, KEY_READ, &subkey) != ERROR_SUCCESS) continue;
    ReadKey(subkey, path + subname + L"\\", text);
    RegCloseKey(subkey);
  }
}

}  // namespace

RegistryText ReadRegistered() {
  RegistryText text;
  for (const auto& [path, name] :
       {std::pair(L"Software\\Classes", L"Classes\\"),
        std::pair(L"System\\CurrentControlSet\\Services", L"Services\\")}) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) != ERROR_SUCCESS) continue;
    ReadKey(key, name, text);
    RegCloseKey(key);
  }
  return text;
}

std::vector<std::wstring> Differences(const RegistryText& before, const RegistryText& after) {
  std::vector<std::wstring> lines;
  for (const auto& [path, value] : before) {
    const auto found = after.find(path);
    if (found == after.end() || found->second != value) {
      lines.push_back(L"-" + path + L" = " + value);
    }
  }
  for (const auto& [path, value] : after) {
    const auto found = before.find(path);
    if (found == before.end() || found->second != value) {
      lines.push_back(L"+" + path + L" = " + value);
    }
  }
  return lines;
}

}  // namespace system_windows
