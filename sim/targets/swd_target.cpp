#include "sim/targets/swd_target.h"

#include <bit>

namespace sim {
namespace {

constexpr unsigned kResetCycles = 50;
constexpr std::uint16_t kSelectSwd = 0xE79E;   // JTAG to serial wire, first bit in bit 0
constexpr std::uint16_t kSelectJtag = 0xE73C;  // serial wire to JTAG

constexpr std::uint8_t kReadIdcode = 0xA5;
constexpr std::uint8_t kWriteControl = 0xA9;
constexpr std::uint32_t kPowerPort = 0x50000000;

bool IsAccessPort(std::uint8_t header) { return (header & 0x02) != 0; }
bool IsRead(std::uint8_t header) { return (header & 0x04) != 0; }
std::uint8_t Address(std::uint8_t header) { return (header >> 1) & 0x0C; }

// Identification, CTRL/STAT and ABORT are always answered; what the access port has to be ready
// for, when it is.
bool MayWait(std::uint8_t header) {
  return IsAccessPort(header) || (IsRead(header) && Address(header) == 0xC);
}

// Start bit set, stop bit clear, park bit set, even parity over the four bits between.
bool IsWellFormed(std::uint8_t header) {
  const bool parity = (std::popcount(static_cast<unsigned>(header & 0x1E)) & 1) != 0;
  return (header & 0xC1) == 0x81 && ((header & 0x20) != 0) == parity;
}

// The register that takes the key can be written like memory.
std::vector<MemoryDescription> WithKeyRegister(const SwdDescription& description) {
  std::vector<MemoryDescription> memories = description.memories;
  if (description.acquire.needs_key) memories.push_back({description.acquire.address & ~3u, 4});
  return memories;
}

}  // namespace

SwdTarget::SwdTarget(const SwdDescription& description)
    : description_(description),
      memory_(WithKeyRegister(description)),
      port_(memory_, description.idcode, description.ap_idr) {
  PowerUp();
}

void SwdTarget::PowerUp() {
  memory_.Clear();
  port_.PowerUp();
  link_ = Link::kJtag;
  ones_ = collected_ = 0;
  waits_ = description_.waits;
  Restart();
}

void SwdTarget::Restart() {
  acquiring_ = false;
  muted_ = description_.acquire.required;
}

void SwdTarget::Clock(bool level) {
  if (collected_ > 0) {
    pattern_ = static_cast<std::uint16_t>(pattern_ >> 1 | (level ? 0x8000 : 0));
    if (++collected_ == 16) {
      collected_ = 0;
      if (pattern_ == kSelectSwd && link_ == Link::kJtag) link_ = Link::kLost;
      if (pattern_ == kSelectJtag) link_ = Link::kJtag;
    }
  }
  if (level) {
    ClockHigh();
    return;
  }
  if (ones_ >= kResetCycles) {
    // Both switch sequences begin with a low cycle.
    pattern_ = 0;
    collected_ = 1;
  }
  ones_ = 0;
}

void SwdTarget::ClockHigh() {
  if (++ones_ == kResetCycles) {
    collected_ = 0;
    if (link_ != Link::kJtag) {
      link_ = Link::kReset;
      port_.LineReset();
    }
  } else if (ones_ < kResetCycles && (link_ == Link::kReady || link_ == Link::kReset)) {
    // Outside of a reset this is the start bit of a request that never comes whole.
    link_ = Link::kLost;
  }
}

SwdReply SwdTarget::Request(std::uint8_t header, std::uint32_t data) {
  ones_ = collected_ = 0;
  if (muted_ || link_ == Link::kJtag || link_ == Link::kLost) return {};
  const bool reads_idcode = header == kReadIdcode;
  if (!IsWellFormed(header) || (link_ == Link::kReset && !reads_idcode)) {
    link_ = Link::kLost;
    return {};
  }
  link_ = Link::kReady;
  if (MayWait(header) && waits_ != 0) {
    --waits_;
    return {.ack = swd_ack::kWait};
  }
  if (MayWait(header)) waits_ = description_.waits;
  if (acquiring_ && reads_idcode && !EndAcquire()) return {};
  return Execute(header, data);
}

SwdReply SwdTarget::Execute(std::uint8_t header, std::uint32_t data) {
  SwdReply reply;
  if (IsRead(header)) {
    reply.ack = port_.Read(IsAccessPort(header), Address(header), reply.data);
  } else {
    reply.ack = port_.Write(IsAccessPort(header), Address(header), data);
    NoteKeyWrite(header, data);
  }
  return reply;
}

// A key is written through the access port: its address into TAR, its value into DRW.
void SwdTarget::NoteKeyWrite(std::uint8_t header, std::uint32_t data) {
  if (!IsAccessPort(header)) return;
  if (Address(header) == 0x4) written_address_ = data;
  if (Address(header) == 0xC) {
    const AcquireDescription& acquire = description_.acquire;
    key_written_ = written_address_ == acquire.address && data == acquire.key;
  }
}

void SwdTarget::BeginAcquire(bool by_reset_line, std::uint32_t attempt) {
  const AcquireDescription& acquire = description_.acquire;
  if (!by_reset_line) PowerUp();
  acquiring_ = false;
  muted_ = false;
  link_ = Link::kReset;
  port_.LineReset();
  Request(kReadIdcode, 0);
  Request(kWriteControl, kPowerPort);
  acquiring_ = true;
  key_written_ = false;
  written_address_ = 0;
  catchable_ = !acquire.required || ((by_reset_line ? acquire.by_reset_line : acquire.by_power) &&
                                     attempt >= acquire.attempt);
}

bool SwdTarget::EndAcquire() {
  acquiring_ = false;
  const bool caught = catchable_ && (!description_.acquire.needs_key || key_written_);
  muted_ = !caught;
  return caught;
}

}  // namespace sim
