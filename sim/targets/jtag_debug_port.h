// A debug port behind a TAP (ADIv5 JTAG-DP): scans of 35 bits that read and write its registers.
#pragma once

#include <cstdint>

#include "sim/targets/debug_port.h"

namespace sim {

class JtagDebugPort {
 public:
  static constexpr unsigned kScanBits = 35;

  // `memory` outlives it. After each access to an access port, `waits` scans are answered WAIT.
  JtagDebugPort(TargetMemory& memory, std::uint32_t ap_idr, std::uint32_t waits)
      : port_(memory, 0, ap_idr, DebugLine::kJtag), waits_(waits) {}

  // The acknowledgement in bits 0 to 2 and what the last read brought in bits 3 to 34.
  std::uint64_t Capture();
  // RnW in bit 0, the register's address in bits 1 and 2, data above.
  void Update(bool access_port, std::uint64_t scan);
  // A scan of the abort register: DAPABORT ends what is still under way.
  void Abort(std::uint64_t scan);

 private:
  std::uint32_t Read(bool access_port, std::uint8_t address);
  void Write(bool access_port, std::uint8_t address, std::uint32_t value);

  DebugPort port_;
  const std::uint32_t waits_;
  std::uint32_t waits_left_ = 0;
  bool refused_ = false;  // the last capture answered WAIT: its scan does nothing
  std::uint32_t result_ = 0;
};

}  // namespace sim
