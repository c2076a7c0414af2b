// A probe's whole JTAG chain, held for a tool that keeps count of the TAP's state.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "client/numbers.h"
#include "client/output.h"
#include "client/service_client.h"

namespace client {

// Nobody else changes the probe's mode or clock while it is held. Any program may still look for
// targets (EnumerateDevices), which moves the TAPs. So that this shows, the target that is held is
// none that a scan of the chain finds: it is the placeholder of the probe's own serial line. The
// scan then finds other targets, and ends the session.
class ServedChain {
 public:
  ServedChain(ServiceClient& service, std::string probe, TzJtagClock clock)
      : service_(service), probe_(std::move(probe)), clock_(clock) {}
  ~ServedChain();
  ServedChain(const ServedChain&) = delete;
  ServedChain& operator=(const ServedChain&) = delete;

  // Holds the chain, in JTAG mode and with the clock set; anew when it was lost.
  Result Open();

  // A packet of cycles and its TDO bits. Not SUCCESS: the chain is lost, or stands anywhere.
  TzErrorCode Clock(std::span<const std::uint8_t> packet, Bytes& tdo);

  // The outcome of the last packet.
  TzErrorCode error() const { return error_; }

  // The fastest clock whose period is at least this long, or the slowest.
  void SetPeriod(std::uint32_t period_ns);
  // Sets it unless it is set. False: error() tells why. TCK stands still meanwhile: the probe
  // leaves its mode and comes back to it.
  bool SetClock(TzJtagClock clock);
  TzJtagClock clock() const { return clock_; }
  TzErrorCode DriveReset(bool active) { return service_.ToggleXres(probe_, active); }

  // Nanoseconds.
  std::uint32_t period_ns() const;

 private:
  ServiceClient& service_;
  const std::string probe_;
  TzJtagClock clock_;
  std::int64_t handle_ = 0;
  TzErrorCode error_ = TzErrorCode::SUCCESS;
};

}  // namespace client
