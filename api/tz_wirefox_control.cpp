// CTzWirefox: the methods that configure and query one probe.
#include <algorithm>
#include <array>

#include "api/method_frame.h"
#include "api/tz_wirefox_object.h"
#include "base/little_endian.h"
#include "device/device.h"
#include "device/probe_protocol.h"

namespace {

using StatusReply = std::array<std::uint8_t, probe::kStatusReplySize>;

template <typename Enum>
constexpr std::uint32_t Code(Enum value) {
  return static_cast<std::uint32_t>(value);
}

// Bit of a client's mode value that asks for the probe's own controller instead of the target.
constexpr std::uint32_t kInternalModeBit = 0x100;

constexpr LONG kMaxManchesterHz = 12'000'000;
constexpr LONG kMaxUartHz = 24'000'000;

std::int16_t SignedField(const StatusReply& reply, std::size_t offset) {
  return static_cast<std::int16_t>(LoadLe16(reply.data() + offset));
}

TzWFXStatus StatusRecord(const StatusReply& reply, std::uint32_t clock_code) {
  const std::uint8_t flags = reply[probe::kStatusFlags];
  const auto flag = [flags](std::uint8_t bit) -> std::uint8_t { return (flags & bit) != 0; };
  TzWFXStatus record = {};
  record.RESULT = reply[probe::kStatusResult];
  record.VTARG_SET = reply[probe::kStatusVoltageSet];
  record.VTARG_MEASURED = SignedField(reply, probe::kStatusVoltageMeasured);
  record.ACTIVE_INTERFACE = reply[probe::kStatusActiveInterface];
  record.ACTIVE_PORT = reply[probe::kStatusActivePort];
  record.WFX_VERSION = SignedField(reply, probe::kStatusProbeVersion);
  record.VORN_VERSION = SignedField(reply, probe::kStatusVornVersion);
  record.FPGA_VERSION = reply[probe::kStatusFpgaVersion];
  record.BOOTLOADER_VERSION = SignedField(reply, probe::kStatusBootloaderVersion);
  record.WFX_FLAGS_FPGA_POWER_STATE = flags & probe::kFlagFpgaPowerState;
  record.WFX_FLAGS_SW_VALID = flag(probe::kFlagSoftwareValid);
  record.WFX_FLAGS_VTARG_FAULT = flag(probe::kFlagVTargFault);
  record.WFX_FLAGS_VTARG_ON = flag(probe::kFlagVTargOn);
  record.WFX_FLAGS_VCC1_3_ON = flag(probe::kFlagVcc13On);
  record.WFX_FLAGS_FPGA_MBX_ERR = flag(probe::kFlagFpgaMailboxError);
  record.WFX_FLAGS_VORN_I2C_ERR = flag(probe::kFlagVornI2cError);
  record.CLOCK_FREQUENCY = static_cast<std::uint8_t>(clock_code);
  return record;
}

// Changing the clock disturbs the interface that is active, so it is put back afterwards; in VSER
// the probe takes a clock only while idle. A recorded mode of VSER_INT does not count as VSER: that
// interface is put back as the probe reports it, towards the target.
std::uint32_t ChangeJtagClock(CTzDevice& device, std::uint32_t recorded_mode, TzJtagClock clock) {
  const bool vser = recorded_mode == probe::kModeVser;
  StatusReply reply = {};
  std::uint32_t result = device.GetDeviceStatus(reply);
  // A status that cannot be read is no reason to stay in VSER without a clock.
  if (vser) result = device.SetMode(probe::kModeIdle, true);
  if (result == 0) result = device.JTAG_SetClock(Code(clock));
  const std::uint8_t active = reply[probe::kStatusActiveInterface];
  if (result == 0) result = device.SetMode(active, true);
  if (result == 0 && (active == probe::kModeSwd || active == probe::kModeSwdSwv)) {
    result = device.SetActiveIOConnector(reply[probe::kStatusActivePort]);
  }
  // Whatever happened before; this outcome is then the one that counts.
  if (vser) result = device.SetMode(probe::kModeVser, true);
  return result;
}

}  // namespace

