// The virtual bus driver, which shows a simulator's probes to the machine.
#pragma once

#include "tests/system_windows/programs.h"
#include "usb/device_enumeration.h"
#include "usb/device_interface_guid.h"

namespace system_windows {

inline int RunDriverCommand(const std::string& command) {
  return RunToEnd({Program("wfxvbus"), command}).exit_status;
}

// Installs it in the running session; once for all tests of a program.
inline bool DriverIsInstalled() {
  static const bool installed = RunDriverCommand("install") == 0;
  return installed;
}

// Waits until so many devices of the probe driver are listed.
inline bool DevicesBecome(unsigned count) {
  return WaitUntil([&] { return CountDevices(kProbeDriverInterface) == count; });
}

}  // namespace system_windows
