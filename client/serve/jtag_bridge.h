// JTAG cycles one by one, as other tools count them, over a probe that clocks them by the packet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "client/serve/bit_queue.h"
#include "client/serve/tap_state.h"

namespace client {

// The probe clocks whole groups of cycles (eight, so that no packet has an odd byte), and a tool
// may stop after any cycle and wait for TDO. Behind each packet the chain waits in Reset, Idle or
// Pause; what fills up the group must not change what the tool sees:
//
//   the tool's cycles end in          what the probe gets            the next run begins with
//   ─────────────────────────         ───────────────────            ────────────────────────
//   Reset, Idle, Pause                cycles that stay there         nothing
//
//   Shift   ─0→ Shift                 the last TMS 0 becomes 1:
//                                     Shift ─1→ Exit1 ─0→ Pause …    1 0: Pause → Exit2 → Shift
//
//   Exit1                             Exit1 ─0→ Pause …              1: Pause → Exit2, if the tool
//                                                                    goes on to Update; else
//                                                                    nothing
//
//   elsewhere (Select, Capture,       what comes before, up to the   the rest, which is answered
//   Update, Exit2, Exit2 → Shift)     last cycle that ends in one    already: TDO floats there
//                                     of the states above; the rest
//                                     (a few cycles) is held back
//
// Registers are captured, shifted and updated exactly as often and with the bits as the tool clocks
// them. Only Idle and Pause may last longer.
//
// A scan by another program leaves the chain in Shift-DR. So each packet begins with a group that
// stays where the chain waits: from Shift-DR it goes back to Reset, and in Idle and Pause its
// pattern comes back when there is a bypass register instead. (With an id in the chain the scan
// finds what ends the session.)
class JtagBridge {
 public:
  // Clocks a packet (four cycles a byte, TMS in the high nibble and TDI in the low one, the first
  // cycle in the lowest bit of each) and gives its TDO bits. False: it failed.
  using Send = std::function<bool(std::span<const std::uint8_t> packet, Bytes& tdo)>;

  explicit JtagBridge(Send send) : send_(std::move(send)) {}

  // Takes the chain, wherever it is, into Test-Logic-Reset. Cycles that wait are forgotten.
  [[nodiscard]] bool Reset();

  // Queues cycles; nothing is clocked.
  void Add(bool tms, bool tdi);
  void Add(std::span<const std::uint8_t> tms, std::span<const std::uint8_t> tdi,
           std::size_t cycles);

  // So many cycles of a run always go in one packet; more go in several.
  static constexpr std::size_t kMaxInAPacket = 16352;

  // Cycles queued since the last run.
  std::size_t queued() const { return tms_.size() - answered_; }

  // Clocks them and gives a TDO bit for each. Bits of cycles outside of the Shift states, where TDO
  // floats, mean nothing. False: a packet failed, or somebody else has moved the chain, and where
  // it stands is unknown until Reset.
  [[nodiscard]] bool Run(Bytes& tdo);

  // Whether somebody else has moved it.
  bool was_moved() const { return was_moved_; }

  // Where the TAP stands, to the tool, after all queued cycles.
  TapState state() const;

 private:
  // Where the queue leads to.
  struct Walk {
    TapState end;
    std::size_t rests;  // one past the last cycle behind which the chain can wait; 0: there is none
    TapState rest;      // the tool's state then
  };

  Walk WalkThrough() const;
  // Clocks a queue that fits into a packet.
  bool RunQueue(Bytes& tdo);
  bool Clock(Bytes& replies);
  void LeavePause(bool tms);

  const Send send_;
  TapState state_ = TapState::kReset;  // of the chain, which waits: Reset, Idle or Pause
  bool was_moved_ = false;
  bool parked_in_exit1_ = false;  // the chain pauses, and to the tool it is in Exit1
  BitQueue tms_;
  BitQueue tdi_;
  std::size_t answered_ = 0;  // at the front: what brings the chain back, and what was held
};

}  // namespace client
