#include "client/activity.h"

#include <algorithm>

#include "client/text.h"

namespace client {

namespace {

using activity::Load;

// A change takes less than a millisecond, unless its process is kept from running.
constexpr int kAttempts = 200;
constexpr DWORD kPauseMs = 1;

// All lengths are looked at: the file may be in the middle of a change.
std::string NameAt(const std::uint8_t* record) {
  std::wstring name;
  for (std::size_t i = 0; i < activity::kNameUnits; ++i) {
    const auto unit = Load<std::uint16_t>(record + activity::kNameAt + 2 * i);
    if (unit == 0) break;
    name += static_cast<wchar_t>(unit);
  }
  return Utf8FromWide(name);
}

ProbeActivity ProbeAt(const std::uint8_t* record) {
  ProbeActivity probe;
  probe.name = NameAt(record);
  probe.mode = Load<std::uint32_t>(record + activity::kModeAt);
  const auto voltage = Load<std::uint32_t>(record + activity::kVoltageAt);
  if (voltage != activity::kNoVoltage) probe.voltage = voltage;
  probe.calls = Load<std::uint64_t>(record + activity::kCallsAt);
  probe.bytes = Load<std::uint64_t>(record + activity::kBytesAt);
  const std::size_t count = Load<std::uint32_t>(record + activity::kTargetCountAt);
  probe.targets.resize(std::min(count, activity::kMaxTargets));
  const std::uint8_t* place = record + activity::kTargetsAt;
  for (TargetActivity& target : probe.targets) {
    target = {.id = Load<std::uint32_t>(place + activity::kTargetIdAt),
              .held = Load<std::uint32_t>(place + activity::kTargetHeldAt) != 0,
              .pid = Load<std::uint32_t>(place + activity::kTargetOwnerAt)};
    place += activity::kTargetBytes;
  }
  return probe;
}

TableActivity TableIn(const std::uint8_t* bytes) {
  const std::size_t count = Load<std::uint32_t>(bytes + activity::kProbeCountAt);
  TableActivity table;
  for (std::size_t i = 0; i < std::min(count, activity::kMaxProbes); ++i) {
    table.push_back(ProbeAt(bytes + activity::kProbesAt + i * activity::kProbeBytes));
  }
  return table;
}

}  // namespace

bool IsHeld(const ProbeActivity& probe) {
  return std::ranges::any_of(probe.targets, &TargetActivity::held);
}

const ProbeActivity* FindProbe(const TableActivity& table, const std::string& name) {
  const auto found = std::ranges::find(table, name, &ProbeActivity::name);
  return found == table.end() ? nullptr : &*found;
}

std::optional<TableActivity> ReadActivity(const activity::View& view) {
  for (int attempt = 0; view.IsAlive() && attempt < kAttempts; ++attempt) {
    if (attempt > 0) Sleep(kPauseMs);
    const std::uint8_t* const sequence = view.bytes() + activity::kSequenceAt;
    const auto before = Load<std::uint32_t>(sequence);
    TableActivity table = TableIn(view.bytes());
    if (before % 2 == 0 && Load<std::uint32_t>(sequence) == before) return table;
  }
  return std::nullopt;
}

std::wstring ActivityPath(ServiceClient& service) {
  std::string location;
  service.GetDevicesChangedLocation(location);
  return location.empty() ? std::wstring() : WideFromUtf8(location) + activity::kFileSuffix;
}

std::optional<TableActivity> AskActivity(ServiceClient& service) {
  return ReadActivity(activity::View(ActivityPath(service).c_str()));
}

}  // namespace client
