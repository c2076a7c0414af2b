// Which USB bus the probe driver's devices are on: real USB, the simulator that $WIREFOX_BUS names
// ("sim:SOCKET"), or the bus that a test gives.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/probe_driver/usb_bus.h"

namespace linux_host {

// Every call of the layer to a bus goes through here; the bus is chosen at the first. It is real
// USB without $WIREFOX_BUS; then the settings file says which devices are probes.
std::vector<std::string> ListBusDevices();
std::unique_ptr<probe_driver::UsbDevice> OpenBusDevice(const std::string& path);

// From now on arrivals and removals on the bus, also on one that is set later, reach TellWindows.
void WatchBus();

// The bus from now on; null: no devices. The bus outlives its use. Null does not go back to
// $WIREFOX_BUS.
void UseBus(probe_driver::UsbBus* bus);

// The device-interface class of the probe driver's devices.
const GUID& DriverClass();
bool IsDriverClass(const GUID& guid);

// Sends WM_DEVICECHANGE with a DBT_ event to every window that is registered. Any thread.
void TellWindows(DWORD event, const std::string& path);

}  // namespace linux_host
