#include "config/device_configure.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "config/device_setting.h"
#include "support/log.h"

namespace {

constexpr std::size_t kUsualProbes = 20;
constexpr int kOpenAttempts = 3;
constexpr DWORD kOpenPauseMs = 50;
// How often a pass is run at most, while devices come and go under it.
constexpr int kMaxPasses = 4;

bool Contains(const std::vector<std::string>& paths, std::string_view path) {
  return std::ranges::find(paths, path) != paths.end();
}

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

// The new object opens its device by the index, which may name another device by now, and a device
// may leave while it is being opened. What it did not tell the new object it does not tell later:
// one without its endpoints or its name would be of no use for as long as it is attached.
bool IsSameDevice(const CTzUSBDevice& usb, const CTzUSBDevice& enumerator) {
  const std::string_view path = usb.DevicePath();
  const std::wstring_view name = enumerator.SerialNumber();
  return usb.IsOpen() && path == enumerator.DevicePath() &&
         usb.VendorId() == enumerator.VendorId() && usb.ProductId() == enumerator.ProductId() &&
         usb.EndPointCount() == enumerator.EndPointCount() &&
         (name.empty() || name == usb.SerialNumber()) && Contains(enumerator.PresentPaths(), path);
}

// Opens the present devices one after the other and calls `look(index)` for each that opened. False
// when these were not the devices that are present at the end: when one leaves, those behind it
// move to another index, and one of them is passed over.
template <typename Look>
bool LookAtEach(CTzUSBDevice& enumerator, const char* label, Look look) {
  std::vector<std::string> met;
  for (unsigned i = 0; i < enumerator.DeviceCount(); ++i) {
    const auto index = static_cast<std::uint8_t>(i);
    const bool open = OpenPatiently(enumerator, index, label);
    met.emplace_back(enumerator.DevicePath());
    if (open) look(index);
  }
  return met == enumerator.PresentPaths();
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
  std::vector<std::string> found;
  bool settled = false;
  for (int round = 0; round < kMaxPasses && !settled; ++round) {
    found.clear();
    settled = LookAtEach(enumerator, "CTzDeviceConfigure::UpdateState", [&](std::uint8_t) {
      if (GetDeviceState(enumerator.VendorId(), enumerator.ProductId()) == kNotHandled) return;
      found.emplace_back(enumerator.DevicePath());
    });
  }
  // Some may not have been met yet. None is given up for that: more events are to follow.
  if (!settled) found = enumerator.PresentPaths();
  return KeepOnly(found);
}

// Keeps the entries of these paths, in their order, and disposes of the others.
bool CTzDeviceConfigure::KeepOnly(const std::vector<std::string>& paths) {
  std::vector<ProbeEntry> kept;
  kept.reserve(std::max(entries_.size(), kUsualProbes));
  for (const std::string& path : paths) {
    const auto found = FindPath(path);
    if (found == entries_.end() || found->left) continue;
    kept.push_back(std::move(*found));
    entries_.erase(found);
  }
  std::vector<ProbeEntry> removed = std::exchange(entries_, std::move(kept));
  for (ProbeEntry& entry : removed) CleanupRemovedDevice(std::move(entry));
  return !removed.empty();
}

bool CTzDeviceConfigure::RunConfigurationPass(CTzUSBDevice& enumerator, const Family& family) {
  bool added = false;
  // No device is loaded twice in one pass: fresh probes leave soon after they got their firmware,
  // which alone is a reason to look again.
  std::vector<std::string> done;
  bool settled = false;
  for (int round = 0; round < kMaxPasses && !settled; ++round) {
    bool dropped = false;
    settled = LookAtEach(enumerator, family.pass_label, [&](std::uint8_t index) {
      if (Contains(done, enumerator.DevicePath())) return;
      const Outcome outcome = ConfigureAt(enumerator, index, family);
      added |= outcome == Outcome::kAdded;
      dropped |= outcome == Outcome::kDropped;
      if (outcome != Outcome::kDropped) done.emplace_back(enumerator.DevicePath());
    });
    settled &= !dropped;
  }
  return added;
}

CTzDeviceConfigure::Outcome CTzDeviceConfigure::ConfigureAt(const CTzUSBDevice& enumerator,
                                                            std::uint8_t index,
                                                            const Family& family) {
  switch (GetDeviceState(enumerator.VendorId(), enumerator.ProductId())) {
    case kUnconfigured:
      return LoadFirmwareAt(enumerator, index, family);
    case kConfigured:
      return AddAt(enumerator, index, family);
    default:
      return Outcome::kDone;
  }
}

// Null when the object got another device than `enumerator` looked at, or none.
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
CTzDeviceConfigure::Outcome CTzDeviceConfigure::LoadFirmwareAt(const CTzUSBDevice& enumerator,
                                                               std::uint8_t index,
                                                               const Family& family) {
  const std::unique_ptr<CTzDevice> device = MakeDeviceAt(enumerator, index, false, family);
  if (!device) return Outcome::kDropped;
  const std::uint32_t result = LoadFirmware(*device);
  if (result != 0) {
    Log(LOG_ERROR, family.firmware_label, "Error %x programming device %s, with file %s.", result,
        device->GetUSBDevice()->DevicePath(), GetKX7FileName(*device).c_str());
  }
  return Outcome::kDone;
}

CTzDeviceConfigure::Outcome CTzDeviceConfigure::AddAt(const CTzUSBDevice& enumerator,
                                                      std::uint8_t index, const Family& family) {
  if (FindPath(enumerator.DevicePath()) != entries_.end()) return Outcome::kDone;
  std::unique_ptr<CTzDevice> device = MakeDeviceAt(enumerator, index, true, family);
  if (!device) return Outcome::kDropped;
  if (!PrepareConfigured(*device)) return Outcome::kDone;
  AddConfiguredDevice(std::move(device));
  return Outcome::kAdded;
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
    if (!target.sessionMutex) continue;
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
