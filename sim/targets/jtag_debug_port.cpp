#include "sim/targets/jtag_debug_port.h"

namespace sim {

namespace {

constexpr std::uint64_t kAckWait = 0b001;
constexpr std::uint64_t kAckOkOrFault = 0b010;

constexpr std::uint8_t kReserved = 0x0;
constexpr std::uint8_t kControlStatus = 0x4;
constexpr std::uint8_t kReadBuffer = 0xC;

constexpr std::uint64_t kEndAccess = std::uint64_t{1} << 3;  // bit 0 of the register

}  // namespace

std::uint64_t JtagDebugPort::Capture() {
  refused_ = waits_left_ > 0;
  if (refused_) {
    --waits_left_;
    return kAckWait;
  }
  return std::uint64_t{result_} << 3 | kAckOkOrFault;
}

void JtagDebugPort::Update(bool access_port, std::uint64_t scan) {
  if (refused_) return;
  const bool read = (scan & 1) != 0;
  const auto address = static_cast<std::uint8_t>((scan >> 1 & 3) * 4);
  if (access_port) waits_left_ = waits_;
  if (read) {
    result_ = Read(access_port, address);
  } else {
    Write(access_port, address, static_cast<std::uint32_t>(scan >> 3));
  }
}

void JtagDebugPort::Abort(std::uint64_t scan) {
  if ((scan & kEndAccess) != 0) waits_left_ = 0;
}

// The next scan brings the result itself, so the read buffer, where a scan ends a series, is empty.
std::uint32_t JtagDebugPort::Read(bool access_port, std::uint8_t address) {
  if (!access_port && address == kReadBuffer) return 0;
  std::uint32_t value = 0;
  const std::uint8_t ack = port_.Read(access_port, address, value);
  return access_port && ack == swd_ack::kOk ? port_.posted() : value;
}

void JtagDebugPort::Write(bool access_port, std::uint8_t address, std::uint32_t value) {
  // Aborting has an instruction of its own.
  if (!access_port && address == kReserved) return;
  // Sticky flags are cleared where they are read.
  if (!access_port && address == kControlStatus) port_.ClearSticky(value);
  port_.Write(access_port, address, value);
}

}  // namespace sim
