// The probes on this computer's USB, as its kernel shows them to everybody. Only hosts with a /sys
// have that; elsewhere none is seen.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "base/settings_table.h"

namespace client {

struct AttachedDevice {
  std::string ids;            // "VVVV:PPPP" in capitals
  std::string node;           // the device's file
  std::string name;           // its serial number, which becomes the probe's name; may be empty
  bool is_fresh = false;      // it gets its firmware yet
  bool may_be_opened = true;  // by this account
};

struct AttachedDevices {
  std::vector<AttachedDevice> devices;
  bool has_usb = true;  // false: the computer has no USB devices' files at all
};

// Those that the settings call a device. `root` is the folder of all files.
AttachedDevices FindAttachedDevices(const SettingsTable& settings,
                                    const std::filesystem::path& root = "/");

// The states that a setting VVVV_PPPP_...DEVICE may give.
inline constexpr char kFresh[] = "UNCONFIGURED";
inline constexpr char kReady[] = "CONFIGURED";

}  // namespace client
