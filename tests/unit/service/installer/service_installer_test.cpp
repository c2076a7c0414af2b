// Installing, running and removing the service against a service manager and a component library of
// the test's own, whose calls stand in for the host's in this program: what they are asked for and
// told, and what the user is.
#include "service/service_installer.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <objbase.h>
#include <winsvc.h>

#include <cwchar>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "api/identifiers.h"
#include "platform/linux/test_host.h"
#include "service/module_path.h"
#include "service/registration.h"
#include "service/registry_key.h"
#include "service/service_module.h"

namespace {

constexpr wchar_t kName[] = L"TzWirefoxService";

using Lines = std::vector<std::wstring>;

struct ServiceManager {
  int openings_before_refusal = 9;  // of the manager
  bool installed = true;
  DWORD refused_access = 0;  // to the service
  bool creates = true;
  DWORD stop_error = 0;
  DWORD state_after_stop = SERVICE_STOP_PENDING;
  bool deletes = true;
};

ServiceManager manager;
Lines calls;
int open_handles = 0;

SC_HANDLE NewHandle(bool granted, DWORD error) {
  if (!granted) SetLastError(error);
  if (granted) ++open_handles;
  return granted ? reinterpret_cast<SC_HANDLE>(&manager) : nullptr;
}

std::wstring Number(DWORD number) {
  wchar_t text[16];
  std::swprintf(text, std::size(text), L"0x%X", static_cast<unsigned>(number));
  return text;
}

BOOL Answer(DWORD error) {
  SetLastError(error);
  return error == 0 ? TRUE : FALSE;
}

}  // namespace

SC_HANDLE OpenSCManagerW(LPCWSTR, LPCWSTR, DWORD access) {
  EXPECT_EQ(access, 0xF003Fu);
  return NewHandle(manager.openings_before_refusal-- > 0, ERROR_ACCESS_DENIED);
}

SC_HANDLE OpenServiceW(SC_HANDLE, LPCWSTR name, DWORD access) {
  EXPECT_STREQ(name, kName);
  if (!manager.installed) return NewHandle(false, ERROR_FILE_NOT_FOUND);
  calls.push_back(L"open " + Number(access));
  return NewHandle(access != manager.refused_access, ERROR_ACCESS_DENIED);
}

SC_HANDLE CreateServiceW(SC_HANDLE, LPCWSTR name, LPCWSTR display_name, DWORD access, DWORD type,
                         DWORD start_type, DWORD error_control, LPCWSTR path, LPCWSTR group,
                         LPDWORD tag, LPCWSTR dependencies, LPCWSTR account, LPCWSTR password) {
  EXPECT_TRUE(!group && !tag && !account && !password);
  calls.push_back(L"create");
  calls.insert(calls.end(), {name, display_name, Number(access), Number(type), Number(start_type),
                             Number(error_control), path});
  // Two zeros end the list: it is read to the second.
  for (; *dependencies != 0; dependencies += std::wcslen(dependencies) + 1) {
    calls.push_back(dependencies);
  }
  return NewHandle(manager.creates, ERROR_ACCESS_DENIED);
}

BOOL ControlService(SC_HANDLE, DWORD control, LPSERVICE_STATUS status) {
  calls.push_back(L"control " + Number(control));
  status->dwCurrentState = manager.state_after_stop;
  return Answer(manager.stop_error);
}

BOOL DeleteService(SC_HANDLE) {
  calls.push_back(L"delete");
  return Answer(manager.deletes ? 0 : ERROR_ACCESS_DENIED);
}

BOOL CloseServiceHandle(SC_HANDLE) {
  --open_handles;
  return TRUE;
}

