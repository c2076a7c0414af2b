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
#define FILE_SHARE_DELETE 0x00000004
#define FILE_ATTRIBUTE_NORMAL 0x00000080
#define FILE_FLAG_OVERLAPPED 0x40000000
#define FILE_FLAG_DELETE_ON_CLOSE 0x04000000
#define FILE_FLAG_OPEN_REPARSE_POINT 0x00200000
#define CREATE_NEW 1
#define OPEN_EXISTING 3

#define PAGE_READONLY 0x02
#define PAGE_READWRITE 0x04
#define FILE_MAP_WRITE 0x0002
#define FILE_MAP_READ 0x0004

#define PROCESS_QUERY_LIMITED_INFORMATION 0x1000

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

// With FILE_FLAG_OVERLAPPED opens a device of the probe driver by the path that enumeration gave
// (error 2 for any other); `disposition` is then OPEN_EXISTING (else error 87).
//
// Without that flag opens an ordinary file, to be mapped: it cannot be read from or written to. A
// link is never followed (with or without FILE_FLAG_OPEN_REPARSE_POINT), and what others keep in a
// folder that all share is not read: CREATE_NEW makes the file (error 80 when something stands
// there), OPEN_EXISTING opens one for reading alone that belongs to this account, to root or to the
// machine's service (error 5 for any other). FILE_FLAG_DELETE_ON_CLOSE takes the file away when its
// handle is closed; one of a process that ended without that stays.
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

// Removes a file, or a link and not what it leads to. Errors 2 and 5.
BOOL WINAPI DeleteFileW(LPCWSTR path);

// `protection` is PAGE_READWRITE, which makes the file as long as `size` says, with room on the
// disk for all of it (error 112 when there is none); or PAGE_READONLY, for a file that is as long
// as that (error 8 when it is not). The upper half of the size is 0, and `name` null (else 87).
HANDLE WINAPI CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protection,
                                 DWORD size_high, DWORD size, LPCWSTR name);
// `access` is FILE_MAP_READ, alone or with FILE_MAP_WRITE; the offset is 0 and `size` that of the
// mapping (else error 87). The view stays when the handles are closed. Null on failure.
LPVOID WINAPI MapViewOfFile(HANDLE mapping, DWORD access, DWORD offset_high, DWORD offset,
                            SIZE_T size);
// Error 487 for what is no view.
BOOL WINAPI UnmapViewOfFile(LPCVOID view);

// A handle that knows the process, also when its id is used again. `access` is
// PROCESS_QUERY_LIMITED_INFORMATION. Null with error 87 when no process has that id.
HANDLE WINAPI OpenProcess(DWORD access, BOOL inherit_handle, DWORD id);
// `created` counts from the system's start, whose clock may be set later: it tells processes apart.
// `exited` becomes 0. FALSE with error 31 when the process has ended.
BOOL WINAPI GetProcessTimes(HANDLE process, LPFILETIME created, LPFILETIME exited,
                            LPFILETIME kernel, LPFILETIME user);
// The program's path, or where the system keeps that from this account what the process calls
// itself, in at most 15 characters. `flags` is 0. `size` goes in as the room and comes out as the
// length, without the NUL. FALSE with error 31 when the process has ended, 122 without room.
BOOL WINAPI QueryFullProcessImageNameW(HANDLE process, DWORD flags, LPWSTR path, LPDWORD size);

// A pipe is a local socket here, and its name the socket's path. TRUE when somebody listens on it,
// who is told of a connection that ends at once. Otherwise FALSE with error 2, or 5 when the
// account may not connect. Listeners take any number of connections: there is nothing to wait for.
BOOL WINAPI WaitNamedPipeW(LPCWSTR name, DWORD timeout_ms);

}  // extern "C"
