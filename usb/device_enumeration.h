// The devices that the system lists under a device-interface class.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// How many devices of the class are present.
std::uint32_t CountDevices(const GUID& interface_class);

// The path of the present device at `index` (0-based, in the system's order), or nothing.
std::optional<std::wstring> DevicePathAt(const GUID& interface_class, std::uint32_t index);

// The paths of all present devices, in the system's order.
std::vector<std::wstring> DevicePaths(const GUID& interface_class);