namespace {

const Lines kUnasked = {};
const Lines kRemoved = {L"open 0x1", L"open 0x10020", L"control 0x1", L"delete"};

struct Case {
  const char* name;
  ServiceManager manager;
  bool result;
  Lines calls;
  Lines told = {};
};

template <typename Command>
void Check(const Case& test, Command command) {
  SCOPED_TRACE(test.name);
  manager = test.manager;
  calls.clear();
  test_host::TakeNotices();
  EXPECT_EQ(command(kName), test.result);
  EXPECT_EQ(calls, test.calls);
  Lines told;
  for (const std::wstring& text : test.told) told.push_back(L"box|TzWirefoxService|" + text);
  EXPECT_EQ(test_host::TakeNotices(), told);
  EXPECT_EQ(open_handles, 0);
}

TEST(ServiceInstaller, RemovesAServiceThatMayRunAndTellsOnlyWhatFailed) {
  const Lines cannot_stop = {L"Could not stop service"};
  const Case kCases[] = {
      {"no manager", {.openings_before_refusal = 0}, true, kUnasked},
      {"not installed", {.installed = false}, true, kUnasked},
      {"may not be looked at", {.refused_access = 0x1}, true, {L"open 0x1"}},
      {"manager lost",
       {.openings_before_refusal = 1},
       false,
       {L"open 0x1"},
       {L"Could not open Service Manager"}},
      {"may not be stopped",
       {.refused_access = 0x10020},
       false,
       {L"open 0x1", L"open 0x10020"},
       {L"Could not open service"}},
      {"running", {}, true, kRemoved},
      {"stopped", {.stop_error = 1062, .state_after_stop = SERVICE_STOPPED}, true, kRemoved},
      {"stopping", {.stop_error = 1061}, true, kRemoved},
      {"starting",
       {.stop_error = 1061, .state_after_stop = SERVICE_START_PENDING},
       true,
       kRemoved,
       cannot_stop},
      {"stop is refused", {.stop_error = ERROR_ACCESS_DENIED}, true, kRemoved, cannot_stop},
      {"may not be deleted", {.deletes = false}, false, kRemoved, {L"Could not delete service"}},
  };
  for (const Case& test : kCases) Check(test, UninstallService);
}

TEST(ServiceInstaller, CreatesTheServiceUnlessItIsThere) {
  std::wstring path;
  ASSERT_EQ(GetModulePath(path), ERROR_SUCCESS);
  const Lines created = {L"create", kName,  kName,          L"0xF01FF", L"0x10",
                         L"0x3",    L"0x1", InQuotes(path), L"RPCSS"};
  const Case kCases[] = {
      {"installed", {}, true, {L"open 0x1"}},
      {"not installed", {.installed = false}, true, created},
      {"no manager",
       {.openings_before_refusal = 0},
       false,
       kUnasked,
       {L"Could not open Service Manager"}},
      {"may not be created",
       {.installed = false, .creates = false},
       false,
       created,
       {L"Could not start service"}},
  };
  for (const Case& test : kCases) Check(test, InstallService);
}

// What the run below is told, in order.
Lines told;
LPHANDLER_FUNCTION handler = nullptr;
HRESULT published = S_OK;
bool controlled = true;  // whether there is a handler for it
CTzWirefoxServiceModule* served_module = nullptr;
std::thread controls;  // that the service manager sends

// What has been shown before comes first.
void Tell(const wchar_t* what, unsigned number) {
  for (std::wstring& notice : test_host::TakeNotices()) told.push_back(std::move(notice));
  wchar_t line[64];
  std::swprintf(line, std::size(line), L"%ls %X", what, number);
  told.push_back(line);
}

}  // namespace

BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table) {
  table->lpServiceProc(0, nullptr);
  return TRUE;
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(LPCWSTR name, LPHANDLER_FUNCTION given) {
  EXPECT_STREQ(name, kName);
  handler = given;
  if (!controlled) return nullptr;
  return reinterpret_cast<SERVICE_STATUS_HANDLE>(&handler);
}

BOOL SetServiceStatus(SERVICE_STATUS_HANDLE, LPSERVICE_STATUS status) {
  Tell(L"state", status->dwCurrentState);
  if (status->dwWin32ExitCode != 0) Tell(L"exit code", status->dwWin32ExitCode);
  EXPECT_EQ(status->dwServiceType, 0x10u);
  EXPECT_EQ(status->dwControlsAccepted, 1u);
  MSG message;
  if (PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE)) Tell(L"message", message.message);
  if (status->dwCurrentState == SERVICE_RUNNING && published == S_OK) {
    controls = std::thread([] {
      for (const DWORD control : {2u, 3u, 4u, 5u, 200u, 1u}) handler(control);
    });
  }
  return TRUE;
}

