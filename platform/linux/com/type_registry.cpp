#include "platform/linux/com/type_registry.h"

#include <cwchar>
#include <iterator>

#include "platform/linux/automation/guid_text.h"
#include "platform/linux/registry/classes_key.h"

namespace linux_host {
namespace {

using interface_schema::Interface;
using interface_schema::Library;

constexpr wchar_t kAutomationMarshaller[] = L"{00020424-0000-0000-C000-000000000046}";
constexpr wchar_t kPlatform[] = L"win64";

std::wstring Hex(unsigned value) {
  wchar_t text[12];
  std::swprintf(text, std::size(text), L"%x", value);
  return text;
}

std::wstring Version(WORD major, WORD minor) { return Hex(major) + L"." + Hex(minor); }

std::wstring VersionKey(REFGUID id, WORD major, WORD minor) {
  return L"TypeLib\\" + GuidText(id) + L"\\" + Version(major, minor);
}

bool Write(const std::wstring& path, const std::wstring& text) {
  ClassesKey key;
  return key.Create(path) && key.Set(nullptr, text);
}

bool Remove(const std::wstring& path) {
  return RegDeleteKeyW(HKEY_CLASSES_ROOT, path.c_str()) == ERROR_SUCCESS;
}

bool WriteInterface(const Library& library, const Interface& description) {
  const std::wstring path = L"Interface\\" + GuidText(*description.id);
  ClassesKey type_library;
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
    ClassesKey key;
    if (!key.Open(path + L"\\TypeLib") || !key.Get(nullptr, owner)) return;
  }
  if (owner != GuidText(library)) return;
  Remove(path + L"\\TypeLib");
  Remove(path + L"\\ProxyStubClsid32");
  Remove(path);
}

// Whether locales (subkeys other than these two) are left below a version.
bool HasLocales(const std::wstring& version) {
  ClassesKey key;
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
  ClassesKey key;
  if (!key.Open(version)) return false;
  std::wstring locale;
  for (DWORD i = 0; key.SubkeyAt(i, locale); ++i) {
    ClassesKey platform;
    if (platform.Open(version + L"\\" + locale + L"\\" + kPlatform) &&
        platform.Get(nullptr, path)) {
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
  if (help_directory && !Write(version + L"\\HELPDIR", help_directory)) return false;
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
  if (description) {
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
