#include "usb/device_enumeration.h"

#include <setupapi.h>

#include <utility>

#include "support/handle.h"

namespace {

struct DeviceSetTraits {
  using Type = HDEVINFO;
  static Type Null() { return INVALID_HANDLE_VALUE; }
  static void Close(Type set) { SetupDiDestroyDeviceInfoList(set); }
};
using DeviceSet = UniqueHandle<DeviceSetTraits>;

// A place that cannot be listed is passed over; this many of them end the count, so that a system
// that refuses every place is not asked for ever.
constexpr DWORD kMaxPlaces = 4096;

DeviceSet PresentDevices(const GUID& interface_class) {
  return DeviceSet(SetupDiGetClassDevsW(&interface_class, nullptr, nullptr,
                                        DIGCF_PRESENT | DIGCF_DEVICEINTERFACE));
}

bool ListDevice(const DeviceSet& set, const GUID& interface_class, DWORD index,
                SP_DEVICE_INTERFACE_DATA& data) {
  data = {};
  data.cbSize = sizeof data;
  return SetupDiEnumDeviceInterfaces(set.Get(), nullptr, &interface_class, index, &data) != FALSE;
}

std::optional<std::wstring> PathOf(const DeviceSet& set, SP_DEVICE_INTERFACE_DATA& data) {
  DWORD needed = 0;
  SetupDiGetDeviceInterfaceDetailW(set.Get(), &data, nullptr, 0, &needed, nullptr);
  if (needed < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) return std::nullopt;
  // Zeroed and one character longer than asked for, so that the path ends in any case.
  std::vector<char> buffer(needed + sizeof(wchar_t));
  auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
  detail->cbSize = sizeof *detail;
  if (!SetupDiGetDeviceInterfaceDetailW(set.Get(), &data, detail, needed, nullptr, nullptr)) {
    return std::nullopt;
  }
  return detail->DevicePath;
}

// Calls `use(set, data)` for each present device in the system's order.
template <typename Use>
void ForEachDevice(const GUID& interface_class, Use use) {
  const DeviceSet set = PresentDevices(interface_class);
  if (!set) return;
  for (DWORD index = 0; index < kMaxPlaces; ++index) {
    SP_DEVICE_INTERFACE_DATA data;
    if (ListDevice(set, interface_class, index, data)) {
      use(set, data);
    } else if (GetLastError() == ERROR_NO_MORE_ITEMS) {
      break;
    }
  }
}

}  // namespace

std::uint32_t CountDevices(const GUID& interface_class) {
  std::uint32_t count = 0;
  ForEachDevice(interface_class, [&](const DeviceSet&, SP_DEVICE_INTERFACE_DATA&) { ++count; });
  return count;
}

std::optional<std::wstring> DevicePathAt(const GUID& interface_class, std::uint32_t index) {
  const DeviceSet set = PresentDevices(interface_class);
  SP_DEVICE_INTERFACE_DATA data;
  if (!set || !ListDevice(set, interface_class, index, data)) return std::nullopt;
  return PathOf(set, data);
}

std::vector<std::wstring> DevicePaths(const GUID& interface_class) {
  std::vector<std::wstring> paths;
  ForEachDevice(interface_class, [&](const DeviceSet& set, SP_DEVICE_INTERFACE_DATA& data) {
    if (std::optional<std::wstring> path = PathOf(set, data)) paths.push_back(std::move(*path));
  });
  return paths;
}
