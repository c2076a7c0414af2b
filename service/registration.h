// Registers and unregisters the server: application id, class, type library and service.
#pragma once

#include <windows.h>

#include <string>

#include "service/registry_script.h"

// What names the server in the registry and in the service control manager. The server's module
// provides it.
class RegistrationNames {
 public:
  virtual ~RegistrationNames() = default;

  virtual const std::wstring& ServiceName() const = 0;
  // Adds the replacements of the server's own to those that every script gets.
  virtual void AddScriptReplacements(ScriptReplacements& replacements) const = 0;
};

// Every command stops at its first failing step and returns that step's status; what earlier steps
// wrote stays. The component library is initialised on the calling thread.

// As a plain local server that clients start; an installed service is removed first.
[[nodiscard]] HRESULT RegisterAsLocalServer(const RegistrationNames& names);

// As a service. One that is installed is removed and created anew.
[[nodiscard]] HRESULT RegisterAsService(const RegistrationNames& names);

[[nodiscard]] HRESULT Unregister(const RegistrationNames& names);

// The key under which the server is told by a value named kLocalServiceValue that it is to run as a
// service: that value is the service's name.
inline constexpr wchar_t kAppIdParentKey[] = L"AppID";
inline constexpr wchar_t kLocalServiceValue[] = L"LocalService";

// A GUID in braces, as the registry has it.
std::wstring GuidText(REFGUID id);
