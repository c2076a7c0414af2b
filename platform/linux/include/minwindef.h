// The elementary types of the Windows calls, with the widths that they have on 64-bit Windows.
#pragma once

#include <guiddef.h>

#include <cstddef>
#include <cstdint>

#ifndef CONST
#define CONST const
#endif
#ifndef VOID
#define VOID void
#endif
#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

// The calling conventions of Windows are the host's own here.
#define WINAPI
#define CALLBACK
#define APIENTRY
#define WINAPIV

typedef int BOOL, *PBOOL, *LPBOOL;
typedef unsigned char BYTE, *PBYTE, *LPBYTE;
typedef char CHAR, *PCHAR;
typedef unsigned char UCHAR, *PUCHAR;
typedef std::int16_t SHORT;
typedef std::uint16_t USHORT, WORD, *PWORD, *LPWORD;
typedef int INT, *PINT;
typedef unsigned int UINT, *PUINT;
typedef std::int32_t LONG, *PLONG, *LPLONG;
typedef std::uint32_t ULONG, *PULONG, DWORD, *PDWORD, *LPDWORD;
typedef std::int64_t LONGLONG;
typedef std::uint64_t ULONGLONG, DWORD64;
typedef std::intptr_t INT_PTR, LONG_PTR;
typedef std::uintptr_t UINT_PTR, ULONG_PTR, DWORD_PTR, SIZE_T;

typedef void *PVOID, *LPVOID;
typedef const void* LPCVOID;
typedef char *LPSTR, *PSTR;
typedef const char *LPCSTR, *PCSTR;

// One UTF-16 code unit per element; the upper half stays zero.
typedef wchar_t WCHAR, *PWCHAR, *LPWSTR, *PWSTR;
typedef const wchar_t *LPCWSTR, *PCWSTR;

typedef LONG HRESULT;
typedef WORD ATOM, LANGID;
typedef DWORD LCID, ACCESS_MASK, REGSAM;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM, LRESULT;

typedef void *HANDLE, **PHANDLE, **LPHANDLE;
typedef PVOID PSECURITY_DESCRIPTOR;

#define DECLARE_HANDLE(name) \
  struct name##__ {          \
    int unused;              \
  };                         \
  typedef struct name##__* name

DECLARE_HANDLE(HINSTANCE);
DECLARE_HANDLE(HKEY);
DECLARE_HANDLE(HWND);
DECLARE_HANDLE(HICON);
DECLARE_HANDLE(HBRUSH);
DECLARE_HANDLE(HMENU);
typedef HINSTANCE HMODULE;
typedef HICON HCURSOR;
typedef HKEY* PHKEY;

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};
typedef FILETIME *PFILETIME, *LPFILETIME;

struct SECURITY_ATTRIBUTES {
  DWORD nLength;
  LPVOID lpSecurityDescriptor;
  BOOL bInheritHandle;
};
typedef SECURITY_ATTRIBUTES *PSECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

#define MAX_PATH 260

static_assert(sizeof(DWORD) == 4 && sizeof(LONG) == 4 && sizeof(ULONG) == 4 && sizeof(BOOL) == 4);
static_assert(sizeof(WORD) == 2 && sizeof(BYTE) == 1 && sizeof(WCHAR) >= 2);
static_assert(sizeof(HANDLE) == 8 && sizeof(LPARAM) == 8, "the layer is for 64-bit hosts");
