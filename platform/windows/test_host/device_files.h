// The device files that the test host opens on the test's bus, and the bus itself.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/probe_driver/usb_bus.h"

namespace test_host {

// Those of the bus of UseBus; nothing without one.
std::vector<std::string> ListBusDevices();
std::unique_ptr<probe_driver::UsbDevice> OpenBusDevice(const std::string& path);

// From now on the bus's arrivals and removals reach QueueDeviceEvent, also after a change of bus.
void WatchBus();

// For the windows that asked for notifications; any thread. `event` is one of dbt.h.
void QueueDeviceEvent(DWORD event, const std::string& path);

// Aborts what is in flight on a device file and forgets it. Other handles are left alone.
void CloseDeviceFile(HANDLE handle);

// The device-interface class of the probe driver's devices.
bool IsDriverClass(const GUID& guid);

}  // namespace test_host
