// The registry calls, over a text file per hive (platform/linux/registry/hive.h describes it).
//
// Only HKEY_CLASSES_ROOT exists. It shows the caller's own hive and, behind it, the machine's: a
// value, or failing that a key, of the caller's own wins. Everything is written to the caller's own
// hive. The two are one for root and under WIREFOX_HOME. Key and value names compare without regard
// to letter case. Any thread may call; a call sees what any process wrote before it.
//
// Statuses: 0; 2 no such key or value; 5 the handle or the account lacks the right, or the key to
// delete has subkeys; 6 no such handle; 87 an argument is wrong; 161 a path that begins with a
// backslash; 206 a name or path is too long; 234 the buffer is too small; 259 no more entries;
// 1015 the hive file is damaged (the next RegCreateKeyExW puts it aside and begins a new one); 1018
// the handle's key has been deleted; 29 or 30 the hive file cannot be written or read; 1450 the
// hive would grow beyond its limit of 4 MiB.
#pragma once

#include <minwindef.h>

#ifndef DELETE
#define DELETE 0x00010000L
#endif
#ifndef READ_CONTROL
#define READ_CONTROL 0x00020000L
#endif
#ifndef SYNCHRONIZE
#define SYNCHRONIZE 0x00100000L
#endif
#ifndef STANDARD_RIGHTS_REQUIRED
#define STANDARD_RIGHTS_REQUIRED 0x000F0000L
#endif
#ifndef STANDARD_RIGHTS_READ
#define STANDARD_RIGHTS_READ READ_CONTROL
#define STANDARD_RIGHTS_WRITE READ_CONTROL
#endif
#ifndef STANDARD_RIGHTS_ALL
#define STANDARD_RIGHTS_ALL 0x001F0000L
#endif

#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_CREATE_SUB_KEY 0x0004
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_NOTIFY 0x0010
#define KEY_CREATE_LINK 0x0020
// Which of Windows' two views is meant; this host has one, so that both flags change nothing.
#define KEY_WOW64_64KEY 0x0100
#define KEY_WOW64_32KEY 0x0200
#define KEY_READ \
  ((STANDARD_RIGHTS_READ | KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY) & (~SYNCHRONIZE))
#define KEY_WRITE ((STANDARD_RIGHTS_WRITE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY) & (~SYNCHRONIZE))
#define KEY_ALL_ACCESS                                                           \
  ((STANDARD_RIGHTS_ALL | KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY | \
    KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY | KEY_CREATE_LINK) &                     \
   (~SYNCHRONIZE))

#define REG_OPTION_NON_VOLATILE 0x00000000L
#define REG_CREATED_NEW_KEY 0x00000001L
#define REG_OPENED_EXISTING_KEY 0x00000002L

#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4
#define REG_MULTI_SZ 7

typedef LONG LSTATUS;

#define HKEY_CLASSES_ROOT ((HKEY)(ULONG_PTR)((LONG)0x80000000))

extern "C" {

// A null or empty `subkey` opens the key itself again. `options` is 0.
LONG RegOpenKeyExW(HKEY key, LPCWSTR subkey, DWORD options, REGSAM access, PHKEY result);

// Creates what is missing of the path. `options` is REG_OPTION_NON_VOLATILE, `security` null (the
// hive's own protection holds), `class_name` is not kept. `disposition` may be null.
LONG RegCreateKeyExW(HKEY key, LPCWSTR subkey, DWORD reserved, LPWSTR class_name, DWORD options,
                     REGSAM access, LPSECURITY_ATTRIBUTES security, PHKEY result,
                     LPDWORD disposition);

// A null or empty `name` is the key's default value. `size` counts bytes, with a text's NUL; a
// WCHAR has sizeof(WCHAR) of them on each host.
LONG RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                    DWORD size);

// `size` holds the room on entry and the data's length on return, also with 234. With `data` null
// only type and length are reported.
LONG RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                      LPDWORD size);

LONG RegDeleteValueW(HKEY key, LPCWSTR name);

// Deletes a key that has no subkeys. Handles to it then answer 1018.
LONG RegDeleteKeyW(HKEY key, LPCWSTR subkey);

// In the order of the upper-cased names. `name_length` counts characters: room with the NUL on
// entry, length without it on return. `reserved`, `class_name` and `last_write` are null.
LONG RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD name_length, LPDWORD reserved,
                   LPWSTR class_name, LPDWORD class_length, PFILETIME last_write);

LONG RegCloseKey(HKEY key);

}  // extern "C"
