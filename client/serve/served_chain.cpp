#include "client/serve/served_chain.h"

#include <algorithm>

#include "client/jtag_clocks.h"
#include "client/probe_advice.h"

namespace client {

namespace {

std::uint32_t PeriodOf(const JtagClock& clock) {
  return (1000000000u + clock.hertz - 1) / clock.hertz;
}

}  // namespace

ServedChain::~ServedChain() {
  if (handle_ == 0) return;
  service_.ReleaseDevice(handle_);
  // Others find the chain's targets in the list again.
  std::vector<std::string> targets;
  service_.EnumerateDevices(probe_, targets);
}

Result ServedChain::Open() {
  // Frees what a process that has died still held.
  std::vector<std::string> names;
  Result result = Outcome(service_.EnumerateWirefoxs(names));
  if (result.error != TzErrorCode::SUCCESS) return result;
  result.probe = probe_;
  // The clock comes before the first cycle: setting it takes the probe out of its mode and back.
  std::vector<std::string> targets;
  const auto step = [&](TzErrorCode error) {
    result.error = error;
    return error == TzErrorCode::SUCCESS;
  };
  if (!step(service_.SetMode(probe_, TzTransferMode::VSER_INT, false)) ||
      !step(service_.EnumerateDevices(probe_, targets)) ||
      !step(service_.AcquireDevice(probe_, 0, handle_)) ||
      !step(service_.SetMode(probe_, TzTransferMode::JTAG, false)) ||
      // It may still drive the line.
      !step(service_.ToggleXres(probe_, false)) || !step(service_.SetJtagClock(probe_, clock_))) {
    if (result.error == TzErrorCode::INVALID_PARAM) result.advice = NoSuchProbe(probe_, names);
  }
  return result;
}

void ServedChain::SetPeriod(std::uint32_t period_ns) {
  const auto clocks = JtagClocks();
  const auto fits = [&](const JtagClock& clock) { return PeriodOf(clock) >= period_ns; };
  const auto found = std::ranges::find_if(clocks, fits);
  SetClock(found == clocks.end() ? clocks.back().code : found->code);
}

bool ServedChain::SetClock(TzJtagClock clock) {
  if (clock == clock_) return true;
  error_ = service_.SetJtagClock(probe_, clock);
  if (error_ == TzErrorCode::SUCCESS) clock_ = clock;
  return error_ == TzErrorCode::SUCCESS;
}

std::uint32_t ServedChain::period_ns() const {
  const std::uint32_t hertz = HertzOf(clock_);
  // A code that only the probe knows.
  return hertz == 0 ? 0 : PeriodOf({clock_, hertz});
}

TzErrorCode ServedChain::Clock(std::span<const std::uint8_t> packet, Bytes& tdo) {
  error_ = service_.SendJtagPacket(packet, true, handle_, tdo);
  return error_;
}

}  // namespace client
