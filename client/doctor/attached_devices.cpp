#include "client/doctor/attached_devices.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>

#include "client/installation.h"

namespace client {

namespace {

namespace fs = std::filesystem;

// A line of the kernel's about a device; empty when there is none.
std::string Attribute(const fs::path& device, const char* name) {
  std::ifstream file(device / name);
  std::string line;
  std::getline(file, line);
  return line;
}

// What the settings call devices with these ids; empty: no device of the service's.
std::string StateOf(const SettingsTable& settings, const std::string& key_begin) {
  for (auto at = settings.lower_bound(key_begin);
       at != settings.end() && at->first.starts_with(key_begin); ++at) {
    const bool names_state = at->second == kFresh || at->second == kReady;
    if (names_state && at->first.ends_with("DEVICE")) return at->second;
  }
  return "";
}

// Both ways, as the service does; opening sends nothing.
bool MayBeOpened(const fs::path& node) {
  return std::fstream(node, std::ios::in | std::ios::out | std::ios::binary).good();
}

std::string NodeOf(const fs::path& device) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "dev/bus/usb/%03d/%03d",
                std::atoi(Attribute(device, "busnum").c_str()),
                std::atoi(Attribute(device, "devnum").c_str()));
  return text.data();
}

}  // namespace

AttachedDevices FindAttachedDevices(const SettingsTable& settings, const fs::path& root) {
  AttachedDevices found;
  // Where names begin with a drive, there is no such folder, but perhaps one that looks like it.
  if (fs::path::preferred_separator != L'/' && root == "/") return found;
  found.has_usb = !IsMissing(root / "dev/bus/usb");
  std::error_code none;
  for (const auto& entry : fs::directory_iterator(root / "sys/bus/usb/devices", none)) {
    const std::string vendor = settings::UpperCased(Attribute(entry, "idVendor"));
    const std::string product = settings::UpperCased(Attribute(entry, "idProduct"));
    // Interfaces stand beside the devices and have no ids.
    if (vendor.empty() || product.empty()) continue;
    const std::string state = StateOf(settings, vendor + "_" + product + "_");
    if (state.empty()) continue;
    const fs::path node = root / NodeOf(entry);
    found.devices.push_back({vendor + ":" + product, Utf8FromPath(node), Attribute(entry, "serial"),
                             state == kFresh, MayBeOpened(node)});
  }
  std::ranges::sort(found.devices, {}, &AttachedDevice::node);
  return found;
}

}  // namespace client