HRESULT CTzWirefox::SetMode(BSTR wirefox, TzTransferMode mode, CHAR port10N5, LONG ownerPID,
                            TzErrorCode* error) {
  if (api::AnyMissing(error)) return E_POINTER;
  return api::RunOnOwnProbe(
      "CTzWirefox::SetMode", wirefox, ownerPID, error, [&](ProbeEntry& entry) {
        const std::uint32_t code = Code(mode);
        const bool external = (code & kInternalModeBit) == 0;
        if (entry.device->SetMode(code & 0xFF, external) != 0) return TzErrorCode::WFX_ERROR;
        entry.mode = code;
        if (mode != TzTransferMode::SWD && mode != TzTransferMode::SWD_SWV) {
          return TzErrorCode::SUCCESS;
        }
        return api::OutcomeOf(entry.device->SetActiveIOConnector(port10N5 != 0 ? 1 : 0));
      });
}

HRESULT CTzWirefox::SetVTarg(BSTR wirefox, TzVTargVoltage voltage, CHAR supplyVoltage,
                             LONG ownerPID, TzErrorCode* error) {
  if (api::AnyMissing(error)) return E_POINTER;
  return api::RunOnOwnProbe("CTzWirefox::SetVTarg", wirefox, ownerPID, error,
                            [&](ProbeEntry& entry) {
                              std::uint32_t result = entry.device->SetVTargVal(Code(voltage));
                              if (result == 0) entry.voltage = Code(voltage);
                              if (result == 0)
                                result = entry.device->TargetPowerOn(supplyVoltage != 0);
                              return api::OutcomeOf(result);
                            });
}

HRESULT CTzWirefox::SetJtagClock(BSTR wirefox, TzJtagClock clock, LONG ownerPID,
                                 TzErrorCode* error) {
  if (api::AnyMissing(error)) return E_POINTER;
  return api::RunOnOwnProbe(
      "CTzWirefox::SetJtagClock", wirefox, ownerPID, error, [&](ProbeEntry& entry) {
        return api::OutcomeOf(ChangeJtagClock(*entry.device, entry.mode, clock));
      });
}

HRESULT CTzWirefox::SetTimeOut(BSTR wirefox, TzWirefoxEndPoint endPoint, LONG timeout,
                               LONG ownerPID, TzErrorCode* error) {
  if (api::AnyMissing(error)) return E_POINTER;
  return api::RunOnOwnProbe(
      "CTzWirefox::SetTimeOut", wirefox, ownerPID, error, [&](ProbeEntry& entry) {
        // The value is a USB address here and gets no direction bit, unlike in BulkTransfer: EP4
        // and EP6 name no endpoint, clients reach those by 0x84 and 0x86.
        return api::OutcomeOf(entry.device->SetTimeout(static_cast<std::uint8_t>(Code(endPoint)),
                                                       static_cast<std::uint32_t>(timeout)));
      });
}

HRESULT CTzWirefox::SetLedState(BSTR wirefox, TzLed led, TzLedState state, TzErrorCode* error) {
  if (api::AnyMissing(error)) return E_POINTER;
  return api::RunOnProbe("CTzWirefox::SetLedState", wirefox, error, [&](ProbeEntry& entry) {
    return api::OutcomeOf(entry.device->LedState(Code(led), Code(state)));
  });
}

HRESULT CTzWirefox::VisualIdentify(BSTR wirefox, TzLedIdentifyState state, TzErrorCode* error) {
  if (api::AnyMissing(error)) return E_POINTER;
  return api::RunOnProbe("CTzWirefox::VisualIdentify", wirefox, error, [&](ProbeEntry& entry) {
    return api::OutcomeOf(entry.device->Identify(Code(state)));
  });
}

HRESULT CTzWirefox::ToggleXres(BSTR wirefox, CHAR active, TzErrorCode* error) {
  if (api::AnyMissing(error)) return E_POINTER;
  return api::RunOnProbe("CTzWirefox::ToggleXres", wirefox, error, [&](ProbeEntry& entry) {
    return api::OutcomeOf(entry.device->ResetTarget(active != 0));
  });
}

