#include "platform/linux/usb/probe_ids.h"

#include "base/settings_table.h"
#include "platform/linux/kernel/paths.h"

namespace linux_host {

std::set<UsbIds> ReadProbeIds(std::istream& settings) {
  SettingsTable table;
  ReadSettingsTable(settings, table);
  std::set<UsbIds> ids;
  for (const auto& [key, value] : table) {
    const auto device = ParseDeviceKey(key);
    if (!device || !device->kind.ends_with("DEVICE")) continue;
    if (value == "CONFIGURED" || value == "UNCONFIGURED") {
      ids.emplace(device->vendor_id, device->product_id);
    }
  }
  return ids;
}

std::string SettingsPath() {
  const std::string program = ExecutablePath();
  return program.substr(0, program.rfind('/') + 1) + "wfxusb.ini";
}

}  // namespace linux_host
