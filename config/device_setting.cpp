#include "config/device_setting.h"

#include <array>
#include <cstdio>

#include "support/settings_file.h"
#include "usb/usb_device.h"

const char* GetDeviceSetting(std::uint16_t vendor_id, std::uint16_t product_id, const char* kind) {
  std::array<char, 32> key;
  std::snprintf(key.data(), key.size(), "%04X_%04X_%s", vendor_id, product_id, kind);
  return GetSetting(key.data());
}

const char* GetDeviceSetting(CTzDevice& device, const char* kind) {
  const CTzUSBDevice& usb = *device.GetUSBDevice();
  return GetDeviceSetting(usb.VendorId(), usb.ProductId(), kind);
}
