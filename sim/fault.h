// A fault that can be armed on a simulated probe, and the list of those that wait for their
// transfer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/probe_driver/usb_bus.h"

namespace sim {

enum class FaultKind {
  kStall,              // refused; a bulk endpoint stays halted until its pipe is reset
  kSilent,             // never answered: pending until it is cancelled or the probe leaves
  kShortReply,         // an IN transfer brings at most `value` bytes
  kWrongLength,        // an IN transfer brings `value` bytes too many (0 counts as 1)
  kDelay,              // answered `value` milliseconds later
  kErrorStatus,        // a vendor request is refused with reply byte 0 = `value` (0 counts as 1); a
                       // bulk transfer ends with kError
  kUnplug,             // the probe leaves when half of the bytes have moved
  kCorruptDescriptor,  // a descriptor comes with bytes changed; `value` seeds the choice
};

struct Fault {
  FaultKind kind = FaultKind::kStall;
  std::uint8_t endpoint = 0;              // address; 0 is the control endpoint
  std::optional<std::uint8_t> request{};  // control endpoint only: bRequest; none: any request
  std::uint32_t count = 1;                // transfers that it hits before it is spent
  std::uint32_t value = 0;                // see FaultKind
};

// By the names of the command line: "stall", "silent", "short-reply", "wrong-length", "delay",
// "error-status", "unplug", "corrupt-descriptor".
std::optional<FaultKind> FaultByName(const std::string& name);

// The armed faults of one probe, oldest first. Not thread-safe.
class FaultList {
 public:
  void Arm(const Fault& fault);
  void Clear() { faults_.clear(); }
  bool empty() const { return faults_.empty(); }

  // The oldest armed fault that fits the transfer, counted down; none when nothing fits.
  std::optional<Fault> Take(const probe_driver::UsbTransfer& transfer);

 private:
  std::vector<Fault> faults_;
};

}  // namespace sim
