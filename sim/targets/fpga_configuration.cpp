#include "sim/targets/fpga_configuration.h"

namespace sim {

namespace {

constexpr std::uint32_t kSynchronisation = 0xAA995566;
constexpr std::uint32_t kCrcPolynomial = 0xEDB88320;  // lowest bit first

}  // namespace

void FpgaConfiguration::Clear() {
  last_ = 0;
  bits_ = 0;
  stream_.clear();
  done_ = false;
}

void FpgaConfiguration::Take(bool bit) {
  if (bits_ == 0) {
    last_ = last_ << 1 | (bit ? 1 : 0);
    if (last_ != kSynchronisation) return;
    bits_ = 32;
    stream_ = {0xAA, 0x99, 0x55, 0x66};
    return;
  }
  if (bits_ % 8 == 0) stream_.push_back(0);
  if (bit) stream_.back() |= static_cast<std::uint8_t>(0x80u >> bits_ % 8);
  ++bits_;
}

std::uint32_t FpgaConfiguration::Crc() const {
  std::uint32_t crc = ~0u;
  for (const std::uint8_t byte : stream_) {
    crc ^= byte;
    for (int i = 0; i < 8; ++i) crc = crc >> 1 ^ ((crc & 1) != 0 ? kCrcPolynomial : 0);
  }
  return ~crc;
}

}  // namespace sim
