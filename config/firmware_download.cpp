#include "config/firmware_download.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <span>

#include "config/intel_hex.h"
#include "device/probe_protocol.h"
#include "support/log.h"
#include "support/paths.h"
#include "usb/usb_device.h"

namespace {

constexpr std::size_t kChunkBytes = 2048;

// What the controller's reset register takes.
constexpr std::uint8_t kHoldReset = 1;
constexpr std::uint8_t kRelease = 0;

// Names of one or two characters are used as they stand, so that an empty setting stays one.
std::string FirmwarePath(const std::string& setting) {
  if (setting.size() > 2 && !IsAbsoluteName(setting)) return GetModuleDirectory() + setting;
  return setting;
}

// Whether a failed open means that there is no such file, rather than one that cannot be read.
bool NameHasNoFile(int open_error) {
  static constexpr int kMisses[] = {ENOENT, ENOTDIR, ENAMETOOLONG, ELOOP, EINVAL};
  return std::ranges::find(kMisses, open_error) != std::end(kMisses);
}

bool WriteRam(CTzDevice& device, std::uint32_t address, std::span<const std::uint8_t> bytes) {
  // A request to the probe only reads its buffer.
  auto* const data = const_cast<std::uint8_t*>(bytes.data());
  return device.XferData(probe::kHostToProbe, probe::kRequestControllerRam,
                         static_cast<std::uint16_t>(address), 0, data,
                         static_cast<std::uint32_t>(bytes.size())) == 0;
}

bool WriteReset(CTzDevice& device, std::uint8_t value) {
  return WriteRam(device, probe::kControllerResetAddress, {&value, 1});
}

bool WriteBlock(CTzDevice& device, std::uint32_t address, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const std::size_t chunk = std::min(bytes.size(), kChunkBytes);
    if (!WriteRam(device, address, bytes.first(chunk))) return false;
    address += static_cast<std::uint32_t>(chunk);
    bytes = bytes.subspan(chunk);
  }
  return true;
}

bool WriteImage(CTzDevice& device, const HexImage& image) {
  return image.ForEachBlock([&](std::uint32_t address, std::span<const std::uint8_t> bytes) {
    return WriteBlock(device, address, bytes);
  });
}

}  // namespace

std::uint32_t DownloadFirmware(CTzDevice& device, const std::string& file_setting,
                               const char* label, std::uint32_t request_failed) {
  const std::string path = FirmwarePath(file_setting);
  errno = 0;
  // As text, which ends at a Ctrl-Z on hosts that know one.
  std::ifstream file(path);
  if (!file && NameHasNoFile(errno)) return kNoFirmwareFile;
  const CTzUSBDevice& usb = *device.GetUSBDevice();
  Log(LOG_XFER, label, "Programming KX7 of device VID=%4.4X, PID=%4.4X with hex file %s",
      usb.VendorId(), usb.ProductId(), path.c_str());
  HexImage image;
  if (!file || !ReadIntelHex(file, image)) return kBadFirmwareFile;

  const bool loaded =
      WriteReset(device, kHoldReset) && WriteImage(device, image) && WriteReset(device, kRelease);
  return loaded ? kFirmwareLoaded : request_failed;
}
