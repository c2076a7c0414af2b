#include <windows.h>

#include <setupapi.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "platform/windows/test_host/device_files.h"
#include "platform/windows/test_host/made_once.h"
#include "platform/windows/test_host/taken_calls.h"

namespace test_host::taken {
namespace {

// The paths that were present when a set was taken, sorted.
using DeviceSet = std::vector<std::string>;

struct DeviceSets {
  std::mutex mutex;
  std::uintptr_t next = 0x30000001;
  std::map<std::uintptr_t, std::shared_ptr<const DeviceSet>> sets;
};

constinit MadeOnce<DeviceSets> TheSets;

std::shared_ptr<const DeviceSet> FindSet(HDEVINFO set) {
  DeviceSets& sets = TheSets();
  const std::lock_guard lock(sets.mutex);
  const auto found = sets.sets.find(reinterpret_cast<std::uintptr_t>(set));
  return found == sets.sets.end() ? nullptr : found->second;
}

BOOL Fail(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace

HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* class_guid, PCWSTR enumerator, HWND parent,
                                     DWORD flags) {
  if (!class_guid || enumerator || parent || flags != (DIGCF_PRESENT | DIGCF_DEVICEINTERFACE)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  auto paths = IsDriverClass(*class_guid) ? ListBusDevices() : DeviceSet();
  std::sort(paths.begin(), paths.end());
  DeviceSets& sets = TheSets();
  const std::lock_guard lock(sets.mutex);
  sets.sets[sets.next] = std::make_shared<const DeviceSet>(std::move(paths));
  return reinterpret_cast<HDEVINFO>(sets.next++);
}

BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO set, PSP_DEVINFO_DATA devinfo,
                                        const GUID* class_guid, DWORD index,
                                        PSP_DEVICE_INTERFACE_DATA data) {
  const auto devices = FindSet(set);
  if (!devices) return Fail(ERROR_INVALID_HANDLE);
  if (devinfo || !class_guid || !data) return Fail(ERROR_INVALID_PARAMETER);
  if (data->cbSize != sizeof(*data)) return Fail(ERROR_INVALID_USER_BUFFER);
  if (!IsDriverClass(*class_guid) || index >= devices->size()) return Fail(ERROR_NO_MORE_ITEMS);
  data->InterfaceClassGuid = *class_guid;
  data->Flags = SPINT_ACTIVE;
  // Which device of the set it is, counted from 1 so that an unfilled record is told apart.
  data->Reserved = index + 1;
  return TRUE;
}

BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO set, PSP_DEVICE_INTERFACE_DATA data,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD size,
                                             PDWORD required, PSP_DEVINFO_DATA devinfo) {
  const auto devices = FindSet(set);
  if (!devices) return Fail(ERROR_INVALID_HANDLE);
  const bool valid = data && data->cbSize == sizeof(*data) && data->Reserved >= 1 &&
                     data->Reserved <= devices->size() && !devinfo;
  if (!valid) return Fail(ERROR_INVALID_PARAMETER);
  if (detail && detail->cbSize != sizeof(*detail)) return Fail(ERROR_INVALID_USER_BUFFER);
  const std::string& narrow = (*devices)[data->Reserved - 1];
  const std::wstring path(narrow.begin(), narrow.end());
  constexpr std::size_t kPathOffset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath);
  const auto needed = static_cast<DWORD>(kPathOffset + (path.size() + 1) * sizeof(WCHAR));
  if (required) *required = needed;
  if (!detail || size < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(reinterpret_cast<std::byte*>(detail) + kPathOffset, path.c_str(),
              needed - kPathOffset);
  return TRUE;
}

BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set) {
  DeviceSets& sets = TheSets();
  const std::lock_guard lock(sets.mutex);
  if (sets.sets.erase(reinterpret_cast<std::uintptr_t>(set)) == 1) return TRUE;
  return Fail(ERROR_INVALID_HANDLE);
}

}  // namespace test_host::taken
