#include "client/serve/served_chain.h"

#include <algorithm>
#include <iterator>

#include "client/probe_advice.h"

namespace client {

namespace {

struct Frequency {
  TzJtagClock code;
  std::uint32_t hertz;
};

// One code for each frequency, the fastest first.
constexpr Frequency kFrequencies[] = {
    {TzJtagClock::FREQ_A_48_0, 48000000}, {TzJtagClock::FREQ_A_24_0, 24000000},
    {TzJtagClock::FREQ_A_16_0, 16000000}, {TzJtagClock::FREQ_A_12_0, 12000000},
    {TzJtagClock::FREQ_A_08_0, 8000000},  {TzJtagClock::FREQ_A_06_0, 6000000},
    {TzJtagClock::FREQ_B_04_0, 4000000},  {TzJtagClock::FREQ_A_03_2, 3200000},
    {TzJtagClock::FREQ_A_03_0, 3000000},  {TzJtagClock::FREQ_A_01_6, 1600000},
    {TzJtagClock::FREQ_A_01_5, 1500000},  {TzJtagClock::FREQ_B_00_8, 800000},
    {TzJtagClock::FREQ_C_00_4, 400000},   {TzJtagClock::FREQ_C_00_2, 200000},
};

std::uint32_t PeriodOf(const Frequency& clock) {
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
      !step(service_.SetJtagClock(probe_, clock_))) {
    if (result.error == TzErrorCode::INVALID_PARAM) result.advice = NoSuchProbe(probe_);
  }
  return result;
}

void ServedChain::SetPeriod(std::uint32_t period_ns) {
  const auto fits = [&](const Frequency& clock) { return PeriodOf(clock) >= period_ns; };
  const auto* const found = std::ranges::find_if(kFrequencies, fits);
  const TzJtagClock clock = found == std::end(kFrequencies) ? std::prev(found)->code : found->code;
  if (clock == clock_) return;
  error_ = service_.SetJtagClock(probe_, clock);
  if (error_ == TzErrorCode::SUCCESS) clock_ = clock;
}

std::uint32_t ServedChain::period_ns() const {
  const auto* const found = std::ranges::find(kFrequencies, clock_, &Frequency::code);
  // A code that only the probe knows.
  return found == std::end(kFrequencies) ? 0 : PeriodOf(*found);
}

TzErrorCode ServedChain::Clock(std::span<const std::uint8_t> packet, Bytes& tdo) {
  error_ = service_.SendJtagPacket(packet, true, handle_, tdo);
  return error_;
}

}  // namespace client