HRESULT CTzWirefox::SetupSWV(BSTR wirefox, LONG targetFreq, CHAR manchesterNuart, SHORT commitTime,
                             TzErrorCode* error) {
  if (api::AnyMissing(error)) return E_POINTER;
  return api::RunOnProbe("CTzWirefox::SetupSWV", wirefox, error, [&](ProbeEntry& entry) {
    const bool manchester = manchesterNuart != 0;
    const LONG limit = manchester ? kMaxManchesterHz : kMaxUartHz;
    // A rate of 0 cannot be set: the probe's clock is divided by it. A negative rate passes, as it
    // always has, and reaches the probe as a large one that gives the divisor 0.
    if (targetFreq > limit || targetFreq == 0) return TzErrorCode::INVALID_PARAM;
    return api::OutcomeOf(entry.device->SetupSWV(static_cast<std::uint32_t>(targetFreq),
                                                 manchester ? 1 : 0,
                                                 static_cast<std::uint16_t>(commitTime)));
  });
}

HRESULT CTzWirefox::GetWirefoxStatus(BSTR wirefox, TzWFXStatus* status, TzErrorCode* error) {
  if (api::AnyMissing(status, error)) return E_POINTER;
  return api::RunOnProbe("CTzWirefox::GetWirefoxStatus", wirefox, error, [&](ProbeEntry& entry) {
    StatusReply reply = {};
    if (entry.device->GetDeviceStatus(reply) != 0) {
      // A failed read says nothing: the client gets a record of zeros, and the recorded mode stays.
      *status = {};
      return TzErrorCode::WFX_ERROR;
    }
    TzErrorCode outcome = TzErrorCode::SUCCESS;
    std::uint32_t clock_code = 0;
    if (entry.mode != probe::kModeVser) {
      outcome = api::OutcomeOf(entry.device->JTAG_GetClock(&clock_code));
    }
    *status = StatusRecord(reply, clock_code);
    entry.mode = reply[probe::kStatusActiveInterface];
    return outcome;
  });
}

HRESULT CTzWirefox::GetHwRevID(BSTR wirefox, LONG* revID, TzErrorCode* error) {
  if (api::AnyMissing(revID, error)) return E_POINTER;
  return api::RunOnProbe("CTzWirefox::GetHwRevID", wirefox, error, [&](ProbeEntry& entry) {
    std::array<std::uint8_t, probe::kHardwareRevisionLength> reply = {};
    const std::uint32_t result = entry.device->XferData(
        probe::kProbeToHost, probe::kRequestHardwareRevision, probe::kHardwareRevisionValue, 0,
        reply.data(), static_cast<std::uint32_t>(reply.size()));
    if (result == 0) *revID = static_cast<std::int8_t>(reply[probe::kReplyHardwareRevision]);
    return api::OutcomeOf(result);
  });
}

HRESULT CTzWirefox::VendorRequest(BSTR wirefox, LONG request, LONG value, LONG index,
                                  SAFEARRAY* data, CHAR write, SAFEARRAY** RESULT,
                                  TzErrorCode* error) {
  if (api::AnyMissing(RESULT, error)) return E_POINTER;
  return api::RunOnProbe("CTzWirefox::VendorRequest", wirefox, error, [&](ProbeEntry& entry) {
    *RESULT = api::CreateByteArray(api::ByteCount(data));
    const api::ByteArrayAccess sent(data);
    const api::ByteArrayAccess result(*RESULT);
    if (!sent || !result) return TzErrorCode::UNKNOWN;
    std::copy(sent.bytes().begin(), sent.bytes().end(), result.bytes().begin());
    return api::OutcomeOf(entry.device->XferData(
        write != 0 ? probe::kHostToProbe : probe::kProbeToHost, static_cast<std::uint8_t>(request),
        static_cast<std::uint16_t>(value), static_cast<std::uint16_t>(index), result.bytes().data(),
        static_cast<std::uint32_t>(result.bytes().size())));
  });
}
