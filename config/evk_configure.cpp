#include "config/evk_configure.h"

#include "config/firmware_download.h"
#include "device/evk_device.h"

namespace {

constexpr std::uint32_t kRequestFailed = 3;

}  // namespace

CTzEvkConfigure::~CTzEvkConfigure() = default;

std::uint32_t CTzEvkConfigure::GetDeviceState(std::uint16_t vendor_id, std::uint16_t product_id) {
  return LookUpState("EVKDEVICE", vendor_id, product_id);
}

bool CTzEvkConfigure::ConfigureNewDevices(CTzUSBDevice& enumerator) {
  return RunConfigurationPass(enumerator,
                              {"CTzEvkConfigure::UpdateState", "CTzEvkConfigure::ProgramKX7"});
}

std::uint32_t CTzEvkConfigure::ConfigureKX7(CTzDevice& device) {
  // The label has had this second parenthesis from the first release on; tools look for it.
  return DownloadFirmware(device, GetKX7FileName(device), "CTzEvkConfigure::ConfigureKX7())",
                          kRequestFailed);
}

std::unique_ptr<CTzDevice> CTzEvkConfigure::MakeDevice(std::uint8_t index, bool set_timeouts) {
  return std::make_unique<CTzEvkDevice>(index, set_timeouts);
}
