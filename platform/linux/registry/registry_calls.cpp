#include <windows.h>

#include <winreg.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include "platform/linux/registry/registry.h"

// The lock is taken once by each call. Statuses are system error codes.

namespace {

using linux_host::KeyPath;
using linux_host::KeyView;
using linux_host::Registry;
using linux_host::RegistryKey;
using linux_host::RegistryValue;

// A handle's key as it is now.
struct Target {
  Registry::OpenKey* key = nullptr;
  KeyView view;
};

std::uint32_t LookUp(Registry& registry, HKEY handle, REGSAM needed, Target* target) {
  target->key = registry.FindOpenKey(handle);
  if (!target->key) return ERROR_INVALID_HANDLE;
  if (target->key->deleted) return ERROR_KEY_DELETED;
  if ((target->key->access & needed) != needed) return ERROR_ACCESS_DENIED;
  if (const auto status = registry.View(target->key->path, &target->view)) return status;
  if (!target->key->path.empty() && !target->view.exists()) {
    target->key->deleted = true;
    return ERROR_KEY_DELETED;
  }
  return ERROR_SUCCESS;
}

// Appends the relative path `subkey`, null being empty, to `path`.
std::uint32_t AppendPath(LPCWSTR subkey, KeyPath& path) {
  std::wstring_view relative = subkey ? subkey : L"";
  if (relative.starts_with(L'\\')) {
    // Windows allows one here, below the classes root only.
    if (!path.empty()) return ERROR_BAD_PATHNAME;
    relative.remove_prefix(1);
  }
  if (relative.ends_with(L'\\')) relative.remove_suffix(1);
  for (std::wstring& name : linux_host::SplitKeyPath(relative)) {
    if (!linux_host::IsKeyName(name)) return ERROR_INVALID_PARAMETER;
    path.push_back(std::move(name));
  }
  return path.size() > linux_host::kMaxKeyDepth ? ERROR_FILENAME_EXCED_RANGE : ERROR_SUCCESS;
}

// The rights that a handle carries; views and generic parts of the request are no rights.
REGSAM Rights(REGSAM requested) { return requested & KEY_ALL_ACCESS; }

std::wstring NameOrDefault(LPCWSTR name) { return name ? name : L""; }

std::uint32_t CopyData(const RegistryValue& value, LPDWORD type, LPBYTE data, LPDWORD size) {
  if (type) *type = value.type;
  if (!size) return ERROR_SUCCESS;
  const DWORD room = *size;
  const auto length = static_cast<DWORD>(value.data.size());
  *size = length;
  if (!data) return ERROR_SUCCESS;
  if (length > room) return ERROR_MORE_DATA;
  std::copy(value.data.begin(), value.data.end(), data);
  // Windows ends a text that was stored without a NUL where there is room for one.
  const bool text = value.type == REG_SZ || value.type == REG_EXPAND_SZ;
  if (text && room - length >= sizeof(WCHAR)) std::memset(data + length, 0, sizeof(WCHAR));
  return ERROR_SUCCESS;
}

// `length`: room with the NUL on entry, length without it on return.
std::uint32_t CopyName(const std::wstring& text, LPWSTR name, LPDWORD length) {
  if (text.size() >= *length) return ERROR_MORE_DATA;
  std::copy_n(text.c_str(), text.size() + 1, name);
  *length = static_cast<DWORD>(text.size());
  return ERROR_SUCCESS;
}

}  // namespace

LONG RegOpenKeyExW(HKEY key, LPCWSTR subkey, DWORD options, REGSAM access, PHKEY result) {
  if (!result || options != 0) return ERROR_INVALID_PARAMETER;
  Registry& registry = Registry::Get();
  const std::lock_guard lock(registry.mutex);
  Target target;
  if (const auto status = LookUp(registry, key, 0, &target)) return status;
  KeyPath path = target.key->path;
  if (const auto status = AppendPath(subkey, path)) return status;
  KeyView view;
  if (const auto status = registry.View(path, &view)) return status;
  if (path.empty()) {
    *result = HKEY_CLASSES_ROOT;
    return ERROR_SUCCESS;
  }
  if (!view.exists()) return ERROR_FILE_NOT_FOUND;
  *result = registry.AddOpenKey(std::move(path), Rights(access));
  return ERROR_SUCCESS;
}

LONG RegCreateKeyExW(HKEY key, LPCWSTR subkey, DWORD reserved, LPWSTR, DWORD options, REGSAM access,
                     LPSECURITY_ATTRIBUTES security, PHKEY result, LPDWORD disposition) {
  if (!result || !subkey || reserved != 0 || options != REG_OPTION_NON_VOLATILE || security) {
    return ERROR_INVALID_PARAMETER;
  }
  Registry& registry = Registry::Get();
  const std::lock_guard lock(registry.mutex);
  Registry::OpenKey* parent = registry.FindOpenKey(key);
  if (!parent) return ERROR_INVALID_HANDLE;
  // A damaged hive is no hindrance: the change below puts it aside.
  Target target;
  const auto parent_status = LookUp(registry, key, 0, &target);
  if (parent_status != ERROR_SUCCESS && parent_status != ERROR_REGISTRY_CORRUPT) {
    return parent_status;
  }
  KeyPath path = parent->path;
  if (const auto status = AppendPath(subkey, path)) return status;

  KeyView view;
  const auto status = registry.View(path, &view);
  if (status != ERROR_SUCCESS && status != ERROR_REGISTRY_CORRUPT) return status;
  bool created = false;
  if (status == ERROR_REGISTRY_CORRUPT || (!path.empty() && !view.exists())) {
    if ((parent->access & KEY_CREATE_SUB_KEY) == 0) return ERROR_ACCESS_DENIED;
    const auto change_status = registry.Change([&](RegistryKey& root, bool* altered) {
      created = *altered = root.Find(path) == nullptr;
      root.FindOrCreate(path);
      return ERROR_SUCCESS;
    });
    if (change_status != ERROR_SUCCESS) return change_status;
  }
  if (disposition) *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
  *result = path.empty() ? HKEY_CLASSES_ROOT : registry.AddOpenKey(path, Rights(access));
  return ERROR_SUCCESS;
}

