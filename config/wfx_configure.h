// The configuration object of the Wirefox probes, whose FPGA is loaded each time they are attached.
#pragma once

#include "config/device_configure.h"

class CTzWfxConfigure : public CTzDeviceConfigure {
 public:
  std::uint32_t GetDeviceState(std::uint16_t vendor_id, std::uint16_t product_id) override;
  ~CTzWfxConfigure() override;
  bool ConfigureNewDevices(CTzUSBDevice& enumerator) override;

  // Loads the firmware into a fresh probe: 0, 1 no file, 2 not an Intel HEX file, 6 a request to
  // the controller failed.
  std::uint32_t ConfigureKX7(CTzDevice& device);

  // Loads the FPGA: 0, 1 the image cannot be read, 3 a request failed or the probe reports a
  // failure, 4 the probe has no endpoint for the image, 5 the probe reports failure 5.
  std::uint32_t ConfigureFPGA(CTzDevice& device);

  // The settings' image file for the device, as written there; empty when there is none.
  std::string GetFPGAFileName(CTzDevice& device);

 private:
  std::unique_ptr<CTzDevice> MakeDevice(std::uint8_t index, bool set_timeouts) override;
  std::uint32_t LoadFirmware(CTzDevice& device) override { return ConfigureKX7(device); }
  bool PrepareConfigured(CTzDevice& device) override;
};
