#include "service/registration.h"

#include <objbase.h>

#include <array>

#include "api/identifiers.h"
#include "service/module_path.h"
#include "service/registry_data.h"
#include "service/registry_key.h"
#include "service/service_installer.h"
#include "service/status.h"
#include "service/type_library_registration.h"

namespace {

constexpr int kGuidRoom = 39;

// A path is written as it is: what needs doubling or escaping in a script's text does not in these
// tables.
HRESULT MakeReplacements(const RegistrationNames& names, ScriptReplacements& replacements) {
  std::wstring path;
  if (const LONG result = GetModulePath(path); result != ERROR_SUCCESS) return StatusOf(result);
  replacements.Add(kModuleReplacement, InQuotes(path));
  replacements.Add(kModuleRawReplacement, path);
  replacements.Add(kClassReplacement, GuidText(api::kClassId));
  replacements.Add(kLibraryReplacement, GuidText(api::kLibraryId));
  names.AddScriptReplacements(replacements);
  return S_OK;
}

using ScriptRunner = HRESULT (*)(HKEY, RegistryScript, const ScriptReplacements&);

HRESULT RunScript(ScriptRunner run, RegistryScript script, const RegistrationNames& names) {
  ScriptReplacements replacements;
  const HRESULT made = MakeReplacements(names, replacements);
  return FAILED(made) ? made : run(HKEY_CLASSES_ROOT, script, replacements);
}

HRESULT RegisterAppIdData(const RegistrationNames& names, bool as_service) {
  if (!UninstallService(names.ServiceName())) return E_FAIL;
  if (const HRESULT run = RunScript(RunRegisterScript, kAppIdScript, names); FAILED(run)) {
    return run;
  }
  RegistryKey parent;
  RegistryKey key;
  LONG result = OpenKey(HKEY_CLASSES_ROOT, kAppIdParentKey, KEY_WRITE, parent);
  if (result == ERROR_SUCCESS) {
    result = CreateKey(parent.Get(), GuidText(api::kAppId), KEY_READ | KEY_WRITE, key);
  }
  if (result == ERROR_SUCCESS) result = DeleteValueIfPresent(key.Get(), kLocalServiceValue);
  if (result == ERROR_SUCCESS && as_service) {
    result = SetText(key.Get(), kLocalServiceValue, names.ServiceName());
  }
  if (result != ERROR_SUCCESS) return StatusOf(result);
  if (as_service && !InstallService(names.ServiceName())) return E_FAIL;
  return S_OK;
}

HRESULT UnregisterAppIdData(const RegistrationNames& names) {
  if (!UninstallService(names.ServiceName())) return E_FAIL;
  RegistryKey parent;
  RegistryKey key;
  LONG result = OpenKey(HKEY_CLASSES_ROOT, kAppIdParentKey, KEY_WRITE, parent);
  if (result == ERROR_SUCCESS) {
    result = OpenKey(parent.Get(), GuidText(api::kAppId), KEY_WRITE, key);
  }
  if (result == ERROR_SUCCESS) result = DeleteValueIfPresent(key.Get(), kLocalServiceValue);
  if (result != ERROR_SUCCESS) return StatusOf(result);
  key.Reset();
  parent.Reset();
  return RunScript(RunUnregisterScript, kAppIdScript, names);
}

HRESULT RegisterClass(const RegistrationNames& names) {
  const HRESULT run = RunScript(RunRegisterScript, kClassScript, names);
  return FAILED(run) ? run : RegisterOwnTypeLibrary();
}

HRESULT UnregisterClass(const RegistrationNames& names) {
  const HRESULT run = RunScript(RunUnregisterScript, kClassScript, names);
  return FAILED(run) ? run : UnregisterOwnTypeLibrary();
}

HRESULT Register(const RegistrationNames& names, bool as_service) {
  const HRESULT app_id = RegisterAppIdData(names, as_service);
  return FAILED(app_id) ? app_id : RegisterClass(names);
}

}  // namespace

HRESULT RegisterAsLocalServer(const RegistrationNames& names) { return Register(names, false); }

HRESULT RegisterAsService(const RegistrationNames& names) { return Register(names, true); }

HRESULT Unregister(const RegistrationNames& names) {
  const HRESULT unregistered = UnregisterClass(names);
  return FAILED(unregistered) ? unregistered : UnregisterAppIdData(names);
}

std::wstring GuidText(REFGUID id) {
  std::array<wchar_t, kGuidRoom> text = {};
  StringFromGUID2(id, text.data(), kGuidRoom);
  return text.data();
}
