#include "platform/linux/com/type_registry.h"

#include <objbase.h>

#include <cwchar>
#include <iterator>

namespace linux_host {
namespace {

using interface_schema::Interface;
using interface_schema::Library;

constexpr wchar_t kAutomationMarshaller[] = L"{00020424-0000-0000-C000-000000000046}";
constexpr wchar_t kPlatform[] = L"win64";

std::wstring GuidText(REFGUID id) {
  OLECHAR text[40];
  StringFromGUID2(id, text, static_cast<int>(std::size(text)));
  return text;
}

std::wstring Hex(unsigned value) {
  wchar_t text[12];
  std::swprintf(text, std::size(text), L"%x", value);
  return text;
}

std::wstring Version(WORD major, WORD minor) { return Hex(major) + L"." + Hex(minor); }

std::wstring VersionKey(REFGUID id, WORD major, WORD minor) {
  return L"TypeLib\\" + GuidText(id) + L"\\" + Version(major, minor);
}

// An open key of the classes root.
class Key {
 public:
  ~Key() {
    if (key_ != nullptr) RegCloseKey(key_);
  }
  Key() = default;
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;

  bool Open(const std::wstring& path) {
    return RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &key_) == ERROR_SUCCESS;
  }
  bool Create(const std::wstring& path) {
    return RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                           KEY_WRITE, nullptr, &key_, nullptr) == ERROR_SUCCESS;
  }
  bool Set(const wchar_t* name, const std::wstring& text) {
    return RegSetValueExW(key_, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR))) == ERROR_SUCCESS;
  }
  bool Get(std::wstring& text) {
    WCHAR buffer[4096];
    DWORD type = 0, size = sizeof buffer - sizeof(WCHAR);
    if (RegQueryValueExW(key_, nullptr, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size) !=
            ERROR_SUCCESS ||
        type != REG_SZ) {
      return false;
    }
    buffer[size / sizeof(WCHAR)] = L'\0';
    text = buffer;
    return true;
  }
  // The name of the subkey at that place.
  bool SubkeyAt(DWORD index, std::wstring& name) {
    WCHAR buffer[256];
    DWORD length = static_cast<DWORD>(std::size(buffer));
    if (RegEnumKeyExW(key_, index, buffer, &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS) {
      return false;
    }
    name.assign(buffer, length);
    return true;
  }

 private:
  HKEY key_ = nullptr;
};

bool Write(const std::wstring& path, const std::wstring& text) {
  Key key;
  return key.Create(path) && key.Set(nullptr, text);
}

bool Remove(const std::wstring& path) {
  return RegDeleteKeyW(HKEY_CLASSES_ROOT, path.c_str()) == ERROR_SUCCESS;
}

bool WriteInterface(const Library& library, const Interface& description) {
  const std::wstring path = L"Interface\\" + GuidText(*description.id);
  Key type_library;
  return Write(path, description.name) &&
         Write(path + L"\\ProxyStubClsid32", kAutomationMarshaller) &&
         type_library.Create(path + L"\\TypeLib") &&
         type_library.Set(nullptr, GuidText(*library.id)) &&
         type_library.Set(L"Version", Version(library.major_version, library.minor_version));
}

void RemoveInterface(REFGUID library, const Interface& description) {
  const std::wstring path = L"Interface\\" + GuidText(*description.id);
  std::wstring owner;
  {
    Key key;
    if (!key.Open(path + L"\\TypeLib") || !key.Get(owner)) return;
  }
  if (owner != GuidText(library)) return;
  Remove(path + L"\\TypeLib");
  Remove(path + L"\\ProxyStubClsid32");
  Remove(path);
}

// Whether locales (subkeys other than these two) are left below a version.
bool HasLocales(const std::wstring& version) {
  Key key;
  std::wstring name;
  if (!key.Open(version)) return false;
  for (DWORD i = 0; key.SubkeyAt(i, name); ++i) {
    if (name != L"FLAGS" && name != L"HELPDIR") return true;
  }
  return false;
}

}  // namespace

bool FindRegisteredLibrary(REFGUID id, WORD major, WORD minor, std::wstring& path) {
  const std::wstring version = VersionKey(id, major, minor);
  Key key;
  if (!key.Open(version)) return false;
  std::wstring locale;
  for (DWORD i = 0; key.SubkeyAt(i, locale); ++i) {
    Key platform;
    if (platform.Open(version + L"\\" + locale + L"\\" + kPlatform) && platform.Get(path)) {
      return true;
    }
  }
  return false;
}

bool WriteLibraryEntries(const Library& library, const wchar_t* path,
                         const wchar_t* help_directory) {
  const std::wstring version =
      VersionKey(*library.id, library.major_version, library.minor_version);
  if (!Write(version, library.help) || !Write(version + L"\\FLAGS", L"0") ||
      !Write(version + L"\\" + Hex(library.locale) + L"\\" + kPlatform, path)) {
    return false;
  }
  if (help_directory != nullptr && !Write(version + L"\\HELPDIR", help_directory)) return false;
  for (const Interface* description : library.interfaces) {
    if (!WriteInterface(library, *description)) return false;
  }
  return true;
}

bool RemoveLibraryEntries(REFGUID id, WORD major, WORD minor, LCID locale,
                          const Library* description) {
  const std::wstring version = VersionKey(id, major, minor);
  const std::wstring of_locale = version + L"\\" + Hex(locale);
  if (!Remove(of_locale + L"\\" + kPlatform)) return false;
  Remove(of_locale);  // stays while it holds another platform's file
  if (description != nullptr) {
    for (const Interface* listed : description->interfaces) RemoveInterface(id, *listed);
  }
  if (!HasLocales(version)) {
    Remove(version + L"\\FLAGS");
    Remove(version + L"\\HELPDIR");
    Remove(version);
  }
  Remove(L"TypeLib\\" + GuidText(id));  // stays while another version is registered
  return true;
}

}  // namespace linux_host
