// Plays a program through a bridge, and compares what comes back.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "client/serve/jtag_bridge.h"
#include "client/svf/svf_program.h"

namespace client {

// What a program asks of the probe besides cycles. False: the play cannot go on.
struct SvfControls {
  // Gives the hertz that the clock then has; 0: not known.
  std::function<bool(std::optional<double> most_hertz, std::uint32_t& hertz)> set_clock;
  // Comes back when the time is over. Nothing is clocked meanwhile.
  std::function<bool(double seconds)> wait;
  // The play has come to that line; may be empty.
  std::function<void(std::size_t line)> come_to{};
};

// A scan that did not bring what it should have.
struct SvfMismatch {
  std::size_t line;
  SvfCheck check;
  Bytes actual;

  // For people: those bits that the statement speaks of, or the first 64 of many that differ.
  std::string Text() const;
};

class SvfPlayer {
 public:
  // Both outlive the player. The chain stands in Test-Logic-Reset, and the clock has `hertz`.
  SvfPlayer(JtagBridge& bridge, const SvfControls& controls, std::uint32_t hertz)
      : bridge_(bridge), controls_(controls), hertz_(hertz) {}

  // Cycles are gathered until there are enough for a packet, and a scan's bits are compared when
  // they come. So some of what follows a scan that fails has been clocked as well. False: a scan
  // has failed, when there is a mismatch, or else a packet or a control.
  [[nodiscard]] bool Play(const SvfProgram& program);

  const std::optional<SvfMismatch>& mismatch() const { return mismatch_; }
  // Of the statement that was played last, or began to be.
  std::size_t line() const { return line_; }
  // Scans whose bits were compared.
  std::size_t checked() const { return checked_; }

 private:
  struct Awaited {
    std::size_t line;
    std::size_t first;  // of the queue
    const SvfScan* scan;
  };

  bool Take(const SvfScan& scan);
  bool Take(const SvfMove& move);
  bool Take(const SvfStay& stay);
  bool Take(const SvfFrequency& frequency);

  void MoveTo(TapState state);
  // Stays where the chain is.
  bool Idle(std::uint64_t cycles);
  // Clocks all that is gathered.
  bool Flush();
  bool Matches(const Awaited& awaited, const Bytes& tdo);

  JtagBridge& bridge_;
  const SvfControls& controls_;
  std::uint32_t hertz_;
  TapState state_ = TapState::kReset;  // behind all cycles
  std::vector<Awaited> awaited_;
  std::optional<SvfMismatch> mismatch_;
  std::size_t line_ = 0;
  std::size_t checked_ = 0;
};

}  // namespace client
