// The configuration object of the Evk boards, which are ready once their firmware runs.
#pragma once

#include "config/device_configure.h"

class CTzEvkConfigure : public CTzDeviceConfigure {
 public:
  std::uint32_t GetDeviceState(std::uint16_t vendor_id, std::uint16_t product_id) override;
  ~CTzEvkConfigure() override;
  bool ConfigureNewDevices(CTzUSBDevice& enumerator) override;

  // Loads the firmware into a fresh board: 0, 1 no file, 2 not an Intel HEX file, 3 a request to
  // the controller failed.
  std::uint32_t ConfigureKX7(CTzDevice& device);

 private:
  std::unique_ptr<CTzDevice> MakeDevice(std::uint8_t index, bool set_timeouts) override;
  std::uint32_t LoadFirmware(CTzDevice& device) override { return ConfigureKX7(device); }
  bool PrepareConfigured(CTzDevice&) override { return true; }
};
