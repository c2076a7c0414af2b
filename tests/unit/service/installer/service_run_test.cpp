// A run of the service from its start to its end, against a service manager and a component library
// of the test's own: all that they are told, in order.
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
#include "platform/test_host.h"
#include "service/registration.h"
#include "service/registry_key.h"
#include "service/service_module.h"

namespace {

using Lines = std::vector<std::wstring>;

Lines told;
LPHANDLER_FUNCTION handler = nullptr;
HRESULT published = S_OK;
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
  EXPECT_STREQ(name, L"TzWirefoxService");
  handler = given;
  return reinterpret_cast<SERVICE_STATUS_HANDLE>(&handler);
}

BOOL SetServiceStatus(SERVICE_STATUS_HANDLE, LPSERVICE_STATUS status) {
  Tell(L"state", status->dwCurrentState);
  if (status->dwWin32ExitCode != 0) Tell(L"exit code", status->dwWin32ExitCode);
  EXPECT_EQ(status->dwServiceType, 0x10u);
  EXPECT_EQ(status->dwControlsAccepted, 1u);
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
  return published;
}

HRESULT CoCreateInstance(REFCLSID, LPUNKNOWN, DWORD, REFIID, LPVOID*) {
  return REGDB_E_CLASSNOTREG;
}

HRESULT CoRevokeClassObject(DWORD cookie) {
  if (controls.joinable()) controls.join();
  Tell(L"revoke", cookie);
  return S_OK;
}

namespace {

TEST(ServiceRun, TellsTheManagerEachStateAndStopsForNoOtherControl) {
  RegistryKey key;
  ASSERT_EQ(CreateKey(HKEY_CLASSES_ROOT, L"AppID\\" + GuidText(api::kAppId), KEY_WRITE, key), 0);
  ASSERT_EQ(SetText(key.Get(), L"LocalService", L"TzWirefoxService"), 0);
  const std::wstring event = L"event|TzWirefoxService|4|0|0|";
  const struct {
    HRESULT published;
    Lines told;
  } cases[] = {
      {S_OK,
       {L"state 2", L"publish 41", event + L"Service started", L"state 4",
        event + L"Bad service request", L"state 3", L"revoke 7", L"state 1",
        event + L"Service stopped"}},
      {S_FALSE,  // there is nothing to wait for
       {L"state 2", L"publish 41", event + L"Service started", L"state 4", L"revoke 7", L"state 1",
        event + L"Service stopped"}},
      {E_ACCESSDENIED,
       {L"state 2", L"publish 41", L"state 1", L"exit code 80070005", event + L"Service stopped"}},
  };
  for (const auto& test : cases) {
    CTzWirefoxServiceModule module;
    test_host::TakeNotices();
    told.clear();
    published = test.published;
    EXPECT_EQ(module.Main(L"server"), FAILED(published) ? published : 0);
    for (std::wstring& notice : test_host::TakeNotices()) told.push_back(std::move(notice));
    EXPECT_EQ(told, test.told);
  }
}

}  // namespace
