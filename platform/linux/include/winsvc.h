// The calls of the service control manager, which is systemd here.
//
// A service is a unit file: root's one of the system, a user's one of the user's own systemd; with
// WIREFOX_HOME set it lies in its folder "systemd", from where systemd can be told of it. Where no
// systemd runs, services can be installed and removed all the same, and none runs.
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

// Null on failure: 1722 for another machine, 1065 for a database with a name, 5 when more than
// connecting and listing is asked for and this account may not write unit files.
SC_HANDLE OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access);

// Null on failure: 6, 5 (of the manager, or as above), 123 for a name that no unit can have, 1060.
// With SERVICE_QUERY_STATUS alone the machine's services are found behind this account's own.
SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access);

// Writes the unit, with the present values of WIREFOX_HOME and WIREFOX_BUS for its environment.
// Modelled are services in a process of their own (0x10), on demand (3), with normal error control
// (1), of the system's account, which need nothing but "RPCSS"; `path` is a command line. Null on
// failure: 6, 5, 123, 1073, 87 for what is not modelled, or why the unit cannot be written.
SC_HANDLE CreateServiceW(SC_HANDLE manager, LPCWSTR name, LPCWSTR display_name, DWORD access,
                         DWORD type, DWORD start_type, DWORD error_control, LPCWSTR path,
                         LPCWSTR load_order_group, LPDWORD tag, LPCWSTR dependencies,
                         LPCWSTR account, LPCWSTR password);

// Has systemd stop the service. Fills `status` also when the service cannot take the control: 1062
// when it does not run, 1061 while it starts or stops, 1052 for other controls than stop. Other
// errors: 6, 5, 87 without a status.
BOOL ControlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status);

// The state as systemd tells it; stopped where none runs. Errors: 6, 5, 87 without a status.
BOOL QueryServiceStatus(SC_HANDLE service, LPSERVICE_STATUS status);

// Removes the unit at once; a service that runs goes on until it has stopped. Errors: 6, 5, 1072
// when it has been removed already.
BOOL DeleteService(SC_HANDLE service);

BOOL CloseServiceHandle(SC_HANDLE handle);  // error 6

// On the thread that is to deliver the controls, until the one service of the table has reported
// that it stopped, or its thread has ended. systemd's request to end (SIGTERM) is the stop control,
// delivered once, and not before the service runs. FALSE with error 1063 when systemd has not
// started this process as a service that tells of its start; 1056, 87, 8.
BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table);

// The handler is called on the dispatcher's thread. Null with error 1083 when no dispatcher runs
// that knows the name.
SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(LPCWSTR name, LPHANDLER_FUNCTION handler);

// Tells systemd when the service is ready and when it stops. Error 6, 87.
BOOL SetServiceStatus(SERVICE_STATUS_HANDLE handle, LPSERVICE_STATUS status);

}  // extern "C"
