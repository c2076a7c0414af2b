// Enumeration of the probe driver's devices.
//
// The set holds the devices that were present when it was taken, sorted by path. Only the driver's
// device-interface class has devices; a set of another class is empty.
#pragma once

#include <minwindef.h>

typedef PVOID HDEVINFO;

#define DIGCF_PRESENT 0x00000002
#define DIGCF_DEVICEINTERFACE 0x00000010
#define SPINT_ACTIVE 0x00000001

struct SP_DEVINFO_DATA {
  DWORD cbSize;
  GUID ClassGuid;
  DWORD DevInst;
  ULONG_PTR Reserved;
};
typedef SP_DEVINFO_DATA* PSP_DEVINFO_DATA;

struct SP_DEVICE_INTERFACE_DATA {
  DWORD cbSize;
  GUID InterfaceClassGuid;
  DWORD Flags;
  ULONG_PTR Reserved;
};
typedef SP_DEVICE_INTERFACE_DATA* PSP_DEVICE_INTERFACE_DATA;

struct SP_DEVICE_INTERFACE_DETAIL_DATA_W {
  DWORD cbSize;
  WCHAR DevicePath[1];  // longer than declared
};
typedef SP_DEVICE_INTERFACE_DETAIL_DATA_W* PSP_DEVICE_INTERFACE_DETAIL_DATA_W;

static_assert(sizeof(SP_DEVICE_INTERFACE_DATA) == 32);
static_assert(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) == 8);

extern "C" {

// `flags` are DIGCF_PRESENT and DIGCF_DEVICEINTERFACE, `enumerator` and `parent` null (else error
// 87). INVALID_HANDLE_VALUE on failure. To be destroyed by the caller.
HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* class_guid, PCWSTR enumerator, HWND parent,
                                     DWORD flags);
// Error 259 beyond the last device. `devinfo` is null.
BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO set, PSP_DEVINFO_DATA devinfo,
                                        const GUID* class_guid, DWORD index,
                                        PSP_DEVICE_INTERFACE_DATA data);
// `size` and `required` are bytes. Error 122 when the path does not fit; `detail` may then be null,
// otherwise its cbSize is that of the structure (else error 1784). `devinfo` is null.
BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO set, PSP_DEVICE_INTERFACE_DATA data,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD size,
                                             PDWORD required, PSP_DEVINFO_DATA devinfo);
BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set);

}  // extern "C"
