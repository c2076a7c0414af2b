// The control requests of a simulated probe.
#include "sim/probe.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "base/little_endian.h"
#include "sim/descriptors.h"
#include "sim/protocol.h"

namespace sim {
namespace {

using namespace protocol;
using probe_driver::SetupPacket;

// Standard requests (USB 2.0, section 9.4).
constexpr std::uint8_t kGetStatus = 0x00;
constexpr std::uint8_t kClearFeature = 0x01;
constexpr std::uint8_t kSetFeature = 0x03;
constexpr std::uint8_t kGetDescriptor = 0x06;
constexpr std::uint8_t kGetConfiguration = 0x08;
constexpr std::uint8_t kSetConfiguration = 0x09;
constexpr std::uint8_t kGetInterface = 0x0A;
constexpr std::uint8_t kSetInterface = 0x0B;

constexpr std::uint8_t kDirectionIn = 0x80;
constexpr std::uint8_t kVendorIn = 0xC0;
constexpr std::uint8_t kVendorOut = 0x40;
constexpr std::uint8_t kTypeMask = 0x60;
constexpr std::uint8_t kRecipientMask = 0x1F;
constexpr std::uint8_t kEndpoint = 0x02;

// Between two attempts of a port acquisition.
constexpr std::uint64_t kAttemptMs = 10;

// The length of the whole reply to a vendor request.
std::uint32_t ReplyLength(std::uint8_t request, std::uint16_t value) {
  switch (request) {
    case kSetMode:
      return 3;
    case kRegister:
      return (value & 0x80) != 0 ? 16 : 8;
    case kReadStatus:
      return 14;
    case kFpgaLength:
    case kFpgaFinish:
    case kFpgaPrepare:
      return 16;
    case kMeasureSupply:
      return 15;
    case kGetClock:
      return 4;
    case kHardwareRevision:
      return 64;
    case kArmAcquire:
    case kStartAcquire:
    case kSelectConnector:
      return 10;
    default:
      return 2;
  }
}

bool IsMode(std::uint8_t mode) {
  static constexpr std::array<std::uint8_t, 8> kModes = {kIdle, kJtag,   kI2c,  kSwd,
                                                         kSwv,  kSwdSwv, kVser, kEtm};
  return std::find(kModes.begin(), kModes.end(), mode) != kModes.end();
}

bool IsVoltageCode(std::uint16_t code) {
  return code == 7 || code == 11 || code == 13 || code == 14;
}

}  // namespace

void Probe::Control(const SetupPacket& setup, std::span<const std::uint8_t> data,
                    ControlReply& reply) {
  if ((setup.request_type & kTypeMask) == 0) {
    Standard(setup, reply);
  } else if (setup.request_type == kVendorOut && setup.request == kWriteRam) {
    reply.stall = !controller_.Write(setup.value, data);
  } else if (setup.request_type == kVendorIn && runs_firmware_ && !controller_.held()) {
    Vendor(setup, reply);
  } else {
    reply.stall = true;
  }
  reply.size = std::min<std::uint32_t>(reply.size, setup.length);
}

void Probe::Standard(const SetupPacket& setup, ControlReply& reply) const {
  const bool in = (setup.request_type & kDirectionIn) != 0;
  const auto bytes = [&](std::initializer_list<std::uint8_t> list) {
    std::copy(list.begin(), list.end(), reply.bytes.begin());
    reply.size = static_cast<std::uint32_t>(list.size());
  };
  if (in && setup.request == kGetDescriptor) {
    const auto descriptor = FindDescriptor(description_, runs_firmware_, setup.value);
    reply.stall = !descriptor;
    if (descriptor) {
      reply.size = static_cast<std::uint32_t>(descriptor->size());
      std::copy(descriptor->begin(), descriptor->end(), reply.bytes.begin());
    }
  } else if (in && setup.request == kGetStatus) {
    bytes({0, 0});
  } else if (in && setup.request == kGetConfiguration) {
    bytes({1});
  } else if (in && setup.request == kGetInterface) {
    bytes({0});
  } else if (!in && setup.request == kSetConfiguration) {
    reply.stall = setup.value > 1;
  } else if (!in && setup.request == kSetInterface) {
    reply.stall = setup.value != 0 || setup.index != 0;
  } else if (in || (setup.request != kClearFeature && setup.request != kSetFeature)) {
    reply.stall = true;
  }
  const bool to_endpoint = (setup.request_type & kRecipientMask) == kEndpoint;
  if (to_endpoint && !HasEndpoint(static_cast<std::uint8_t>(setup.index))) reply.stall = true;
}

void Probe::Vendor(const SetupPacket& setup, ControlReply& reply) {
  reply.size = ReplyLength(setup.request, setup.value);
  std::memset(reply.bytes.data(), 0, reply.size);
  Answer(setup, reply);
}

void Probe::Answer(const SetupPacket& setup, ControlReply& reply) {
  const std::uint16_t value = setup.value;
  const auto low = static_cast<std::uint8_t>(value);
  const auto high = static_cast<std::uint8_t>(value >> 8);
  std::uint8_t& status = reply.bytes[0];
  switch (setup.request) {
    case kSetMode:
      status = SetMode(value);
      break;
    case kRegister:
      status = AccessRegister(value, reply.bytes[3]);
      break;
    case kReadStatus:
      ReadStatus(reply);
      break;
    case kFpgaPrepare:
      status = loader_.Prepare();
      break;
    case kFpgaLength:
      status = loader_.Announce(value, setup.index);
      break;
    case kFpgaFinish:
      status = loader_.Finish();
      reply.bytes[1] = loader_.error();
      if (loader_.loaded()) ResetLogic();
      break;
    case kSetLed:
      if (high >= leds_.size() || low > 3) {
        status = kBadValue;
      } else {
        leds_[high] = low;
      }
      break;
    case kIdentify:
      status = value > 3 ? kBadValue : kDone;
      if (status == kDone) identify_ = low;
      break;
    case kSupplyOn:
    case kSupplyOff:
      SetSupply(setup.request == kSupplyOn, voltage_code_);
      break;
    case kSetVoltage:
      status = IsVoltageCode(value) ? kDone : kBadValue;
      if (status == kDone) SetSupply(supply_on_, low);
      break;
    case kMeasureSupply:
      StoreLe16(&reply.bytes[2], MeasuredSupply());
      break;
    case kSetClock:
      clock_code_ = low;
      break;
    case kGetClock:
      reply.bytes[3] = clock_code_;
      break;
    case kHardwareRevision:
      if (value == kRevisionAddress) {
        reply.bytes[3] = static_cast<std::uint8_t>(description_.hardware_revision);
      } else {
        status = kBadValue;
      }
      break;
    case kArmAcquire:
      status = ArmAcquire(value);
      break;
    case kStartAcquire:
      status = StartAcquire();
      break;
    case kSelectConnector:
      status = value > 1 ? kBadValue : kDone;
      if (status == kDone) connector_ = low;
      break;
    case kCommitSwv:
      swv_committed_ = true;
      swv_commit_ = value;
      KeepTicking();
      break;
    default:
      reply.stall = true;
  }
}

std::uint8_t Probe::SetMode(std::uint16_t value) {
  const auto mode = static_cast<std::uint8_t>(value);
  if (!IsMode(mode) || (value & ~(kExternalFlag | 0xFF)) != 0) return kBadValue;
  if (mode != kIdle && !HasLogic()) return kNoLogic;
  mode_ = mode;
  external_ = (value & kExternalFlag) != 0;
  acquisition_.armed = acquisition_.waits_for_hand = false;
  ++acquisition_.number;
  KeepTicking();
  return kDone;
}

std::uint8_t Probe::AccessRegister(std::uint16_t value, std::uint8_t& read) {
  if (!HasLogic()) return kNoLogic;
  const auto address = static_cast<std::uint8_t>(value & 0x7F);
  if ((value & 0x80) != 0) {
    WriteRegister(address, static_cast<std::uint8_t>(value >> 8));
  } else {
    read = ReadRegister(address);
  }
  return kDone;
}

std::uint8_t Probe::ReadRegister(std::uint8_t address) {
  if (address != kClockState) return registers_[address];
  if (clock_reads_ == 0) return kClockRunning;
  --clock_reads_;
  return 0x01;  // the new clock is selected and not yet stable
}

void Probe::WriteRegister(std::uint8_t address, std::uint8_t value) {
  const auto drives_reset = [&] {
    return (registers_[kTargetControl] & kDriveReset) == kDriveReset;
  };
  const bool was_driven = drives_reset();
  registers_[address] = value;
  if (address == kClockCode) clock_reads_ = description_.clock_settle_reads;
  if (drives_reset() && !was_driven) {
    ++resets_;
    for (const auto& target : swd_) target->Restart();
  }
}

void Probe::ReadStatus(ControlReply& reply) const {
  std::uint8_t* bytes = reply.bytes.data();
  bytes[0] = loader_.failed() ? 1 : kDone;
  if (!description_.is_evk) bytes[1] |= 0x03 | 0x20;  // FPGA power state, VCC 1.3
  if (HasLogic()) bytes[1] |= 0x04;
  if (supply_on_) bytes[1] |= 0x10;
  bytes[2] = voltage_code_;
  StoreLe16(&bytes[3], MeasuredSupply());
  bytes[5] = mode_;
  StoreLe16(&bytes[6], description_.firmware_version);
  StoreLe16(&bytes[8], description_.vorn_version);
  bytes[10] = HasLogic() ? description_.fpga_version : 0;
  bytes[11] = connector_;
  StoreLe16(&bytes[12], description_.bootloader_version);
}

std::uint8_t Probe::ArmAcquire(std::uint16_t value) {
  if (!HasLogic()) return kNoLogic;
  const std::uint64_t number = acquisition_.number + 1;
  acquisition_ = {.armed = true,
                  .by_reset_line = (value & 0x100) != 0,
                  .retries = value & 0xFFu,
                  .number = number};
  stream_in_.Clear();
  return kDone;
}

std::uint8_t Probe::StartAcquire() {
  if (!acquisition_.armed || acquisition_.staged.empty()) return kNotReady;
  acquisition_.armed = false;
  if (acquisition_.retries == 0 && !acquisition_.by_reset_line) {
    // Nothing to switch and nothing to repeat: the user resets the target's power by hand.
    acquisition_.waits_for_hand = true;
    return kDone;
  }
  after_(kAttemptMs, [this, number = acquisition_.number] { Attempt(number); });
  return kDone;
}

void Probe::Attempt(std::uint64_t number) {
  if (number != acquisition_.number) return;
  ++acquisition_.attempts;
  SwdTarget* target = ActiveSwdTarget();
  if (target) target->BeginAcquire(acquisition_.by_reset_line, acquisition_.attempts);
  std::vector<std::uint8_t> response = SwdPacket(acquisition_.staged);
  acquisition_.caught = target && target->caught();
  if (acquisition_.caught ||
      (!acquisition_.waits_for_hand && acquisition_.attempts >= acquisition_.retries)) {
    acquisition_.waits_for_hand = false;
    stream_in_.Send(std::move(response));
    return;
  }
  if (!acquisition_.waits_for_hand) after_(kAttemptMs, [this, number] { Attempt(number); });
}

}  // namespace sim
