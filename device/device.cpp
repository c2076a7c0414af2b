#include "device/device.h"

#include <array>

#include "device/device_status.h"
#include "device/failure_log.h"
#include "device/stream_pipe.h"
#include "device/timeouts.h"
#include "support/log.h"
#include "usb/device_interface_guid.h"
#include "usb/usb_device.h"
#include "usb/usb_endpoint.h"

namespace {

struct EndpointTimeout {
  std::uint8_t address;
  std::uint32_t timeout_ms;
};

constexpr EndpointTimeout kTimeoutsInUse[] = {
    {probe::kEndpointSerialOut, probe::kSerialOutTimeoutMs},
    {probe::kEndpointSerialIn, probe::kSerialInTimeoutMs},
    {probe::kEndpointStreamOut, probe::kStreamOutTimeoutMs},
    {probe::kEndpointStreamIn, probe::kStreamInTimeoutMs},
    {probe::kEndpointSwvIn, probe::kSwvInTimeoutMs},
};

}  // namespace

CTzDevice::CTzDevice(std::uint8_t device_index, bool set_timeouts)
    : usb_device_(std::make_unique<CTzUSBDevice>(kProbeDriverInterface, true)) {
  usb_device_->Open(device_index);
  if (!set_timeouts) return;
  for (const EndpointTimeout& endpoint : kTimeoutsInUse) {
    // A probe without one of these endpoints is used all the same; the miss is in the log.
    static_cast<void>(CTzDevice::SetTimeout(endpoint.address, endpoint.timeout_ms));
  }
}

CTzDevice::~CTzDevice() = default;

CTzUSBDevice* CTzDevice::GetUSBDevice() { return usb_device_.get(); }

CTzUSBEndPoint* CTzDevice::GetEndPoint(std::uint8_t address) {
  const std::uint8_t count = usb_device_->EndPointCount();
  for (std::uint8_t i = 0; i < count; ++i) {
    CTzUSBEndPoint* const endpoint = usb_device_->EndPoint(i);
    if (endpoint && endpoint->Address() == address) return endpoint;
  }
  Log(LOG_ERROR, "CTzDevice::GetEndPoint", "Endpoint ep=%u does not exist", address);
  return nullptr;
}

std::uint32_t CTzDevice::SetTimeout(std::uint8_t endpt, std::uint32_t timeout) {
  Log(LOG_TRACE, "CTzDevice::SetTimeout()", "endpt=%u timeout=%u", endpt, timeout);
  CTzUSBEndPoint* endpoint = GetEndPoint(endpt);
  if (!endpoint) {
    return LogFailure("CTzDevice::SetTimeout", device_status::kNoEndpoint);
  }
  endpoint->SetTimeoutMs(timeout);
  return device_status::kSuccess;
}

std::uint32_t CTzDevice::XferData(std::uint32_t Direction, std::uint8_t ReqCode,
                                  std::uint16_t Value, std::uint16_t Index, std::uint8_t* Bfr,
                                  std::uint32_t Len) {
  Log(LOG_XFER | LOG_TRACE, "CTzDevice::XferData",
      "Direction=%u, ReqCode=%2.2X, Value=%4.4X, Index=%4.4X, Bfr=%p, Len=%u", Direction, ReqCode,
      Value, Index, Bfr, Len);
  CTzControlEndPoint* control = usb_device_->ControlEndPoint();
  if (!control) return device_status::kNoEndpoint;
  control->SetRequest({.target = probe::kRecipientDevice,
                       .request_type = probe::kRequestTypeVendor,
                       .direction = Direction,
                       .request_code = ReqCode,
                       .value = Value,
                       .index = Index});
  return TransferOn(*control, Bfr, Len, "CTzDevice::XferData");
}

std::uint32_t CTzDevice::SendCommand(std::uint8_t request, std::uint16_t value,
                                     std::uint32_t reply_length) {
  std::array<std::uint8_t, probe::kMaxCommandReply> reply{};
  const std::uint32_t status =
      XferData(probe::kProbeToHost, request, value, 0, reply.data(), reply_length);
  return status != device_status::kSuccess ? status : reply[probe::kReplyStatus];
}

std::uint32_t CTzDevice::ReadFPGAReg(std::uint8_t reg_address, std::uint8_t* reg_value) {
  Log(LOG_XFER | LOG_TRACE, "CTzDevice::ReadFPGAReg", "reg_address=%2.2X, reg_value=%2.2X ",
      reg_address, *reg_value);
  std::array<std::uint8_t, probe::kReadRegisterLength> reply{};
  const std::uint16_t value = reg_address & probe::kRegisterAddressMask;
  if (XferData(probe::kProbeToHost, probe::kRequestFpgaRegister, value, 0, reply.data(),
               reply.size()) != device_status::kSuccess) {
    return LogFailure("CTzDevice::ReadFPGAReg", device_status::kTransferFailed);
  }
  if (reply[probe::kReplyStatus] != device_status::kSuccess) {
    return LogFailure("CTzDevice::ReadFPGAReg", reply[probe::kReplyStatus]);
  }
  *reg_value = reply[probe::kReplyRegisterValue];
  return device_status::kSuccess;
}

std::uint32_t CTzDevice::WriteFPGAReg(std::uint8_t reg_address, std::uint8_t reg_value) {
  Log(LOG_XFER | LOG_TRACE, "CTzDevice::WriteFPGAReg", "reg_address=%2.2X, reg_value=%2.2X ",
      reg_address, reg_value);
  std::array<std::uint8_t, probe::kWriteRegisterLength> reply{};
  const auto value = static_cast<std::uint16_t>(reg_value << 8 | probe::kRegisterWrite |
                                                (reg_address & probe::kRegisterAddressMask));
  if (XferData(probe::kProbeToHost, probe::kRequestFpgaRegister, value, 0, reply.data(),
               reply.size()) != device_status::kSuccess) {
    return LogFailure("CTzDevice::WriteFPGAReg", device_status::kTransferFailed);
  }
  return LogFailure("CTzDevice::WriteFPGAReg", reply[probe::kReplyStatus]);
}

std::uint32_t CTzDevice::BulkXfer(std::uint8_t endpt, std::uint8_t* bfr, std::uint32_t& len,
                                  std::uint32_t /*mode*/) {
  Log(LOG_XFER | LOG_TRACE, "CTzDevice::BulkXfer", "endpt=%u, bfr=%p, len=%u", endpt, bfr, len);
  CTzUSBEndPoint* endpoint = GetEndPoint(endpt);
  // The miss is logged already, and this operation adds no line of its own.
  if (!endpoint) return device_status::kNoEndpoint;
  return TransferOn(*endpoint, bfr, len, "CTzDevice::BulkXfer");
}

std::uint32_t CTzDevice::I2CXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata,
                                 std::uint8_t restartPos, std::uint32_t& num_rx_bytes,
                                 std::uint8_t* resultdata) {
  // The line shows the reply's length where an address is meant and the other way round: readers
  // of old logs know it so.
  Log(LOG_XFER | LOG_TRACE, "CTzDevice::I2CXfer",
      "num_tx_bytes=%u, reqdata=%p, restartPos=%u, num_rx_bytes=%p, resultdata=%u", num_tx_bytes,
      reqdata, restartPos, NumberAsAddress(num_rx_bytes), AddressAsNumber(resultdata));
  return LogFailure("CTzDevice::I2CXfer", device_status::kNotPossible);
}
