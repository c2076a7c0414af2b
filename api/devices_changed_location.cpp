#include "api/devices_changed_location.h"

#include <new>
#include <optional>
#include <string>

#include "api/automation_arrays.h"
#include "config/device_discovery.h"

namespace api {
namespace {

std::optional<std::wstring>& Location() {
  static std::optional<std::wstring> location;
  return location;
}

}  // namespace

void RememberDevicesChangedLocation() {
  const wchar_t* path = GetDevicesChangedPath();
  if (Location() || !path) return;
  try {
    Location() = path;
  } catch (const std::bad_alloc&) {
    throw OutOfStrings{};
  }
}

const wchar_t* DevicesChangedLocation() { return Location() ? Location()->c_str() : nullptr; }

}  // namespace api
