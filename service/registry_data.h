// What registration writes into the registry: the application id and the class.
#pragma once

#include "service/registry_script.h"

// Names of the replacements that the scripts use.
inline constexpr wchar_t kAppIdReplacement[] = L"APPID";           // the application id in braces
inline constexpr wchar_t kModuleReplacement[] = L"Module";         // the executable's path, quoted
inline constexpr wchar_t kModuleRawReplacement[] = L"Module_Raw";  // the path as it is
inline constexpr wchar_t kClassReplacement[] = L"CLSID";           // the class id in braces
inline constexpr wchar_t kLibraryReplacement[] = L"LIBID";  // the type library's id in braces

// All below the classes root.
extern const RegistryScript kAppIdScript;
extern const RegistryScript kClassScript;
