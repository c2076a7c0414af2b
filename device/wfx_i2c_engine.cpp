// The FPGA's I2C engine: packets to it on endpoint 0x02, replies on 0x84, register 8.
#include <algorithm>

#include "device/device_status.h"
#include "device/failure_log.h"
#include "device/stream_pipe.h"
#include "device/timeouts.h"
#include "device/wfx_device.h"
#include "support/log.h"
#include "usb/usb_endpoint.h"

std::uint32_t CTzWfxDevice::I2CXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata,
                                    std::uint8_t restartPos, std::uint32_t& num_rx_bytes,
                                    std::uint8_t* resultdata) {
  Log(LOG_TRACE, "CTzWfxDevice::I2CXfer",
      "num_tx_bytes=%u, reqdata=%p, num_rx_bytes=%u, resultdata=%p", num_tx_bytes, reqdata,
      num_rx_bytes, resultdata);
  if (PowerSupplied() == 0) {
    std::fill_n(resultdata, num_rx_bytes, std::uint8_t{0});
    return device_status::kSuccess;
  }
  const auto position =
      static_cast<std::uint8_t>(restartPos != 0 ? restartPos | probe::kI2cRestart : 0);
  std::uint32_t status = I2CUpdateRestartPos(position);
  if (status == device_status::kSuccess) status = I2COutXfer(num_tx_bytes, reqdata);
  if (status == device_status::kSuccess) status = I2CInXfer(num_rx_bytes, resultdata);
  return LogFailure("CTzWfxDevice::I2CXfer", status);
}

std::uint32_t CTzWfxDevice::I2CUpdateRestartPos(std::uint8_t value) {
  Log(LOG_TRACE, "CTzWfxDevice::I2CUpdateRestartPos", "value=%u", value);
  return LogFailure("CTzWfxDevice::I2CUpdateRestartPos", WriteRestartPosition(value));
}

std::uint32_t CTzWfxDevice::WriteRestartPosition(std::uint8_t value) {
  if (value == restart_position_) return device_status::kSuccess;
  const std::uint32_t status = WriteFPGAReg(probe::kRegisterI2cRestart, value);
  if (status == device_status::kSuccess) restart_position_ = value;
  return status;
}

std::uint32_t CTzWfxDevice::I2COutXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata) {
  Log(LOG_XFER | LOG_TRACE, "CTzWfxDevice::I2COutXfer", "num_tx_bytes=%u, reqdata=%p", num_tx_bytes,
      reqdata);
  CTzUSBEndPoint* const endpoint = GetEndPoint(probe::kEndpointStreamOut);
  if (!endpoint) {
    return LogFailure("CTzWfxDevice::I2COutXfer", device_status::kNotPossible);
  }
  if (read_failed_ != 0 && !DrainLateReply()) {
    return LogFailure("CTzWfxDevice::I2COutXfer", device_status::kNotPossible);
  }
  StreamPipe pipe(*endpoint, kOutEventName);
  std::uint32_t sent = num_tx_bytes;
  const std::uint32_t status = pipe.TransferOnce(SentBytes(reqdata), sent)
                                   ? device_status::kSuccess
                                   : device_status::kTransferFailed;
  return LogFailure("CTzWfxDevice::I2COutXfer", status);
}

// The reply to the read that timed out may still come; it must not answer the next one. False on a
// probe that cannot reply at all: there the packet would only seem to have done its work.
bool CTzWfxDevice::DrainLateReply() {
  CTzUSBEndPoint* const endpoint = GetEndPoint(probe::kEndpointStreamIn);
  if (!endpoint) return false;
  const std::uint32_t timeout_ms = endpoint->TimeoutMs();
  endpoint->SetTimeoutMs(probe::kDrainTimeoutMs);
  const ReplyBuffer scrap(endpoint->MaxPacketSize());
  auto length = static_cast<std::uint32_t>(scrap.Size());
  static_cast<void>(I2CInXfer(length, scrap.Data()));
  endpoint->SetTimeoutMs(timeout_ms);
  return true;
}

std::uint32_t CTzWfxDevice::I2CInXfer(std::uint32_t& num_rx_bytes, std::uint8_t* resultdata) {
  Log(LOG_XFER | LOG_TRACE, "CTzWfxDevice::I2CInXfer", "num_rx_bytes=%u, resultdata=%p",
      num_rx_bytes, resultdata);
  CTzUSBEndPoint* const endpoint = GetEndPoint(probe::kEndpointStreamIn);
  if (!endpoint) {
    return LogFailure("CTzWfxDevice::I2CInXfer", device_status::kNotPossible);
  }
  StreamPipe pipe(*endpoint, kInEventName);
  const bool answered = pipe.TransferOnce(resultdata, num_rx_bytes);
  read_failed_ = answered ? 0 : 1;
  return LogFailure("CTzWfxDevice::I2CInXfer",
                    answered ? device_status::kSuccess : device_status::kTransferFailed);
}
