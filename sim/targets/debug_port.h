// A debug port (ADIv5) with one memory access port, at the level of requests: registers, posted
// reads, sticky errors. The line protocols are in swd_target.h and jtag_debug_port.h.
#pragma once

#include <cstdint>

#include "sim/targets/memory_access_port.h"

namespace sim {

// Acknowledgements as the target drives them, first bit in bit 0. kNone: nobody drove the line,
// which is pulled high.
namespace swd_ack {
inline constexpr std::uint8_t kOk = 1;
inline constexpr std::uint8_t kWait = 2;
inline constexpr std::uint8_t kFault = 4;
inline constexpr std::uint8_t kNone = 7;
}  // namespace swd_ack

// Through which line the port is asked. Over JTAG its own registers answer whatever went wrong
// before.
enum class DebugLine { kSerialWire, kJtag };

class DebugPort {
 public:
  DebugPort(TargetMemory& memory, std::uint32_t idcode, std::uint32_t ap_idr,
            DebugLine line = DebugLine::kSerialWire)
      : idcode_(idcode), line_(line), access_port_(memory, ap_idr) {
    access_port_.Reset();
  }

  void PowerUp();
  // What a line reset does to the port's registers: only the bank selection goes back.
  void LineReset() { select_ = 0; }

  // `address` is A[3:2] in place: 0x0, 0x4, 0x8 or 0xC. Both return the acknowledgement.
  std::uint8_t Read(bool access_port, std::uint8_t address, std::uint32_t& value);
  std::uint8_t Write(bool access_port, std::uint8_t address, std::uint32_t value);

  // The result of the last read of an access port.
  std::uint32_t posted() const { return posted_; }
  // Clears the sticky flags that are set in `flags`, which has them where the port's status does.
  void ClearSticky(std::uint32_t flags);

 private:
  bool IsFaulting() const;
  bool Refuses() const { return line_ == DebugLine::kSerialWire && IsFaulting(); }
  bool CanReachAccessPort();
  std::uint8_t AccessPortRegister(std::uint8_t address) const;
  std::uint8_t ReadAccessPort(std::uint8_t address, std::uint32_t& value);
  std::uint8_t WriteAccessPort(std::uint8_t address, std::uint32_t value);
  std::uint32_t ControlStatus() const;
  void Abort(std::uint32_t value);

  std::uint32_t idcode_;
  DebugLine line_;
  std::uint32_t control_ = 0;  // the written bits of CTRL/STAT
  std::uint32_t sticky_ = 0;
  std::uint32_t select_ = 0;
  std::uint32_t posted_ = 0;     // result of the last access port read
  std::uint32_t last_read_ = 0;  // what RESEND gives again
  MemoryAccessPort access_port_;
};

}  // namespace sim
