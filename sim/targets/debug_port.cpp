#include "sim/targets/debug_port.h"

namespace sim {
namespace {

constexpr std::uint8_t kIdcodeOrAbort = 0x0;
constexpr std::uint8_t kControlStatus = 0x4;
constexpr std::uint8_t kSelectOrResend = 0x8;
constexpr std::uint8_t kReadBuffer = 0xC;

constexpr std::uint32_t kStickyCompare = 1u << 4;
constexpr std::uint32_t kStickyError = 1u << 5;
constexpr std::uint32_t kReadOk = 1u << 6;
constexpr std::uint32_t kWriteDataError = 1u << 7;
constexpr std::uint32_t kStickyOverrun = 1u << 1;
constexpr std::uint32_t kDebugPowerRequest = 1u << 28;
constexpr std::uint32_t kSystemPowerRequest = 1u << 30;
constexpr std::uint32_t kDebugPowered = 1u << 29;
constexpr std::uint32_t kSystemPowered = 1u << 31;
// What can be written: power and reset requests, transaction counter, masks, overrun detection.
constexpr std::uint32_t kWritable = 0x54FFFF0D;

constexpr std::uint32_t kFaulting =
    kStickyCompare | kStickyError | kWriteDataError | kStickyOverrun;

}  // namespace

void DebugPort::PowerUp() {
  control_ = sticky_ = select_ = posted_ = last_read_ = 0;
  access_port_.Reset();
}

bool DebugPort::IsFaulting() const { return (sticky_ & kFaulting) != 0; }

std::uint32_t DebugPort::ControlStatus() const {
  std::uint32_t value = control_ | sticky_;
  if (line_ == DebugLine::kJtag) value &= ~kReadOk;
  if ((control_ & kDebugPowerRequest) != 0) value |= kDebugPowered;
  if ((control_ & kSystemPowerRequest) != 0) value |= kSystemPowered;
  return value;
}

void DebugPort::Abort(std::uint32_t value) {
  if ((value & 0x02) != 0) sticky_ &= ~kStickyCompare;
  if ((value & 0x04) != 0) sticky_ &= ~kStickyError;
  if ((value & 0x08) != 0) sticky_ &= ~kWriteDataError;
  if ((value & 0x10) != 0) sticky_ &= ~kStickyOverrun;
}

void DebugPort::ClearSticky(std::uint32_t flags) { sticky_ &= ~(flags & kFaulting); }

bool DebugPort::CanReachAccessPort() {
  if (IsFaulting()) return false;
  if ((control_ & kDebugPowerRequest) != 0) return true;
  sticky_ |= kStickyError;
  return false;
}

std::uint8_t DebugPort::AccessPortRegister(std::uint8_t address) const {
  return static_cast<std::uint8_t>((select_ & 0xF0) | address);
}

std::uint8_t DebugPort::ReadAccessPort(std::uint8_t address, std::uint32_t& value) {
  if (!CanReachAccessPort()) return swd_ack::kFault;
  // Access port reads are posted: this read brings the result of the one before.
  value = posted_;
  posted_ = 0;
  const bool exists = (select_ >> 24) == 0;
  const bool ok = !exists || access_port_.Read(AccessPortRegister(address), posted_);
  sticky_ = ok ? sticky_ | kReadOk : (sticky_ & ~kReadOk) | kStickyError;
  return swd_ack::kOk;
}

std::uint8_t DebugPort::WriteAccessPort(std::uint8_t address, std::uint32_t value) {
  if (!CanReachAccessPort()) return swd_ack::kFault;
  const bool exists = (select_ >> 24) == 0;
  // Writes are buffered: a refusal shows in the next access.
  if (exists && !access_port_.Write(AccessPortRegister(address), value)) sticky_ |= kStickyError;
  return swd_ack::kOk;
}

std::uint8_t DebugPort::Read(bool access_port, std::uint8_t address, std::uint32_t& value) {
  value = 0;
  std::uint8_t ack = swd_ack::kOk;
  if (access_port) {
    ack = ReadAccessPort(address, value);
  } else if (address == kIdcodeOrAbort) {
    value = idcode_;
  } else if (address == kControlStatus) {
    // Bank 0 only; the other banks read as zero.
    value = (select_ & 0xF) == 0 ? ControlStatus() : 0;
  } else if (Refuses()) {
    return swd_ack::kFault;
  } else if (line_ == DebugLine::kJtag && address == kSelectOrResend) {
    value = select_;
  } else {
    value = address == kReadBuffer ? posted_ : last_read_;
  }
  if (ack == swd_ack::kOk && (access_port || address == kReadBuffer)) last_read_ = value;
  return ack;
}

std::uint8_t DebugPort::Write(bool access_port, std::uint8_t address, std::uint32_t value) {
  if (access_port) return WriteAccessPort(address, value);
  if (address == kIdcodeOrAbort) {
    Abort(value);
    return swd_ack::kOk;
  }
  if (Refuses()) return swd_ack::kFault;
  if (address == kControlStatus && (select_ & 0xF) == 0) control_ = value & kWritable;
  if (address == kSelectOrResend) select_ = value;
  return swd_ack::kOk;
}

}  // namespace sim
