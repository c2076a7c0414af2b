// The commands and data of the probe's port-acquire loop, which catches a target at its restart.
#include "device/device.h"
#include "device/device_status.h"
#include "device/failure_log.h"
#include "device/stream_pipe.h"
#include "support/log.h"

std::uint32_t CTzDevice::SetupPortAcquire(std::uint32_t retries, bool usexres) {
  Log(LOG_TRACE, "CTzDevice::SetupPortAcquire()", "retries=%u usexres=%u", retries, usexres);
  const auto value = static_cast<std::uint16_t>(
      (retries & 0xFF) | (usexres ? probe::kPortAcquireUseXres : std::uint16_t{0}));
  return LogFailure("CTzDevice::SetupPortAcquire",
                    SendCommand(probe::kRequestArmPortAcquire, value, probe::kPortAcquireLength));
}

std::uint32_t CTzDevice::StageSWDCommand(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata) {
  Log(LOG_TRACE, "CTzDevice::StageSWDCommand()", "num_tx_bytes=%u reqdata=", num_tx_bytes);
  CTzUSBEndPoint* endpoint = GetEndPoint(probe::kEndpointStreamOut);
  if (!endpoint) {
    return LogFailure("CTzDevice::StageSWDCommand", device_status::kNoEndpoint);
  }
  std::uint32_t sent = num_tx_bytes;
  return TransferOn(*endpoint, SentBytes(reqdata), sent, "CTzDevice::StageSWDCommand");
}

std::uint32_t CTzDevice::BeginPortAcquire() {
  Log(LOG_TRACE, "CTzDevice::BeginPortAcquire()", "");
  return LogFailure("CTzDevice::BeginPortAcquire",
                    SendCommand(probe::kRequestBeginPortAcquire, 0, probe::kPortAcquireLength));
}

std::uint32_t CTzDevice::RetrievePortAcquireResponse(std::uint32_t& num_rx_bytes,
                                                     std::uint8_t* respdata) {
  Log(LOG_TRACE, "CTzDevice::RetrievePortAcquireResponse()", "num_rx_bytes=%u respdata=%u",
      num_rx_bytes, AddressAsNumber(respdata));
  CTzUSBEndPoint* endpoint = GetEndPoint(probe::kEndpointStreamIn);
  if (!endpoint) {
    return LogFailure("CTzDevice::RetrievePortAcquireResponse", device_status::kNoEndpoint);
  }
  return TransferOn(*endpoint, respdata, num_rx_bytes, "CTzDevice::RetrievePortAcquireResponse");
}
