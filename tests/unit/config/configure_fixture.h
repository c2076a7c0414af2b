// What tests of the configuration objects share: devices on a scripted bus, settings for their ids,
// files, the log and the test clock.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "config/device_table.h"
#include "config/evk_configure.h"
#include "config/wfx_configure.h"
#include "support/paths.h"
#include "support/settings_file.h"
#include "tests/unit/scratch_folder.h"
#include "tests/unit/scripted_bus.h"
#include "usb/driver_interface.h"

class ConfigureTest : public unit::ScriptedBusTest {
 protected:
  ConfigureTest() : ScriptedBusTest(std::vector<unit::ScriptedDevice>{}) {}
  ~ConfigureTest() override {
    for (CTzDeviceConfigure* configurator : Configurators()) delete configurator;
    Configurators() = before_;
  }

  // The configurator list is empty at first. What stands in it at the end is destroyed.
  template <typename T>
  T& Add() {
    auto configurator = std::make_unique<T>();
    T& added = *configurator;
    Configurators().push_back(configurator.release());
    return added;
  }

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
  static std::string Path(std::uint16_t product_id, const std::string& name) {
    return Device(product_id, name).Path();
  }

  // The names in the table, in its order, each with a blank behind it.
  static std::string Names() {
    std::string names;
    for (const ProbeEntry* entry : ListProbeEntries()) names += NarrowText(entry->name) + " ";
    return names;
  }

  unit::LogFile log_{LOG_ERROR | LOG_DEVICE};
  unit::ScratchFolder folder_;

 private:
  const std::vector<CTzDeviceConfigure*> before_ = std::exchange(Configurators(), {});
};
