#include "config/activity_file.h"

#include <algorithm>
#include <cwchar>
#include <string>
#include <utility>

#include "base/activity_view.h"
#include "support/handle.h"
#include "usb/usb_device.h"

namespace {

using activity::Load;
using activity::Store;

// Empty until there is something to show, and at the end. Never destroyed.
std::wstring& FilePath() {
  static auto& path = *new std::wstring;
  return path;
}

// What it points to stays mapped until the process ends: probes' transfers count into it.
std::uint8_t* view = nullptr;
// Takes the file away when it is closed, at the latest with the process on hosts that do that.
HANDLE file = INVALID_HANDLE_VALUE;

// A change of the file, if there is one: nothing is written, and no reader disturbed, as long as
// all is as it was.
class Change {
 public:
  Change() = default;
  ~Change() {
    if (is_open_) Store(view + activity::kSequenceAt, sequence_ + 2);
  }
  Change(const Change&) = delete;
  Change& operator=(const Change&) = delete;

  template <typename Number>
  void Put(std::uint8_t* place, Number value) {
    if (Load<Number>(place) == value) return;
    if (!is_open_) Open();
    Store(place, value);
  }

 private:
  void Open() {
    is_open_ = true;
    sequence_ = Load<std::uint32_t>(view + activity::kSequenceAt);
    Store(view + activity::kSequenceAt, sequence_ + 1);
  }

  bool is_open_ = false;
  std::uint32_t sequence_ = 0;
};

// The name as a file of every host has it; what does not fit is cut.
void PutName(Change& change, std::uint8_t* place, const wchar_t* name) {
  const std::size_t length =
      name ? std::min(std::wcslen(name), activity::kNameUnits - 1) : std::size_t{0};
  for (std::size_t i = 0; i <= length; ++i) {
    change.Put(place + 2 * i, static_cast<std::uint16_t>(i < length ? name[i] : 0));
  }
}

void PutState(Change& change, const ProbeEntry& probe) {
  std::uint8_t* const record = probe.activityRecord;
  change.Put(record + activity::kModeAt, probe.mode);
  change.Put(record + activity::kVoltageAt, probe.voltage.value_or(activity::kNoVoltage));
  change.Put(record + activity::kTargetCountAt, static_cast<std::uint32_t>(probe.targets.size()));
  std::uint8_t* place = record + activity::kTargetsAt;
  const std::size_t count = std::min(probe.targets.size(), activity::kMaxTargets);
  for (std::size_t i = 0; i < count; ++i, place += activity::kTargetBytes) {
    const TargetRecord& target = probe.targets[i];
    change.Put(place + activity::kTargetIdAt, target.targetId);
    change.Put(place + activity::kTargetOwnerAt, target.ownerPID);
    change.Put(place + activity::kTargetHeldAt, std::uint32_t{target.sessionMutex ? 1U : 0U});
  }
}

// Gives the probe the record, or none. The counters come along: they are the probe's.
void Place(Change& change, ProbeEntry& probe, std::uint8_t* record) {
  probe.activityRecord = record;
  CTzUSBDevice* const device = probe.device ? probe.device->GetUSBDevice() : nullptr;
  if (record) {
    PutName(change, record + activity::kNameAt, probe.name);
    change.Put(record + activity::kCallsAt, probe.calls);
    change.Put(record + activity::kBytesAt, device ? device->BytesMoved() : 0);
    PutState(change, probe);
  }
  auto* const bytes =
      reinterpret_cast<std::uint64_t*>(record ? record + activity::kBytesAt : nullptr);
  if (device) device->ShowBytesMoved(bytes);
}

// A file of a service that was killed may still be there; no other is taken away.
bool ClearTheWay(const std::wstring& path) {
  return !activity::View(path.c_str()).IsAlive() && DeleteFileW(path.c_str());
}

HANDLE MakeFile(const std::wstring& path) {
  return CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                     FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_NEW,
                     FILE_FLAG_DELETE_ON_CLOSE, nullptr);
}

void WriteHeader() {
  const std::uint32_t pid = GetCurrentProcessId();
  Store(view + activity::kServicePidAt, pid);
  Store(view + activity::kServiceStartAt, StartOfProcess(pid).value_or(0));
  Store(view + activity::kVersionAt, activity::kVersion);
  Store(view + activity::kMagicAt, activity::kMagic);
}

void OpenActivityFile() {
  FileHandle made(MakeFile(FilePath()));
  if (!made && ClearTheWay(FilePath())) made.Reset(MakeFile(FilePath()));
  if (!made) return;
  const KernelHandle mapping(CreateFileMappingW(made.Get(), nullptr, PAGE_READWRITE, 0,
                                                DWORD{activity::kFileBytes}, nullptr));
  if (!mapping) return;
  view = static_cast<std::uint8_t*>(
      MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, activity::kFileBytes));
  if (!view) return;
  file = made.Release();
  WriteHeader();
}

}  // namespace

void StartActivityFile(const wchar_t* devices_changed_path) {
  if (!devices_changed_path || !FilePath().empty()) return;
  FilePath() = std::wstring(devices_changed_path) + activity::kFileSuffix;
  ShowDeviceTable();
}

void ShowDeviceTable() {
  if (FilePath().empty()) return;
  if (!view) OpenActivityFile();
  if (!view) return;
  Change change;
  std::size_t count = 0;
  for (ProbeEntry* probe : ListProbeEntries()) {
    const std::size_t place = activity::kProbesAt + count * activity::kProbeBytes;
    Place(change, *probe, count < activity::kMaxProbes ? view + place : nullptr);
    ++count;
  }
  change.Put(view + activity::kProbeCountAt, static_cast<std::uint32_t>(count));
}

void ShowProbe(const ProbeEntry& probe) {
  if (!view || !probe.activityRecord) return;
  Store(probe.activityRecord + activity::kCallsAt, probe.calls);
  Change change;
  PutState(change, probe);
}

void EndActivityFile() {
  FilePath().clear();
  if (!view) return;
  Store(std::exchange(view, nullptr) + activity::kServicePidAt, std::uint32_t{0});
  CloseHandle(std::exchange(file, INVALID_HANDLE_VALUE));
}
