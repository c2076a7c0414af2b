#include "config/wfx_configure.h"

#include "config/device_setting.h"
#include "config/firmware_download.h"
#include "device/wfx_device.h"
#include "support/log.h"

namespace {

constexpr std::uint32_t kRequestFailed = 6;

}  // namespace

CTzWfxConfigure::~CTzWfxConfigure() = default;

std::uint32_t CTzWfxConfigure::GetDeviceState(std::uint16_t vendor_id, std::uint16_t product_id) {
  return LookUpState("WFXDEVICE", vendor_id, product_id);
}

bool CTzWfxConfigure::ConfigureNewDevices(CTzUSBDevice& enumerator) {
  return RunConfigurationPass(enumerator,
                              {"CTzWfxConfigure::UpdateState", "CTzWfxConfigure::ProgramKX7"});
}

std::uint32_t CTzWfxConfigure::ConfigureKX7(CTzDevice& device) {
  // The label has had this second parenthesis from the first release on; tools look for it.
  return DownloadFirmware(device, GetKX7FileName(device), "CTzWfxConfigure::ConfigureKX7())",
                          kRequestFailed);
}

std::unique_ptr<CTzDevice> CTzWfxConfigure::MakeDevice(std::uint8_t index, bool set_timeouts) {
  return std::make_unique<CTzWfxDevice>(index, set_timeouts);
}

// A probe whose FPGA could not be loaded stays out of the table; every later pass tries again.
bool CTzWfxConfigure::PrepareConfigured(CTzDevice& device) {
  const std::uint32_t result = ConfigureFPGA(device);
  if (result == 0) return true;
  Log(LOG_ERROR, "CTzWfxConfigure::ProgramFPGA", "Error %x programming device %s, with file %s.",
      result, device.GetUSBDevice()->DevicePath(), GetFPGAFileName(device).c_str());
  return false;
}

std::string CTzWfxConfigure::GetFPGAFileName(CTzDevice& device) {
  return GetDeviceSetting(device, "FPGA");
}
