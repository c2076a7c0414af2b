// Owner of an open registry key.
#pragma once

#include <windows.h>

#include <string>

#include "support/handle.h"

struct RegistryKeyTraits {
  using Type = HKEY;
  static Type Null() { return nullptr; }
  static void Close(Type key) { RegCloseKey(key); }
};
using RegistryKey = UniqueHandle<RegistryKeyTraits>;

// System error codes; 0 is success. `key` is replaced.
[[nodiscard]] LONG OpenKey(HKEY parent, const std::wstring& path, REGSAM access, RegistryKey& key);
[[nodiscard]] LONG CreateKey(HKEY parent, const std::wstring& path, REGSAM access,
                             RegistryKey& key);

// A null `name` is the key's default value.
[[nodiscard]] LONG SetText(HKEY key, const wchar_t* name, const std::wstring& text);

// A value that is not there counts as deleted.
[[nodiscard]] LONG DeleteValueIfPresent(HKEY key, const wchar_t* name);

// Deletes the key at `path` with everything below it; one that is not there counts as deleted.
[[nodiscard]] LONG DeleteTree(HKEY parent, const std::wstring& path);

// On failure to tell: true, so that nothing is deleted by mistake.
bool HasSubkeys(HKEY key);
