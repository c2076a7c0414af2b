// CTzControlEndPoint: requests on endpoint 0.
#include "base/little_endian.h"
#include "usb/usb_endpoint.h"

namespace {

constexpr std::uint32_t kDirectionShift = 7;
constexpr std::uint32_t kTypeShift = 5;
constexpr std::uint32_t kTypeMask = 3;
constexpr std::uint32_t kRecipientMask = 0x1F;
constexpr std::uint32_t kDeviceToHost = 1;

std::uint8_t RequestTypeOf(const ControlRequest& request) {
  return static_cast<std::uint8_t>(request.direction << kDirectionShift |
                                   (request.request_type & kTypeMask) << kTypeShift |
                                   (request.target & kRecipientMask));
}

// The driver counts in whole seconds, and 0 means no limit to it: a short time-out must not become
// one.
std::uint32_t TimeoutSeconds(std::uint32_t timeout_ms) {
  return timeout_ms > 0 && timeout_ms < 1000 ? 1 : timeout_ms / 1000;
}

}  // namespace

CTzControlEndPoint::CTzControlEndPoint(DriverFile& driver, const std::uint8_t* descriptor)
    : CTzUSBEndPoint(driver, descriptor) {
  direct_ = 0;
}

RequestRecord* CTzControlEndPoint::StartTransfer(std::uint8_t* buffer, std::uint32_t length,
                                                 OVERLAPPED* overlapped) {
  RequestRecord* const record = PrepareRecord(buffer, length, 0, true);
  if (!record) return nullptr;
  is_in_ = request_.direction == kDeviceToHost;
  std::uint8_t* const bytes = record->Bytes();
  bytes[request_record::kRequestType] = RequestTypeOf(request_);
  bytes[request_record::kRequest] = request_.request_code;
  StoreLe16(bytes + request_record::kValue, request_.value);
  StoreLe16(bytes + request_record::kIndex, request_.index);
  StoreLe16(bytes + request_record::kLength, static_cast<std::uint16_t>(length));
  StoreLe32(bytes + request_record::kTimeout, TimeoutSeconds(timeout_ms_));
  bytes[request_record::kEndpoint] = 0;
  return Send(driver_request::kControlTransfer, record, nullptr, length, overlapped);
}

void CTzControlEndPoint::DescribeEndpointZero(std::uint8_t max_packet_size) {
  descriptor_length_ = usb_standard::kEndpointDescriptorBytes;
  descriptor_type_ = usb_standard::kEndpointDescriptor;
  address_ = 0;
  attributes_ = usb_standard::kControl;
  max_packet_size_ = max_packet_size;
  interval_ = 0;
}
