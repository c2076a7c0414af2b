// The probe's commands: mode, LEDs, target power and reset, status and connector.
#include <windows.h>

#include <array>

#include "base/little_endian.h"
#include "device/device.h"
#include "device/device_status.h"
#include "device/failure_log.h"
#include "support/log.h"

namespace {

constexpr DWORD kModeSettlingMs = 70;

}  // namespace

std::uint32_t CTzDevice::SetMode(std::uint32_t mode, bool external) {
  Log(LOG_TRACE, "CTzDevice::SetMode()", "mode=%u external=%u", mode, external);
  // Idle first: a probe leaves its present interface only that way.
  std::uint32_t status =
      SendCommand(probe::kRequestSetMode, probe::kModeIdle, probe::kSetModeLength);
  if (status == device_status::kSuccess) {
    const auto value =
        static_cast<std::uint16_t>(mode | (external ? probe::kModeExternal : std::uint16_t{0}));
    status = SendCommand(probe::kRequestSetMode, value, probe::kSetModeLength);
    if (status == device_status::kSuccess && mode == probe::kModeJtag) {
      status = SendCommand(probe::kRequestConnector, 0, probe::kConnectorAfterModeLength);
    }
    // Also after a refusal: the probe is in another mode than before.
    Sleep(kModeSettlingMs);
  }
  return LogFailure("CTzDevice::SetMode()", status);
}

std::uint32_t CTzDevice::LedState(std::uint32_t led_num, std::uint32_t state) {
  Log(LOG_TRACE, "CTzDevice::LedState()", "led_num=%u state=%u", led_num, state);
  const auto value = static_cast<std::uint16_t>((led_num & 0xFF) << 8 | state);
  return LogFailure("CTzDevice::LedState",
                    SendCommand(probe::kRequestLed, value, probe::kLedLength));
}

std::uint32_t CTzDevice::Identify(std::uint32_t state) {
  Log(LOG_TRACE, "CTzDevice::Identify()", "state=%u", state);
  return LogFailure(
      "CTzDevice::Identify",
      SendCommand(probe::kRequestIdentify, static_cast<std::uint16_t>(state), probe::kLedLength));
}

std::uint32_t CTzDevice::TargetPowerOn(bool on) {
  Log(LOG_TRACE, "CTzDevice::TargetPowerOn()", "on=%u", on);
  const std::uint32_t status =
      on ? SendCommand(probe::kRequestTargetPowerOn, probe::kTargetPowerOnValue,
                       probe::kTargetPowerLength)
         : SendCommand(probe::kRequestTargetPowerOff, probe::kTargetPowerOffValue,
                       probe::kTargetPowerLength);
  return LogFailure("CTzDevice::TargetPowerOn", status);
}

std::uint32_t CTzDevice::SetVTargVal(std::uint32_t val) {
  Log(LOG_TRACE, "CTzDevice::SetVTargVal()", "val=%u", val);
  return LogFailure("CTzDevice::SetVTargVal",
                    SendCommand(probe::kRequestTargetVoltage, static_cast<std::uint16_t>(val),
                                probe::kTargetPowerLength));
}

std::uint32_t CTzDevice::GetDeviceStatus(std::span<std::uint8_t, probe::kStatusReplySize> status) {
  Log(LOG_TRACE, "CTzDevice::GetDeviceStatus()", "pStatus");
  const std::uint32_t result = XferData(probe::kProbeToHost, probe::kRequestStatus, 0, 0,
                                        status.data(), probe::kStatusReplySize);
  std::uint8_t* const measured = status.data() + probe::kStatusVoltageMeasured;
  if (LoadLe16(measured) >= probe::kVoltageImplausible) {
    StoreLe16(measured, probe::kVoltageReplacement);
  }
  return LogFailure("CTzDevice::GetDeviceStatus", result);
}

std::uint32_t CTzDevice::SetActiveIOConnector(std::uint16_t select) {
  Log(LOG_TRACE, "CTzDevice::SetActiveIOConnector()", "select=%u", select);
  std::array<std::uint8_t, probe::kStatusReplySize> probe_status{};
  std::uint32_t status = GetDeviceStatus(probe_status);
  if (status == device_status::kSuccess) {
    const bool in_swd_mode =
        (probe_status[probe::kStatusActiveInterface] & probe::kInterfaceSwdBit) != 0;
    status = in_swd_mode ? SendCommand(probe::kRequestConnector, select, probe::kConnectorLength)
                         : device_status::kNotPossible;
  }
  return LogFailure("CTzDevice::SetActiveIOConnector", status);
}

std::uint32_t CTzDevice::ResetTarget(bool xres_active) {
  Log(LOG_TRACE, "CTzDevice::ResetTarget()", "xres_active=%u", xres_active);
  std::uint8_t control = 0;
  std::uint32_t status = ReadFPGAReg(probe::kRegisterTargetControl, &control);
  if (status == device_status::kSuccess) {
    constexpr std::uint8_t kBothBits = probe::kXresActive | probe::kXresDrive;
    const auto released = static_cast<std::uint8_t>(control & ~kBothBits);
    if (xres_active) {
      status = WriteFPGAReg(probe::kRegisterTargetControl, control | kBothBits);
    } else {
      // The line is driven to its idle level for a moment before it is let go.
      status = WriteFPGAReg(probe::kRegisterTargetControl, released | probe::kXresDrive);
      if (status == device_status::kSuccess) {
        status = WriteFPGAReg(probe::kRegisterTargetControl, released);
      }
    }
  }
  return LogFailure("CTzDevice::ResetTarget", status);
}
