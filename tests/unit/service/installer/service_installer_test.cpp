// Installing and removing the service against a service manager of the test's own, whose calls
// stand in for the host's in this program: what it is asked for, and what the user is told.
#include "service/service_installer.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <winsvc.h>

#include <cwchar>
#include <iterator>
#include <string>
#include <vector>

#include "platform/test_host.h"
#include "service/module_path.h"

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
  EXPECT_TRUE(group == nullptr && tag == nullptr && account == nullptr && password == nullptr);
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

}  // namespace
