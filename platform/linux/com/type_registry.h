// The entries of type libraries in the registry, under the classes root:
//
//   TypeLib\{library}\MAJOR.MINOR             help string of the library
//   TypeLib\{library}\MAJOR.MINOR\FLAGS       "0"
//   TypeLib\{library}\MAJOR.MINOR\LCID\win64  path of the file that holds it; LCID in hexadecimal
//   TypeLib\{library}\MAJOR.MINOR\HELPDIR     help directory
//   Interface\{interface}                     its name
//   Interface\{interface}\ProxyStubClsid32    the marshaller of automation interfaces
//   Interface\{interface}\TypeLib             {library}, and the version under "Version"
#pragma once

#include <windows.h>

#include <string>

#include "base/interface_schema.h"

namespace linux_host {

// The path registered for that version, in whatever locale.
bool FindRegisteredLibrary(REFGUID id, WORD major, WORD minor, std::wstring& path);

// False when an entry cannot be written; those before it stay.
bool WriteLibraryEntries(const interface_schema::Library& library, const wchar_t* path,
                         const wchar_t* help_directory);

// Removes the library's entry for that locale, its version when no other locale is left, and the
// whole when no other version is; and the entries of the interfaces that `description` lists, as
// far as they still belong to the library. False when the library is not registered so.
bool RemoveLibraryEntries(REFGUID id, WORD major, WORD minor, LCID locale,
                          const interface_schema::Library* description);

}  // namespace linux_host
