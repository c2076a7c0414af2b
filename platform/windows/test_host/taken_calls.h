// The calls that the test host takes over, by what they do. taken_calls.cpp puts each in the place
// of the system's.
#pragma once

#include <windows.h>

#include <setupapi.h>

namespace test_host::taken {

// Time and waiting (time_calls.cpp, wait_calls.cpp).
void WINAPI Sleep(DWORD ms);
DWORD WINAPI GetTickCount();
ULONGLONG WINAPI GetTickCount64();
void WINAPI GetLocalTime(LPSYSTEMTIME time);
DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD timeout_ms);
DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                                    DWORD timeout_ms);
HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manual_reset, BOOL initial_state,
                           LPCWSTR name);
BOOL WINAPI SetEvent(HANDLE event);
HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES attributes, BOOL initial_owner, LPCWSTR name);
HANDLE WINAPI OpenMutexW(DWORD access, BOOL inherit_handle, LPCWSTR name);
BOOL WINAPI ReleaseMutex(HANDLE mutex);
HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack_size,
                           LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags,
                           LPDWORD thread_id);
BOOL WINAPI CloseHandle(HANDLE handle);

// Devices (device_calls.cpp, enumeration_calls.cpp).
HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
                          DWORD disposition, DWORD flags, HANDLE template_file);
BOOL WINAPI DeviceIoControl(HANDLE device, DWORD code, LPVOID input, DWORD input_size,
                            LPVOID output, DWORD output_size, LPDWORD returned,
                            LPOVERLAPPED overlapped);
BOOL WINAPI GetOverlappedResult(HANDLE device, LPOVERLAPPED overlapped, LPDWORD transferred,
                                WINBOOL wait);
BOOL WINAPI CancelIoEx(HANDLE device, LPOVERLAPPED overlapped);
HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* class_guid, PCWSTR enumerator, HWND parent,
                                     DWORD flags);
BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO set, PSP_DEVINFO_DATA devinfo,
                                        const GUID* class_guid, DWORD index,
                                        PSP_DEVICE_INTERFACE_DATA data);
BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO set, PSP_DEVICE_INTERFACE_DATA data,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD size,
                                             PDWORD required, PSP_DEVINFO_DATA devinfo);
BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set);

// Messages (message_calls.cpp).
HDEVNOTIFY WINAPI RegisterDeviceNotificationW(HANDLE recipient, LPVOID filter, DWORD flags);
UINT_PTR WINAPI SetTimer(HWND window, UINT_PTR id, UINT period_ms, TIMERPROC procedure);
BOOL WINAPI KillTimer(HWND window, UINT_PTR id);
BOOL WINAPI PeekMessageW(LPMSG message, HWND window, UINT first, UINT last, UINT remove);

// What is shown and recorded (notice_calls.cpp).
int WINAPI MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR title, UINT type);
HANDLE WINAPI RegisterEventSourceW(LPCWSTR server, LPCWSTR source);
BOOL WINAPI ReportEventW(HANDLE log, WORD type, WORD category, DWORD id, PSID user,
                         WORD string_count, DWORD data_size, LPCWSTR* strings, LPVOID data);
BOOL WINAPI DeregisterEventSource(HANDLE log);

}  // namespace test_host::taken
