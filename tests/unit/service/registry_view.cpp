#include "tests/unit/service/registry_view.h"

#include <gtest/gtest.h>

#include <objbase.h>

#include <algorithm>
#include <cstdio>

#include "service/registry_key.h"
#include "service/type_library.h"

namespace {

std::string Data(DWORD type, const std::vector<BYTE>& bytes) {
  if (type == REG_SZ) {
    std::wstring text(reinterpret_cast<const wchar_t*>(bytes.data()),
                      bytes.size() / sizeof(wchar_t));
    const bool terminated = !text.empty() && text.back() == 0;
    if (terminated) text.pop_back();
    std::string shown = "\"";
    shown.append(Narrow(text)).append(terminated ? "\"" : "\" without a terminator");
    return shown;
  }
  std::string hex = "hex:";
  for (const BYTE byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned>(byte));
    hex.append(digits);
  }
  return hex;
}

Lines Values(HKEY key, const std::string& prefix) {
  Lines lines;
  for (DWORD index = 0;; ++index) {
    wchar_t name[256];
    DWORD name_length = 256;
    DWORD type = 0;
    std::vector<BYTE> data(4096);
    auto size = static_cast<DWORD>(data.size());
    const LONG result =
        RegEnumValueW(key, index, name, &name_length, nullptr, &type, data.data(), &size);
    if (result == ERROR_NO_MORE_ITEMS) break;
    EXPECT_EQ(result, ERROR_SUCCESS);
    if (result != ERROR_SUCCESS) break;
    data.resize(size);
    std::string line = prefix;
    line.append("|").append(name_length == 0 ? "@" : Narrow(name)).append("=");
    line.append(Data(type, data));
    lines.push_back(line);
  }
  std::ranges::sort(lines);
  return lines;
}

void AppendTree(HKEY parent, const std::wstring& path, const std::string& shown, Lines& lines) {
  RegistryKey key;
  if (OpenKey(parent, path, KEY_READ, key) != ERROR_SUCCESS) return;
  lines.push_back(shown);
  const Lines values = Values(key.Get(), shown);
  lines.insert(lines.end(), values.begin(), values.end());
  std::vector<std::wstring> subkeys;
  for (DWORD index = 0;; ++index) {
    wchar_t name[256];
    DWORD length = 256;
    if (RegEnumKeyExW(key.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS) {
      break;
    }
    subkeys.emplace_back(name, length);
  }
  std::ranges::sort(subkeys);
  for (const std::wstring& subkey : subkeys) {
    std::string below = shown;
    below.append("\\").append(Narrow(subkey));
    AppendTree(key.Get(), subkey, below, lines);
  }
}

}  // namespace

Lines KeyTree(HKEY root, const std::wstring& path) {
  Lines lines;
  AppendTree(root, path, Narrow(path), lines);
  return lines;
}

void RemoveTree(HKEY root, const std::wstring& path) {
  EXPECT_EQ(DeleteTree(root, path), ERROR_SUCCESS);
}

void RemoveRegistration() {
  EXPECT_TRUE(SUCCEEDED(CoInitialize(nullptr)));
  static_cast<void>(UnregisterOwnTypeLibrary());
  CoUninitialize();
  for (const wchar_t* path : kServerKeys) RemoveTree(HKEY_CLASSES_ROOT, path);
}

std::string Narrow(const std::wstring& text) {
  std::string narrow;
  for (const wchar_t c : text) narrow.push_back(c < 0x80 ? static_cast<char>(c) : '?');
  return narrow;
}
