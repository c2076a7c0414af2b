#include "sim/targets/itm_stream.h"

#include <string>

namespace sim {
namespace {

constexpr std::uint32_t kRoundsPerSynchronisation = 8;
constexpr std::uint8_t kTextPort = 0;
constexpr std::uint8_t kWordPort = 1;
constexpr std::uint8_t kOneByte = 1;  // sizes in the low bits of a source packet's header
constexpr std::uint8_t kFourBytes = 3;
constexpr std::uint8_t kLocalTimestamp = 0xC0;  // synchronous to the packets before it
constexpr std::uint8_t kTicksPerRound = 10;

constexpr std::uint8_t Header(std::uint8_t port, std::uint8_t size) {
  return static_cast<std::uint8_t>(port << 3 | size);
}

}  // namespace

std::vector<std::uint8_t> ItmStream::Next() {
  if (packets_.empty()) WriteRound();
  std::vector<std::uint8_t> packet = std::move(packets_.front());
  packets_.pop_front();
  return packet;
}

void ItmStream::WriteRound() {
  if (round_ % kRoundsPerSynchronisation == 0) packets_.push_back({0, 0, 0, 0, 0, 0x80});
  for (const char c : "tick " + std::to_string(round_) + "\n") {
    packets_.push_back({Header(kTextPort, kOneByte), static_cast<std::uint8_t>(c)});
  }
  const auto byte = [this](int shift) { return static_cast<std::uint8_t>(round_ >> shift); };
  packets_.push_back({Header(kWordPort, kFourBytes), byte(0), byte(8), byte(16), byte(24)});
  packets_.push_back({kLocalTimestamp, kTicksPerRound});
  ++round_;
}

}  // namespace sim
