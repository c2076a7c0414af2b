#include "device/wfx_device.h"

#include <windows.h>

#include <array>

#include "base/little_endian.h"
#include "device/device_status.h"
#include "device/failure_log.h"
#include "device/timeouts.h"
#include "support/log.h"

namespace {

constexpr std::int32_t kPowerCheckIntervalMs = 1000;

}  // namespace

CTzWfxDevice::CTzWfxDevice(std::uint8_t device_index, bool set_timeouts)
    : CTzDevice(device_index, set_timeouts) {}

CTzWfxDevice::~CTzWfxDevice() = default;

std::uint32_t CTzWfxDevice::SetMode(std::uint32_t mode, bool external) {
  const std::uint32_t status = CTzDevice::SetMode(mode, external);
  if (status != device_status::kSuccess || mode != probe::kModeI2c) return status;
  return LogFailure("CTzDevice::SetMode()", PrepareI2C());
}

std::uint32_t CTzWfxDevice::PrepareI2C() {
  native_pass_through_ = false;
  next_power_check_ms_ = 0;
  power_supplied_ = 0;
  restart_transfer_ = false;
  first_phase_length_ = 0;
  second_phase_length_ = 0;
  read_failed_ = 1;

  const std::uint32_t status = ReadFPGAReg(probe::kRegisterI2cRestart, &restart_position_);
  if (status != device_status::kSuccess) restart_position_ = 0;

  // Time-outs and the drain are the best that can be done: a probe without these endpoints shows it
  // at the first transfer.
  static_cast<void>(SetTimeout(probe::kEndpointSerialIn, probe::kDrainTimeoutMs));
  DrainReplies();
  static_cast<void>(SetTimeout(probe::kEndpointSerialIn, probe::kI2cInTimeoutMs));
  static_cast<void>(SetTimeout(probe::kEndpointSerialOut, probe::kI2cOutTimeoutMs));
  return status;
}

void CTzWfxDevice::DrainReplies() {
  const ReplyBuffer scrap(64);
  auto length = static_cast<std::uint32_t>(scrap.Size());
  static_cast<void>(
      CTzDevice::BulkXfer(probe::kEndpointSerialIn, scrap.Data(), length, probe::kModeI2c));
}

std::uint32_t CTzWfxDevice::SetTimeout(std::uint8_t endpt, std::uint32_t timeout) {
  Log(LOG_TRACE, "CTzWfxDevice::SetTimeout", "endpt=%u, timeout=%u", endpt, timeout);
  // I2C requests to 0x01 and 0x81 travel on 0x02 and 0x84.
  std::uint32_t status = device_status::kSuccess;
  if (endpt == probe::kEndpointSerialOut) {
    status = CTzDevice::SetTimeout(probe::kEndpointStreamOut, timeout);
  } else if (endpt == probe::kEndpointSerialIn) {
    status = CTzDevice::SetTimeout(probe::kEndpointStreamIn, timeout);
  }
  if (status == device_status::kSuccess) status = CTzDevice::SetTimeout(endpt, timeout);
  return LogFailure("CTzWfxDevice::SetTimeout", status);
}

std::uint32_t CTzWfxDevice::PowerSupplied() {
  Log(LOG_TRACE, "CTzWfxDevice::PowerSupplied", "");
  // The tick count wraps after 49 days and counts as negative for the latter half of them. Only a
  // check that lies within the interval ahead is one that was set here and is still to come.
  const std::uint32_t now_ms = GetTickCount();
  const auto left_ms = static_cast<std::int32_t>(next_power_check_ms_ - now_ms);
  if (left_ms > 0 && left_ms <= kPowerCheckIntervalMs) return power_supplied_;
  next_power_check_ms_ = now_ms + kPowerCheckIntervalMs;

  std::array<std::uint8_t, probe::kSupplyLength> reply{};
  const std::uint32_t status =
      XferData(probe::kProbeToHost, probe::kRequestSupply, 0, 0, reply.data(), reply.size());
  if (status != device_status::kSuccess) {
    // The last answer holds for another second rather than that a running target loses I2C.
    static_cast<void>(LogFailure("CTzWfxDevice::PowerSupplied", status));
    return power_supplied_;
  }
  power_supplied_ = LoadLe16(reply.data() + probe::kReplySupply) >= probe::kSupplyPresent ? 1 : 0;
  return power_supplied_;
}

std::uint32_t CTzWfxDevice::BulkXfer(std::uint8_t endpt, std::uint8_t* bfr, std::uint32_t& len,
                                     std::uint32_t mode) {
  Log(LOG_XFER | LOG_TRACE, "CTzWfxDevice::BulkXfer", "endpt=%u, bfr=%p, len=%u, mode=%u", endpt,
      bfr, len, mode);
  // Looked at in every buffer, whatever the mode and the direction: what a client puts into the
  // buffer of a read counts, and an image or trace data can switch the pass-through on, which lasts
  // until the next read on 0x81 or switch to I2C mode.
  if ((len > probe::kI2cBulkControl &&
       (bfr[probe::kI2cBulkControl] & probe::kI2cBulkNative) != 0) ||
      (len > probe::kI2cBulkAddress &&
       bfr[probe::kI2cBulkAddress] == probe::kI2cBulkNativeAddress)) {
    native_pass_through_ = true;
  }
  if (mode == probe::kModeI2c && !native_pass_through_) return TranslateToEp2x4(endpt, bfr, len);
  // The reply ends the request that was passed through.
  if (endpt == probe::kEndpointSerialIn) native_pass_through_ = false;
  return LogFailure("CTzWfxDevice::BulkXfer", CTzDevice::BulkXfer(endpt, bfr, len, mode));
}
