#include "config/device_configure.h"

#include <algorithm>
#include <cwchar>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "config/device_setting.h"
#include "support/log.h"

namespace {

constexpr std::size_t kUsualProbes = 20;
constexpr int kOpenAttempts = 3;
constexpr DWORD kOpenPauseMs = 50;

bool TryOpen(CTzUSBDevice& enumerator, std::uint8_t index) {
  try {
    return enumerator.Open(index);
  } catch (const std::runtime_error&) {
    // The handle of the device before could not be closed. The enumerator has let it go, so the
    // next attempt starts afresh.
    return false;
  }
}

// A device that has just been attached, or that another program holds, may need a moment.
bool OpenPatiently(CTzUSBDevice& enumerator, std::uint8_t index, const char* label) {
  for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
    if (TryOpen(enumerator, index)) return true;
    Sleep(kOpenPauseMs);
  }
  Log(LOG_ERROR, label, "Unable to open device %s. Skipping", enumerator.DevicePath());
  return false;
}

// A device that left while `usb` was opening it tells less than it told the enumerator.
bool IsSameDevice(const CTzUSBDevice& usb, const CTzUSBDevice& enumerator) {
  return usb.IsOpen() && std::string_view(usb.DevicePath()) == enumerator.DevicePath() &&
         usb.VendorId() == enumerator.VendorId() && usb.ProductId() == enumerator.ProductId() &&
         usb.EndPointCount() == enumerator.EndPointCount() &&
         std::wcscmp(usb.SerialNumber(), enumerator.SerialNumber()) == 0;
}

}  // namespace

CTzDeviceConfigure::CTzDeviceConfigure() { entries_.reserve(kUsualProbes); }

CTzDeviceConfigure::~CTzDeviceConfigure() = default;

std::vector<ProbeEntry*> CTzDeviceConfigure::GetConfiguredDevices() {
  std::vector<ProbeEntry*> entries;
  entries.reserve(entries_.size());
  for (ProbeEntry& entry : entries_) entries.push_back(&entry);
  return entries;
}

std::uint32_t CTzDeviceConfigure::LookUpState(const char* state_setting, std::uint16_t vendor_id,
                                              std::uint16_t product_id) {
  const std::string_view state = GetDeviceSetting(vendor_id, product_id, state_setting);
  if (state == "CONFIGURED") return kConfigured;
  if (state == "UNCONFIGURED") return kUnconfigured;
  return kNotHandled;
}

bool CTzDeviceConfigure::UpdateState(CTzUSBDevice& enumerator) {
  std::vector<ProbeEntry> kept;
  kept.reserve(std::max(entries_.size(), kUsualProbes));
  // Counted anew after each device: devices leave while the pass runs.
  for (unsigned i = 0; i < enumerator.DeviceCount(); ++i) {
    const auto index = static_cast<std::uint8_t>(i);
    if (!OpenPatiently(enumerator, index, "CTzDeviceConfigure::UpdateState")) continue;
    if (GetDeviceState(enumerator.VendorId(), enumerator.ProductId()) == kNotHandled) continue;
    const auto found = FindPath(enumerator.DevicePath());
    if (found == entries_.end()) continue;
    kept.push_back(std::move(*found));
    entries_.erase(found);
  }
  std::vector<ProbeEntry> removed = std::exchange(entries_, std::move(kept));
  for (ProbeEntry& entry : removed) CleanupRemovedDevice(std::move(entry));
  return !removed.empty();
}

bool CTzDeviceConfigure::RunConfigurationPass(CTzUSBDevice& enumerator, const Family& family) {
  bool added = false;
  for (unsigned i = 0; i < enumerator.DeviceCount(); ++i) {
    const auto index = static_cast<std::uint8_t>(i);
    if (!OpenPatiently(enumerator, index, family.pass_label)) continue;
    switch (GetDeviceState(enumerator.VendorId(), enumerator.ProductId())) {
      case kUnconfigured:
        LoadFirmwareAt(enumerator, index, family);
        break;
      case kConfigured:
        if (AddAt(enumerator, index, family)) added = true;
        break;
      default:
        break;
    }
  }
  return added;
}

// The new object opens its device by the index, which may name another device by now. Such an
// object is dropped: the event that moved the index brings the next pass.
std::unique_ptr<CTzDevice> CTzDeviceConfigure::MakeDeviceAt(const CTzUSBDevice& enumerator,
                                                            std::uint8_t index, bool set_timeouts,
                                                            const Family& family) {
  try {
    std::unique_ptr<CTzDevice> device = MakeDevice(index, set_timeouts);
    if (IsSameDevice(*device->GetUSBDevice(), enumerator)) return device;
  } catch (const std::runtime_error&) {  // NOLINT: it could not let go of the first device
  }
  Log(LOG_ERROR, family.pass_label, "Unable to open device %s. Skipping", enumerator.DevicePath());
  return nullptr;
}

// The device is forgotten whatever comes of it: the started firmware attaches it anew, under ids
// that the settings list as configured.
void CTzDeviceConfigure::LoadFirmwareAt(const CTzUSBDevice& enumerator, std::uint8_t index,
                                        const Family& family) {
  const std::unique_ptr<CTzDevice> device = MakeDeviceAt(enumerator, index, false, family);
  if (device == nullptr) return;
  const std::uint32_t result = LoadFirmware(*device);
  if (result == 0) return;
  Log(LOG_ERROR, family.firmware_label, "Error %x programming device %s, with file %s.", result,
      device->GetUSBDevice()->DevicePath(), GetKX7FileName(*device).c_str());
}

bool CTzDeviceConfigure::AddAt(const CTzUSBDevice& enumerator, std::uint8_t index,
                               const Family& family) {
  if (FindPath(enumerator.DevicePath()) != entries_.end()) return false;
  std::unique_ptr<CTzDevice> device = MakeDeviceAt(enumerator, index, true, family);
  if (device == nullptr || !PrepareConfigured(*device)) return false;
  AddConfiguredDevice(std::move(device));
  return true;
}

void CTzDeviceConfigure::AddConfiguredDevice(std::unique_ptr<CTzDevice> device) {
  const CTzUSBDevice& usb = *device->GetUSBDevice();
  Log(LOG_DEVICE, "CTzDeviceConfigure::AddConfiguredDevice", "Device %s available for use",
      usb.DevicePath());
  ProbeEntry& entry = entries_.emplace_back();
  entry.name = usb.SerialNumber();
  entry.path = usb.DevicePath();
  entry.device = std::move(device);
}

void CTzDeviceConfigure::CleanupRemovedDevice(ProbeEntry entry) {
  Log(LOG_DEVICE, "CTzDeviceConfigure::CleanupRemovedDevice", "Device %s removed",
      entry.path.c_str());
  for (TargetRecord& target : entry.targets) {
    if (target.sessionMutex == nullptr) continue;
    // Fails on another thread than the session's own, which changes nothing: only the handle's
    // value counts, and it stays open.
    ReleaseMutex(target.sessionMutex);
    target.sessionMutex = nullptr;
    target.ownerPID = 0;
  }
  entry.device.reset();
}

std::string CTzDeviceConfigure::GetKX7FileName(CTzDevice& device) {
  return GetDeviceSetting(device, "KX7");
}

std::vector<ProbeEntry>::iterator CTzDeviceConfigure::FindPath(std::string_view path) {
  return std::ranges::find(entries_, path, &ProbeEntry::path);
}
