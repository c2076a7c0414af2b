// A registry key that belongs to one test.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

namespace contract {

inline constexpr wchar_t kScratchKey[] = L"WirefoxContractTest";

inline std::vector<std::wstring> SubkeyNames(HKEY key) {
  std::vector<std::wstring> names;
  wchar_t name[256];
  for (DWORD index = 0;; ++index) {
    DWORD length = 256;
    if (RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) != 0) break;
    names.emplace_back(name, length);
  }
  return names;
}

inline void DeleteTree(HKEY parent, const std::wstring& name) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(parent, name.c_str(), 0, KEY_READ, &key) != 0) return;
  for (const std::wstring& subkey : SubkeyNames(key)) DeleteTree(key, subkey);
  RegCloseKey(key);
  RegDeleteKeyW(parent, name.c_str());
}

class RegistryScratch : public testing::Test {
 protected:
  void SetUp() override {
    DeleteTree(HKEY_CLASSES_ROOT, kScratchKey);
    scratch_ = Create(HKEY_CLASSES_ROOT, kScratchKey);
  }

  void TearDown() override {
    RegCloseKey(scratch_);
    DeleteTree(HKEY_CLASSES_ROOT, kScratchKey);
  }

  static HKEY Create(HKEY parent, const wchar_t* path, REGSAM access = KEY_ALL_ACCESS) {
    HKEY key = nullptr;
    EXPECT_EQ(0, RegCreateKeyExW(parent, path, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr,
                                 &key, nullptr));
    return key;
  }

  static LONG Open(HKEY parent, const wchar_t* path, REGSAM access, HKEY* key) {
    return RegOpenKeyExW(parent, path, 0, access, key);
  }

  // The status of opening; what was opened is closed again.
  static LONG TryOpen(HKEY parent, const wchar_t* path) {
    HKEY key = nullptr;
    const LONG status = Open(parent, path, KEY_READ, &key);
    if (status == 0) RegCloseKey(key);
    return status;
  }

  static LONG SetText(HKEY key, const wchar_t* name, const std::wstring& text) {
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)));
  }

  static std::wstring Text(HKEY key, const wchar_t* name) {
    wchar_t text[256] = {};
    DWORD size = sizeof(text);
    DWORD type = REG_NONE;
    const LONG status =
        RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
    if (status != 0) return L"status " + std::to_wstring(status);
    return type == REG_SZ ? text : L"type " + std::to_wstring(type);
  }

  HKEY scratch_ = nullptr;
};

}  // namespace contract
