#include <setupapi.h>
#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/devices/bus_selection.h"
#include "platform/linux/kernel/handle_table.h"

namespace linux_host {
namespace {

// The devices that were present when the set was taken.
class DeviceSet : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kDeviceSet;

  explicit DeviceSet(std::vector<std::string> paths)
      : KernelObject(kKind), paths_(std::move(paths)) {
    std::sort(paths_.begin(), paths_.end());
  }
  const std::vector<std::string>& paths() const { return paths_; }

 private:
  std::vector<std::string> paths_;
};

BOOL Fail(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace
}  // namespace linux_host

using namespace linux_host;

HDEVINFO SetupDiGetClassDevsW(const GUID* class_guid, PCWSTR enumerator, HWND parent, DWORD flags) {
  constexpr DWORD kModelled = DIGCF_PRESENT | DIGCF_DEVICEINTERFACE;
  if (!class_guid || enumerator || parent || flags != kModelled) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  auto paths = IsDriverClass(*class_guid) ? ListBusDevices() : std::vector<std::string>();
  const HANDLE handle = MakeHandle(MakeObject<DeviceSet>(std::move(paths)));
  return handle ? handle : INVALID_HANDLE_VALUE;
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, PSP_DEVINFO_DATA devinfo, const GUID* class_guid,
                                 DWORD index, PSP_DEVICE_INTERFACE_DATA data) {
  const auto devices = LookUp<DeviceSet>(set);
  if (!devices) return FALSE;
  if (devinfo || !class_guid || !data) return Fail(ERROR_INVALID_PARAMETER);
  if (data->cbSize != sizeof(*data)) return Fail(ERROR_INVALID_USER_BUFFER);
  if (!IsDriverClass(*class_guid) || index >= devices->paths().size()) {
    return Fail(ERROR_NO_MORE_ITEMS);
  }
  data->InterfaceClassGuid = *class_guid;
  data->Flags = SPINT_ACTIVE;
  // Which device of the set it is, counted from 1 so that an unfilled record is told apart.
  data->Reserved = index + 1;
  return TRUE;
}

BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO set, PSP_DEVICE_INTERFACE_DATA data,
                                      PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD size,
                                      PDWORD required, PSP_DEVINFO_DATA devinfo) {
  const auto devices = LookUp<DeviceSet>(set);
  if (!devices) return FALSE;
  const bool valid = data && data->cbSize == sizeof(*data) && data->Reserved >= 1 &&
                     data->Reserved <= devices->paths().size() && !devinfo;
  if (!valid) return Fail(ERROR_INVALID_PARAMETER);
  if (detail && detail->cbSize != sizeof(*detail)) return Fail(ERROR_INVALID_USER_BUFFER);

  const std::string& narrow = devices->paths()[data->Reserved - 1];
  const std::wstring path(narrow.begin(), narrow.end());
  constexpr std::size_t kPathOffset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath);
  const auto needed = static_cast<DWORD>(kPathOffset + (path.size() + 1) * sizeof(WCHAR));
  if (required) *required = needed;
  if (!detail || size < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(reinterpret_cast<std::byte*>(detail) + kPathOffset, path.c_str(),
              needed - kPathOffset);
  return TRUE;
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set) {
  const ObjectKind kind = DeviceSet::kKind;
  return CloseOpenHandle(set, &kind) ? TRUE : FALSE;
}
