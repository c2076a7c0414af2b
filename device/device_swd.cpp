// SWD: packets, and the switch of a target's port to SWD.
#include <array>

#include "device/device.h"
#include "device/device_status.h"
#include "device/failure_log.h"
#include "device/stream_exchange.h"
#include "support/log.h"

std::uint32_t CTzDevice::SWDXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata,
                                 std::uint32_t& num_rx_bytes, std::uint8_t* resultdata) {
  Log(LOG_XFER | LOG_TRACE, "CTzDevice::SWDXfer",
      "num_tx_bytes=%u, reqdata=%p, num_rx_bytes=%u, resultdata=%p", num_tx_bytes, reqdata,
      num_rx_bytes, resultdata);
  CTzUSBEndPoint* const out = GetEndPoint(probe::kEndpointStreamOut);
  CTzUSBEndPoint* const in = GetEndPoint(probe::kEndpointStreamIn);
  if (!out || !in) {
    return LogFailure("CTzDevice::SWDXfer", device_status::kNoEndpoint);
  }
  StreamExchange exchange(*out, *in);
  if (exchange.Run(reqdata, num_tx_bytes, resultdata, num_rx_bytes)) {
    return device_status::kSuccess;
  }
  exchange.AbortAndReset();
  return LogFailure("CTzDevice::SWDXfer", device_status::kStreamFailed);
}

std::uint32_t CTzDevice::SWD_CReset() {
  Log(LOG_TRACE, "CTzDevice::SWD_CReset()", "");
  return LogFailure("CTzDevice::SWD_CReset", ResetSwdLine());
}

std::uint32_t CTzDevice::ResetSwdLine() {
  std::array<std::uint8_t, probe::kStatusReplySize> before{};
  std::uint32_t status = GetDeviceStatus(before);
  if (status != device_status::kSuccess) return status;
  const std::uint8_t active_interface = before[probe::kStatusActiveInterface];
  if ((active_interface & probe::kInterfaceSwdBit) == 0) return device_status::kNotPossible;

  // The line reset is a string of TMS levels, which only the JTAG engine can send.
  status = SetMode(probe::kModeJtag, true);
  if (status != device_status::kSuccess) return status;
  status = SendSwdLineReset();
  if (status != device_status::kSuccess) return status;
  status = SetMode(active_interface, true);
  if (status != device_status::kSuccess) return status;
  return SetActiveIOConnector(before[probe::kStatusActivePort]);
}

std::uint32_t CTzDevice::SendSwdLineReset() {
  std::uint8_t control = 0;
  std::uint32_t status = ReadFPGAReg(probe::kRegisterTargetControl, &control);
  if (status != device_status::kSuccess) return status;
  status = WriteFPGAReg(probe::kRegisterTargetControl, control & probe::kLineResetMask);
  if (status != device_status::kSuccess) return status;
  probe::LineResetSequence cycles = probe::kJtagToSwdSequence;
  status = JTAG_BufferedIo(probe::kLineResetCycles, cycles.data(), false, nullptr, false);
  if (status != device_status::kSuccess) return status;
  return WriteFPGAReg(probe::kRegisterTargetControl, control);
}
