// What tests of the configuration objects share: devices on a scripted bus, settings for their ids,
// files, the log and the test clock.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "config/device_table.h"
#include "config/evk_configure.h"
#include "config/wfx_configure.h"
#include "support/paths.h"
#include "support/settings_file.h"
#include "tests/unit/scratch_folder.h"
#include "tests/unit/scripted_bus.h"
#include "usb/device_interface_guid.h"

class ConfigureTest : public unit::ScriptedBusTest {
 protected:
  ConfigureTest() : ScriptedBusTest(std::vector<unit::ScriptedDevice>{}) {
    bus_.ShowAll();
    Configurators() = {&evk_, &wfx_};
  }
  ~ConfigureTest() override { Configurators().clear(); }

  // A product id that no other test has settings for: these are never forgotten.
  static std::uint16_t NewProduct() {
    static std::uint16_t last = 0x0100;
    return ++last;
  }

  // A setting of the devices with this product id.
  void Set(std::uint16_t product_id, const char* kind, const std::string& value) {
    char key[32];
    std::snprintf(key, sizeof key, "0f0f_%04x_%s=", product_id, kind);
    ReadSettings(folder_.Write("settings.ini", key + value).c_str());
  }
  std::uint16_t NewEvkProduct(const char* state = "CONFIGURED") {
    const std::uint16_t product = NewProduct();
    Set(product, "EVKDEVICE", state);
    return product;
  }

  static unit::ScriptedDevice Device(std::uint16_t product_id, const std::string& name) {
    return {.name = name, .product_id = product_id};
  }

  // The names in the table, in its order, each with a blank behind it.
  static std::string Names() {
    std::string names;
    for (const ProbeEntry* entry : ListProbeEntries()) names += NarrowText(entry->name) + " ";
    return names;
  }

  // The lines of the log since the last call, each with a line end, without product ids and
  // folders, so that devices show as their names. Those of the device classes only when asked for.
  std::string TakeLog(bool of_devices = false) {
    std::string text;
    for (std::string line : log_.Take()) {
      const bool of_device =
          line.starts_with("[CTzDevice::") || line.starts_with("[CTzWfxDevice::");
      if (of_device && !of_devices) continue;
      for (const auto& [part, behind] :
           {std::pair{folder_.Path(""), 0U}, {R"(\\?\usb#vid_0f0f&pid_)", 5U}, {", PID=", 4U}}) {
        const std::size_t at = line.find(part);
        if (at != std::string::npos) line.erase(at, part.size() + behind);
      }
      text += line + "\n";
    }
    return text;
  }

  unit::LogFile log_{LOG_ERROR | LOG_DEVICE | LOG_XFER | LOG_TRACE};
  unit::ScratchFolder folder_;
  CTzEvkConfigure evk_;
  CTzWfxConfigure wfx_;
  CTzUSBDevice enumerator_{kProbeDriverInterface, false};
  // Boards that are ready, of one product.
  const std::uint16_t board_ = NewEvkProduct();
  const unit::ScriptedDevice a_ = Device(board_, "A"), b_ = Device(board_, "B"),
                             c_ = Device(board_, "C");
};
