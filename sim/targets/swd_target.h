// A target on the serial-wire line: line resets and switch sequences bit by bit, requests as
// packets, and the acquisition in test mode.
#pragma once

#include <cstdint>

#include "sim/description/description.h"
#include "sim/targets/debug_port.h"
#include "sim/targets/target_memory.h"

namespace sim {

struct SwdReply {
  std::uint8_t ack = swd_ack::kNone;
  std::uint32_t data = 0;  // reads that were acknowledged
};

class SwdTarget {
 public:
  explicit SwdTarget(const SwdDescription& description);
  SwdTarget(const SwdTarget&) = delete;
  SwdTarget& operator=(const SwdTarget&) = delete;

  const SwdDescription& description() const { return description_; }
  TargetMemory& memory() { return memory_; }

  // Power comes back: memory is cleared, and the port listens for JTAG until it is switched.
  void PowerUp();
  // The reset line was driven: a part that was caught leaves test mode.
  void Restart();

  // One cycle in which the probe drives the line outside of a request.
  void Clock(bool level);

  // One request with the idle cycles before it. `data` is used by writes. A target that is not in
  // serial-wire mode, has lost the protocol, or was given a malformed header does not answer.
  SwdReply Request(std::uint8_t header, std::uint32_t data);

  // One attempt to catch the part: a reset (by the reset line, or of its power), a line reset and
  // power for the port; then the caller sends its requests. The first reading of the
  // identification decides: the part answers from then on, or not at all. `attempt` counts from 1.
  void BeginAcquire(bool by_reset_line, std::uint32_t attempt);
  bool caught() const { return !acquiring_ && !muted_; }

 private:
  enum class Link {
    kJtag,   // waits for the switch to serial wire
    kReset,  // after a line reset: the identification must be read first
    kReady,
    kLost,  // protocol error: only a line reset helps
  };

  void ClockHigh();
  SwdReply Execute(std::uint8_t header, std::uint32_t data);
  bool EndAcquire();
  void NoteKeyWrite(std::uint8_t header, std::uint32_t data);

  SwdDescription description_;
  TargetMemory memory_;
  DebugPort port_;
  Link link_ = Link::kJtag;
  unsigned ones_ = 0;          // cycles high in a row, up to now
  std::uint16_t pattern_ = 0;  // the cycles since a line reset ended, the last one in bit 15
  unsigned collected_ = 0;     // how many of them; 0: not collecting

  std::uint32_t waits_ = 0;  // still to be answered before the next access is done
  bool muted_ = false;       // not in test mode although that is required
  bool acquiring_ = false;   // between a reset for acquisition and the identification
  bool catchable_ = false;   // that reset was of the right kind, and late enough
  std::uint32_t written_address_ = 0;
  bool key_written_ = false;
};

}  // namespace sim
