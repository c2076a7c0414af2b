// What tests of the configuration objects share: devices on a scripted bus, settings for their ids,
// files, the log and the test clock.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config/device_table.h"
#include "config/evk_configure.h"
#include "config/wfx_configure.h"
#include "platform/test_host.h"
#include "support/settings_file.h"
#include "tests/unit/scratch_folder.h"
#include "tests/unit/scripted_bus.h"
#include "usb/driver_interface.h"

// The configurator list of a test, empty at first. What stands in it at the end is destroyed.
class OwnConfigurators {
 public:
  OwnConfigurators() : before_(std::exchange(Configurators(), {})) {}
  ~OwnConfigurators() {
    for (CTzDeviceConfigure* configurator : Configurators()) delete configurator;
    Configurators() = before_;
  }
  OwnConfigurators(const OwnConfigurators&) = delete;
  OwnConfigurators& operator=(const OwnConfigurators&) = delete;

  template <typename T>
  T& Add() {
    auto configurator = std::make_unique<T>();
    T& added = *configurator;
    Configurators().push_back(configurator.release());
    return added;
  }

 private:
  std::vector<CTzDeviceConfigure*> before_;
};

class ConfigureTest : public testing::Test {
 protected:
  ConfigureTest() : bus_(std::vector<unit::ScriptedDevice>{}) { test_host::UseBus(&bus_); }
  ~ConfigureTest() override { test_host::UseBus(nullptr); }

  // A product id that no other test has settings for: these are never forgotten.
  static std::uint16_t NewProduct() {
    static std::uint16_t last = 0x0100;
    return ++last;
  }

  static unit::ScriptedDevice Device(std::uint16_t product_id, const std::string& name) {
    unit::ScriptedDevice device;
    device.product_id = product_id;
    device.name = name;
    return device;
  }

  // A setting of the devices with this product id.
  void Set(std::uint16_t product_id, const char* kind, const std::string& value) {
    char key[32];
    std::snprintf(key, sizeof key, "0f0f_%04x_%s=", product_id, kind);
    ReadSettings(folder_.Write("settings.ini", key + value).c_str());
  }

  static std::string Path(std::uint16_t product_id, const std::string& name) {
    return Device(product_id, name).Path();
  }

  // The names in the table, in its order.
  static std::vector<std::wstring> Names() {
    std::vector<std::wstring> names;
    for (const ProbeEntry* entry : ListProbeEntries()) names.push_back(entry->name);
    return names;
  }

  unit::LogFile log_{LOG_ERROR | LOG_DEVICE};
  unit::ScratchFolder folder_;
  test_host::TestClock clock_;
  unit::ScriptedBus bus_;
  OwnConfigurators configurators_;
};
