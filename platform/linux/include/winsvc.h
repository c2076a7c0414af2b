// The calls of the service control manager, which this host does not have.
//
// They answer as Windows does on a machine whose manager cannot be reached: it cannot be opened,
// no handle of it is valid, and no process is started by it. Running as a service and installing
// one thus fail in the ways that their callers know.
#pragma once

#include <minwindef.h>

#ifndef STANDARD_RIGHTS_REQUIRED
#define STANDARD_RIGHTS_REQUIRED 0x000F0000L
#endif
#ifndef DELETE
#define DELETE 0x00010000L
#endif

#define SERVICE_CONTROL_STOP 0x00000001
#define SERVICE_CONTROL_PAUSE 0x00000002
#define SERVICE_CONTROL_CONTINUE 0x00000003
#define SERVICE_CONTROL_INTERROGATE 0x00000004
#define SERVICE_CONTROL_SHUTDOWN 0x00000005

#define SERVICE_STOPPED 0x00000001
#define SERVICE_START_PENDING 0x00000002
#define SERVICE_STOP_PENDING 0x00000003
#define SERVICE_RUNNING 0x00000004

#define SERVICE_ACCEPT_STOP 0x00000001

#define SC_MANAGER_CONNECT 0x0001
#define SC_MANAGER_CREATE_SERVICE 0x0002
#define SC_MANAGER_ENUMERATE_SERVICE 0x0004
#define SC_MANAGER_LOCK 0x0008
#define SC_MANAGER_QUERY_LOCK_STATUS 0x0010
#define SC_MANAGER_MODIFY_BOOT_CONFIG 0x0020
#define SC_MANAGER_ALL_ACCESS                                                      \
  (STANDARD_RIGHTS_REQUIRED | SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE |     \
   SC_MANAGER_ENUMERATE_SERVICE | SC_MANAGER_LOCK | SC_MANAGER_QUERY_LOCK_STATUS | \
   SC_MANAGER_MODIFY_BOOT_CONFIG)

#define SERVICE_QUERY_CONFIG 0x0001
#define SERVICE_CHANGE_CONFIG 0x0002
#define SERVICE_QUERY_STATUS 0x0004
#define SERVICE_ENUMERATE_DEPENDENTS 0x0008
#define SERVICE_START 0x0010
#define SERVICE_STOP 0x0020
#define SERVICE_PAUSE_CONTINUE 0x0040
#define SERVICE_INTERROGATE 0x0080
#define SERVICE_USER_DEFINED_CONTROL 0x0100
#define SERVICE_ALL_ACCESS                                                              \
  (STANDARD_RIGHTS_REQUIRED | SERVICE_QUERY_CONFIG | SERVICE_CHANGE_CONFIG |            \
   SERVICE_QUERY_STATUS | SERVICE_ENUMERATE_DEPENDENTS | SERVICE_START | SERVICE_STOP | \
   SERVICE_PAUSE_CONTINUE | SERVICE_INTERROGATE | SERVICE_USER_DEFINED_CONTROL)

#define SERVICE_WIN32_OWN_PROCESS 0x00000010
#define SERVICE_DEMAND_START 0x00000003
#define SERVICE_ERROR_NORMAL 0x00000001

DECLARE_HANDLE(SC_HANDLE);
DECLARE_HANDLE(SERVICE_STATUS_HANDLE);

typedef struct _SERVICE_STATUS {
  DWORD dwServiceType;
  DWORD dwCurrentState;
  DWORD dwControlsAccepted;
  DWORD dwWin32ExitCode;
  DWORD dwServiceSpecificExitCode;
  DWORD dwCheckPoint;
  DWORD dwWaitHint;
} SERVICE_STATUS, *LPSERVICE_STATUS;

typedef VOID (*LPSERVICE_MAIN_FUNCTIONW)(DWORD argument_count, LPWSTR* arguments);
typedef VOID (*LPHANDLER_FUNCTION)(DWORD control);

typedef struct _SERVICE_TABLE_ENTRYW {
  LPWSTR lpServiceName;
  LPSERVICE_MAIN_FUNCTIONW lpServiceProc;
} SERVICE_TABLE_ENTRYW, *LPSERVICE_TABLE_ENTRYW;

extern "C" {

// Null, with error 1722 (RPC_S_SERVER_UNAVAILABLE): nothing answers.
SC_HANDLE OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access);

// Null or FALSE, with error 6 (ERROR_INVALID_HANDLE): there are no handles that they could take.
SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access);
SC_HANDLE CreateServiceW(SC_HANDLE manager, LPCWSTR name, LPCWSTR display_name, DWORD access,
                         DWORD type, DWORD start_type, DWORD error_control, LPCWSTR path,
                         LPCWSTR load_order_group, LPDWORD tag, LPCWSTR dependencies,
                         LPCWSTR account, LPCWSTR password);
BOOL ControlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status);
BOOL DeleteService(SC_HANDLE service);
BOOL CloseServiceHandle(SC_HANDLE handle);
BOOL SetServiceStatus(SERVICE_STATUS_HANDLE handle, LPSERVICE_STATUS status);

// FALSE, with error 1063 (ERROR_FAILED_SERVICE_CONTROLLER_CONNECT).
BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table);

// Null, with error 1083 (ERROR_SERVICE_NOT_IN_EXE): no dispatcher runs that knows the name.
SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(LPCWSTR name, LPHANDLER_FUNCTION handler);

}  // extern "C"