HRESULT CoRegisterClassObject(REFCLSID, LPUNKNOWN, DWORD context, DWORD flags, DWORD* cookie) {
  Tell(L"publish", context << 4 | flags);
  *cookie = 7;
  // A client comes, calls and goes.
  if (FAILED(published)) return published;
  for (int i = 0; i < 2; ++i) served_module->Lock();
  for (int i = 0; i < 2; ++i) served_module->Unlock();
  return published;
}

HRESULT CoCreateInstance(REFCLSID, LPUNKNOWN, DWORD, REFIID, LPVOID*) {
  return REGDB_E_CLASSNOTREG;
}

HRESULT CoRevokeClassObject(DWORD cookie) {
  if (controls.joinable()) controls.join();
  Tell(L"revoke", cookie);
  return 5;
}

namespace {

TEST(ServiceRun, FollowsTheRegistrationAndTellsTheManagerEachState) {
  EXPECT_EQ(CTzWirefoxServiceModule().Main(L"server"), 2) << "never registered";
  MSG message;  // the thread has a queue from the first look at it on
  PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);
  RegistryKey key;
  ASSERT_EQ(CreateKey(HKEY_CLASSES_ROOT, L"AppID\\" + GuidText(api::kAppId), KEY_WRITE, key), 0);
  const std::wstring event = L"event|TzWirefoxService|4|0|0|";
  const Lines served = {L"publish 41", L"revoke 7"};
  const struct {
    DWORD type;
    std::wstring local_service;  // with its end
    HRESULT published;
    Lines told;
    bool controlled = true;
  } cases[] = {
      // A plain server, until its last client has gone.
      {REG_NONE, {}, S_OK, served},
      {REG_BINARY, {L"Tz", 3}, S_OK, served},
      {REG_SZ, L"Tz", S_OK, served},
      {REG_SZ, {}, S_OK, served},
      {REG_SZ, std::wstring(300, L'x') + L'\0', S_OK, served},
      {REG_NONE, {}, E_ACCESSDENIED, {L"publish 41"}},
      // A service, until it is stopped.
      {REG_SZ,
       {L"Tz", 3},
       S_OK,
       {L"state 2", L"publish 41", event + L"Service started", L"state 4",
        event + L"Bad service request", L"state 3", L"revoke 7", L"state 1", L"exit code 5",
        event + L"Service stopped"}},
      {REG_EXPAND_SZ,  // there is nothing to wait for
       {L"Tz", 3},
       S_FALSE,
       {L"state 2", L"publish 41", event + L"Service started", L"state 4", L"revoke 7", L"state 1",
        L"exit code 5", event + L"Service stopped"}},
      {REG_SZ,
       {L"Tz", 3},
       E_ACCESSDENIED,
       {L"state 2", L"publish 41", L"state 1", L"exit code 80070005", event + L"Service stopped"}},
      {REG_SZ, {L"Tz", 3}, S_OK, {event + L"Handler not installed"}, false},
  };
  for (const auto& test : cases) {
    RegDeleteValueW(key.Get(), L"LocalService");
    if (test.type != REG_NONE) {
      RegSetValueExW(key.Get(), L"LocalService", 0, test.type,
                     reinterpret_cast<const BYTE*>(test.local_service.data()),
                     static_cast<DWORD>(test.local_service.size() * sizeof(wchar_t)));
    }
    CTzWirefoxServiceModule module;
    served_module = &module;
    test_host::TakeNotices();
    told.clear();
    published = test.published;
    controlled = test.controlled;
    testing::internal::CaptureStdout();
    EXPECT_EQ(module.Main(L"server -Embedding"), FAILED(published) ? published : controlled * 5);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "events of a service go to the log";
    for (std::wstring& notice : test_host::TakeNotices()) told.push_back(std::move(notice));
    EXPECT_EQ(told, test.told);
    EXPECT_EQ(module.GetLockCount(), 0);
  }
}

}  // namespace
