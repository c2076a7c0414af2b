#include "sim/fault.h"

#include <algorithm>
#include <array>
#include <utility>

namespace sim {
namespace {

constexpr std::array<std::pair<FaultKind, const char*>, 8> kNames = {{
    {FaultKind::kStall, "stall"},
    {FaultKind::kSilent, "silent"},
    {FaultKind::kShortReply, "short-reply"},
    {FaultKind::kWrongLength, "wrong-length"},
    {FaultKind::kDelay, "delay"},
    {FaultKind::kErrorStatus, "error-status"},
    {FaultKind::kUnplug, "unplug"},
    {FaultKind::kCorruptDescriptor, "corrupt-descriptor"},
}};

constexpr std::uint8_t kGetDescriptor = 0x06;
constexpr std::uint8_t kTypeMask = 0x60;
constexpr std::uint8_t kVendorType = 0x40;

bool IsIn(const probe_driver::UsbTransfer& transfer) {
  return ((transfer.endpoint != 0 ? transfer.endpoint : transfer.setup.request_type) & 0x80) != 0;
}

bool Fits(const Fault& fault, const probe_driver::UsbTransfer& transfer) {
  if (fault.endpoint != transfer.endpoint) return false;
  const bool needs_reply =
      fault.kind == FaultKind::kShortReply || fault.kind == FaultKind::kWrongLength;
  if (needs_reply && !IsIn(transfer)) return false;
  if (transfer.endpoint != 0) return fault.kind != FaultKind::kCorruptDescriptor;
  const bool standard = (transfer.setup.request_type & kTypeMask) == 0;
  if (fault.kind == FaultKind::kCorruptDescriptor) {
    return standard && transfer.setup.request == kGetDescriptor &&
           (!fault.request || *fault.request == transfer.setup.request);
  }
  if (fault.kind == FaultKind::kErrorStatus &&
      (transfer.setup.request_type & kTypeMask) != kVendorType) {
    return false;
  }
  return !fault.request || *fault.request == transfer.setup.request;
}

}  // namespace

std::optional<FaultKind> FaultByName(const std::string& name) {
  for (const auto& [kind, known] : kNames) {
    if (name == known) return kind;
  }
  return std::nullopt;
}

void FaultList::Arm(const Fault& fault) {
  if (fault.count != 0) faults_.push_back(fault);
}

std::optional<Fault> FaultList::Take(const probe_driver::UsbTransfer& transfer) {
  const auto it = std::find_if(faults_.begin(), faults_.end(),
                               [&](const Fault& fault) { return Fits(fault, transfer); });
  if (it == faults_.end()) return std::nullopt;
  const Fault taken = *it;
  if (--it->count == 0) faults_.erase(it);
  return taken;
}

}  // namespace sim
