// What a process asks of its host apart from kernel objects: paths, command line, text conversion,
// resources, event log, message boxes, console controls and notifications of file changes.
#pragma once

#include <minwindef.h>

#ifndef MB_OK
#define MB_OK 0x00000000L
#define MB_ICONHAND 0x00000010L
#define MB_ICONERROR MB_ICONHAND
#define IDOK 1
#endif
#ifndef SW_SHOWDEFAULT
#define SW_SHOWDEFAULT 10
#endif

#define CP_ACP 0
#define CP_THREAD_ACP 3
#define CP_UTF8 65001
#define MB_PRECOMPOSED 0x00000001
#define MB_ERR_INVALID_CHARS 0x00000008
#define WC_ERR_INVALID_CHARS 0x00000080
#define WC_NO_BEST_FIT_CHARS 0x00000400

#define EVENTLOG_SUCCESS 0x0000
#define EVENTLOG_ERROR_TYPE 0x0001
#define EVENTLOG_WARNING_TYPE 0x0002
#define EVENTLOG_INFORMATION_TYPE 0x0004

#define FILE_NOTIFY_CHANGE_FILE_NAME 0x00000001
#define FILE_NOTIFY_CHANGE_DIR_NAME 0x00000002
#define FILE_NOTIFY_CHANGE_ATTRIBUTES 0x00000004
#define FILE_NOTIFY_CHANGE_SIZE 0x00000008
#define FILE_NOTIFY_CHANGE_LAST_WRITE 0x00000010

#define STD_OUTPUT_HANDLE ((DWORD)-11)
#define STD_ERROR_HANDLE ((DWORD)-12)

#define CTRL_C_EVENT 0
#define CTRL_BREAK_EVENT 1
#define CTRL_CLOSE_EVENT 2
#define CTRL_LOGOFF_EVENT 5
#define CTRL_SHUTDOWN_EVENT 6

typedef PVOID PSID;
typedef BOOL (*PHANDLER_ROUTINE)(DWORD control);

extern "C" {

// The entry of a windowed program, defined by the program. `command_line` is without the program's
// name.
int wWinMain(HINSTANCE instance, HINSTANCE previous, LPWSTR command_line, int show_command);

// The running program's instance handle, for `name` null; error 126 for any other module.
HMODULE GetModuleHandleW(LPCWSTR name);

// Path of the running executable; `module` is null or the program's instance handle. Returns its
// length, or `size` with error 122 when it had to be cut; always ends with a NUL. 0 on failure.
DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD size);

// The directory for temporary files, with a slash at its end: "tmp/" under WIREFOX_HOME, created if
// need be, so that two installations never write each other's files; else TMPDIR, else /tmp/.
// Returns the length without the NUL, or the room needed with it when `size` is too small.
DWORD GetTempPathW(DWORD size, LPWSTR path);

// The arguments as one line from which Windows' rules for quotes and backslashes give them again.
// The line lives as long as the process.
LPWSTR GetCommandLineW(void);

// Conversion between WCHAR, one UTF-16 unit in each, and UTF-8, which CP_ACP and CP_THREAD_ACP
// stand for, too, whatever the locale is. A length of -1 means up to and with the NUL. Malformed
// input gives U+FFFD per maximal ill-formed part (a lone surrogate: per unit), or with the
// ..._ERR_... flag 0 and error 1113. Errors 87, 122, 1004 as on Windows.
int MultiByteToWideChar(UINT code_page, DWORD flags, LPCSTR text, int length, LPWSTR wide,
                        int room);
// `default_char` and `used_default` are null, as Windows wants for UTF-8.
int WideCharToMultiByte(UINT code_page, DWORD flags, LPCWSTR wide, int length, LPSTR text, int room,
                        LPCSTR default_char, LPBOOL used_default);

// A string of the program's resources (platform/linux/program_resources.h), cut to the room with
// its NUL. Returns its length; 0 when there is none. With `room` 0, `buffer` is a pointer in
// disguise, into which the address of the resource itself is stored.
int LoadStringW(HINSTANCE instance, UINT id, LPWSTR buffer, int room);

// Events go to the journal, or without one to syslog, with source, type, category and id as fields.
// `server` is null. Close with DeregisterEventSource.
HANDLE RegisterEventSourceW(LPCWSTR server, LPCWSTR source);
BOOL ReportEventW(HANDLE log, WORD type, WORD category, DWORD id, PSID user, WORD string_count,
                  DWORD data_size, LPCWSTR* strings, LPVOID data);
BOOL DeregisterEventSource(HANDLE log);

// This host has no desktop to show a box on: title and text go to standard error, and the answer
// is IDOK at once. `type` is MB_OK with any icon.
int MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR title, UINT type);

// Tells `handler`, on a thread of its own, that the program is to end: CTRL_C_EVENT for SIGINT,
// CTRL_CLOSE_EVENT for SIGTERM and SIGHUP. The last one added is asked first; when none returns
// TRUE, the signal ends the process. A null handler with `add` TRUE makes the process ignore
// SIGINT, with FALSE heed it again. FALSE with error 87 when the handler to remove was never added.
BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL add);

// A standard stream, for console modes alone: it is in no handle table and is not closed.
// INVALID_HANDLE_VALUE with error 87 for any other number.
HANDLE GetStdHandle(DWORD stream);
// TRUE when the stream is a terminal, with its modes as <wincon.h> has them; otherwise FALSE with
// error 6.
BOOL GetConsoleMode(HANDLE stream, LPDWORD mode);

// A handle that becomes signalled when an entry of the directory `path` changes in a way that
// `filter` names, and stays so until FindNextChangeNotification. INVALID_HANDLE_VALUE with error 2
// or 3 when there is no such directory, 87 for a filter of 0 or with unknown bits, 50 for
// `subtree` TRUE, which is not modelled. Wait with the usual calls; close with
// FindCloseChangeNotification only.
HANDLE FindFirstChangeNotificationW(LPCWSTR path, BOOL subtree, DWORD filter);
BOOL FindNextChangeNotification(HANDLE notification);
BOOL FindCloseChangeNotification(HANDLE notification);

}  // extern "C"