LONG RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                    DWORD size) {
  const std::wstring value_name = NameOrDefault(name);
  if (reserved != 0 || (!data && size > 0) || !linux_host::IsValueName(value_name)) {
    return ERROR_INVALID_PARAMETER;
  }
  Registry& registry = Registry::Get();
  const std::lock_guard lock(registry.mutex);
  Target target;
  if (const auto status = LookUp(registry, key, KEY_SET_VALUE, &target)) return status;
  const RegistryValue value{.type = type, .data = {data, data + size}};
  return registry.Change([&](RegistryKey& root, bool* altered) -> std::uint32_t {
    const RegistryKey* existing = root.Find(target.key->path);
    // Another process deleted it in this moment. (A key that only the machine's hive has gets a
    // counterpart in the caller's own.)
    if (!existing && target.view.own()) return ERROR_KEY_DELETED;
    if (existing) {
      const auto found = existing->values.find(value_name);
      if (found != existing->values.end() && found->second == value) return ERROR_SUCCESS;
    }
    *altered = true;
    root.FindOrCreate(target.key->path).values[value_name] = value;
    return ERROR_SUCCESS;
  });
}

LONG RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                      LPDWORD size) {
  if (reserved || (data && !size)) return ERROR_INVALID_PARAMETER;
  Registry& registry = Registry::Get();
  const std::lock_guard lock(registry.mutex);
  Target target;
  if (const auto status = LookUp(registry, key, KEY_QUERY_VALUE, &target)) return status;
  const RegistryValue* value = target.view.FindValue(NameOrDefault(name));
  if (!value) return ERROR_FILE_NOT_FOUND;
  return CopyData(*value, type, data, size);
}

LONG RegDeleteValueW(HKEY key, LPCWSTR name) {
  Registry& registry = Registry::Get();
  const std::lock_guard lock(registry.mutex);
  Target target;
  if (const auto status = LookUp(registry, key, KEY_SET_VALUE, &target)) return status;
  const std::wstring value_name = NameOrDefault(name);
  if (!target.view.FindValue(value_name)) return ERROR_FILE_NOT_FOUND;
  return registry.Change([&](RegistryKey& root, bool* altered) -> std::uint32_t {
    RegistryKey* own = root.Find(target.key->path);
    *altered = own && own->values.erase(value_name) == 1;
    // It is the machine's, and for its account to delete.
    return *altered ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
  });
}

LONG RegDeleteKeyW(HKEY key, LPCWSTR subkey) {
  if (!subkey) return ERROR_INVALID_PARAMETER;
  Registry& registry = Registry::Get();
  const std::lock_guard lock(registry.mutex);
  Target target;
  if (const auto status = LookUp(registry, key, 0, &target)) return status;
  KeyPath path = target.key->path;
  if (const auto status = AppendPath(subkey, path)) return status;
  if (path.empty()) return ERROR_ACCESS_DENIED;
  KeyView view;
  if (const auto status = registry.View(path, &view)) return status;
  if (!view.exists()) return ERROR_FILE_NOT_FOUND;

  const std::wstring name = path.back();
  const KeyPath parent_path(path.begin(), std::prev(path.end()));
  const auto status = registry.Change([&](RegistryKey& root, bool* altered) -> std::uint32_t {
    // A key that is not in the caller's own hive is the machine's, and for its account to delete.
    RegistryKey* own = root.Find(path);
    if (!own || !own->subkeys.empty()) return ERROR_ACCESS_DENIED;
    root.Find(parent_path)->subkeys.erase(name);
    *altered = true;
    return ERROR_SUCCESS;
  });
  if (status != ERROR_SUCCESS) return status;
  if (const auto view_status = registry.View(path, &view)) return view_status;
  if (!view.exists()) registry.MarkDeleted(path);
  return ERROR_SUCCESS;
}

LONG RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD name_length, LPDWORD reserved,
                   LPWSTR class_name, LPDWORD class_length, PFILETIME last_write) {
  if (!name || !name_length || reserved || class_name || class_length || last_write) {
    return ERROR_INVALID_PARAMETER;
  }
  Registry& registry = Registry::Get();
  const std::lock_guard lock(registry.mutex);
  Target target;
  if (const auto status = LookUp(registry, key, KEY_ENUMERATE_SUB_KEYS, &target)) return status;
  const auto names = target.view.SubkeyNames();
  if (index >= names.size()) return ERROR_NO_MORE_ITEMS;
  return CopyName(*std::next(names.begin(), index), name, name_length);
}

LONG RegCloseKey(HKEY key) {
  Registry& registry = Registry::Get();
  const std::lock_guard lock(registry.mutex);
  if (key == HKEY_CLASSES_ROOT || registry.RemoveOpenKey(key)) return ERROR_SUCCESS;
  return ERROR_INVALID_HANDLE;
}
