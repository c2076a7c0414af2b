// Kernel objects, waits, threads, clocks and device files.
//
// Handles are small multiples of four, below 2^31, and a value is not given out again while it is
// open. Every call here may be made from any thread and reports failure as on Windows: a null,
// FALSE or INVALID_HANDLE_VALUE result and GetLastError. Handles cannot be inherited or duplicated;
// security attributes are accepted and ignored: what is named belongs to the account that made it.
#pragma once

#include <minwindef.h>
#include <winerror.h>

#define INVALID_HANDLE_VALUE ((HANDLE)(LONG_PTR)-1)
#define INFINITE 0xFFFFFFFF
#define WAIT_OBJECT_0 0x00000000
#define WAIT_ABANDONED 0x00000080
#define WAIT_ABANDONED_0 0x00000080
#define WAIT_FAILED 0xFFFFFFFF
#define MAXIMUM_WAIT_OBJECTS 64
#define STATUS_PENDING ((DWORD)0x00000103)

#ifndef SYNCHRONIZE
#define SYNCHRONIZE 0x00100000L
#endif
#ifndef STANDARD_RIGHTS_REQUIRED
#define STANDARD_RIGHTS_REQUIRED 0x000F0000L
#endif
#define MUTEX_MODIFY_STATE 0x0001
#define MUTEX_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | MUTEX_MODIFY_STATE)

#define GENERIC_READ 0x80000000U
#define GENERIC_WRITE 0x40000000U
#define FILE_SHARE_READ 0x00000001
#define FILE_SHARE_WRITE 0x00000002
#define FILE_ATTRIBUTE_NORMAL 0x00000080
#define FILE_FLAG_OVERLAPPED 0x40000000
#define OPEN_EXISTING 3

struct OVERLAPPED {
  ULONG_PTR Internal;      // STATUS_PENDING while in flight
  ULONG_PTR InternalHigh;  // bytes moved
  union {
    struct {
      DWORD Offset;
      DWORD OffsetHigh;
    };
    PVOID Pointer;
  };
  HANDLE hEvent;
};
typedef OVERLAPPED* LPOVERLAPPED;

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};
typedef SYSTEMTIME *PSYSTEMTIME, *LPSYSTEMTIME;

typedef DWORD(WINAPI* PTHREAD_START_ROUTINE)(LPVOID parameter);
typedef PTHREAD_START_ROUTINE LPTHREAD_START_ROUTINE;

extern "C" {

DWORD WINAPI GetLastError(void);
void WINAPI SetLastError(DWORD error);

// Ends the handle. A device file's requests in flight are aborted and have completed when its last
// handle is closed. Error 6 when the handle is not open.
BOOL WINAPI CloseHandle(HANDLE handle);

// Named events are known within the process, named mutexes to all processes of the installation.
// A name that exists gives another handle to it and error 183, a name that another kind of object
// has gives null and error 6. Names are case-sensitive; an empty name is none; "Local\" and
// "Global\" in front are dropped; any other backslash gives error 3.
HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manual_reset, BOOL initial_state,
                           LPCWSTR name);
BOOL WINAPI SetEvent(HANDLE event);
BOOL WINAPI ResetEvent(HANDLE event);

// A mutex is re-entrant for the thread that owns it. When the owner ends without releasing it, the
// next wait gives WAIT_ABANDONED, and owns it. A mutex that the account may not open gives null and
// error 5. OpenMutexW gives error 2 when no process has such a mutex.
HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES attributes, BOOL initial_owner, LPCWSTR name);
HANDLE WINAPI OpenMutexW(DWORD access, BOOL inherit_handle, LPCWSTR name);
// Error 288 when the calling thread does not own it.
BOOL WINAPI ReleaseMutex(HANDLE mutex);

DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD timeout_ms);
// Waits for one of 1 to 64 handles (`wait_all` FALSE; TRUE is not modelled: error 50), none of them
// a named mutex (error 50).
DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                                    DWORD timeout_ms);

// `flags` is 0. The new thread takes part in the test clock while one lives. The handle is
// signalled when the thread has ended.
HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack_size,
                           LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags,
                           LPDWORD thread_id);
DWORD WINAPI GetCurrentThreadId(void);
DWORD WINAPI GetCurrentProcessId(void);

void WINAPI Sleep(DWORD ms);
DWORD WINAPI GetTickCount(void);
ULONGLONG WINAPI GetTickCount64(void);
void WINAPI GetLocalTime(LPSYSTEMTIME time);

// Opens a device of the probe driver by the path that enumeration gave; there are no other files
// (error 2). `disposition` is OPEN_EXISTING and `flags` hold FILE_FLAG_OVERLAPPED (else error 87).
HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
                          DWORD disposition, DWORD flags, HANDLE template_file);
// `overlapped` is required (error 87); its event, which may be null, is reset before the request
// starts and set when it has completed. Buffers and block stay alive until then. TRUE when the
// request has succeeded already, otherwise FALSE with 997 when it was started, or with the reason
// why it was not. A request that fails after it was started is reported as 997 as well, even when
// it has failed already: its error is then GetOverlappedResult's.
BOOL WINAPI DeviceIoControl(HANDLE device, DWORD code, LPVOID input, DWORD input_size,
                            LPVOID output, DWORD output_size, LPDWORD returned,
                            LPOVERLAPPED overlapped);
// Error 996 when it is in flight and `wait` is FALSE; otherwise `transferred` is set in any case,
// and the result is the request's own. To wait, the block must have an event.
BOOL WINAPI GetOverlappedResult(HANDLE device, LPOVERLAPPED overlapped, LPDWORD transferred,
                                BOOL wait);
// Aborts the calling thread's requests; all, or the one with `overlapped` (error 1168 when there is
// none). They complete with error 995 and no bytes, possibly later.
BOOL WINAPI CancelIoEx(HANDLE device, LPOVERLAPPED overlapped);

// A pipe is a local socket here, and its name the socket's path. TRUE when somebody listens on it,
// who is told of a connection that ends at once. Otherwise FALSE with error 2, or 5 when the
// account may not connect. Listeners take any number of connections: there is nothing to wait for.
BOOL WINAPI WaitNamedPipeW(LPCWSTR name, DWORD timeout_ms);

}  // extern "C"
