#include <windows.h>

#include <winsvc.h>

namespace {

BOOL Refuse(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace

// No service manager is modelled. Each call fails as its header says, and nothing here pretends to
// keep a service's data.

SC_HANDLE OpenSCManagerW(LPCWSTR, LPCWSTR, DWORD) {
  Refuse(RPC_S_SERVER_UNAVAILABLE);
  return nullptr;
}

SC_HANDLE OpenServiceW(SC_HANDLE, LPCWSTR, DWORD) {
  Refuse(ERROR_INVALID_HANDLE);
  return nullptr;
}

SC_HANDLE CreateServiceW(SC_HANDLE, LPCWSTR, LPCWSTR, DWORD, DWORD, DWORD, DWORD, LPCWSTR, LPCWSTR,
                         LPDWORD, LPCWSTR, LPCWSTR, LPCWSTR) {
  Refuse(ERROR_INVALID_HANDLE);
  return nullptr;
}

BOOL ControlService(SC_HANDLE, DWORD, LPSERVICE_STATUS) { return Refuse(ERROR_INVALID_HANDLE); }

BOOL DeleteService(SC_HANDLE) { return Refuse(ERROR_INVALID_HANDLE); }

BOOL CloseServiceHandle(SC_HANDLE) { return Refuse(ERROR_INVALID_HANDLE); }

BOOL SetServiceStatus(SERVICE_STATUS_HANDLE, LPSERVICE_STATUS) {
  return Refuse(ERROR_INVALID_HANDLE);
}

BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW*) {
  return Refuse(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(LPCWSTR, LPHANDLER_FUNCTION) {
  Refuse(ERROR_SERVICE_NOT_IN_EXE);
  return nullptr;
}
