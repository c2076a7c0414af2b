// CTzIsocEndPoint: transfers in packets, which the driver reports on one by one in a table.
#include "usb/usb_endpoint.h"

std::uint64_t CTzIsocEndPoint::PacketTableBytes(std::uint32_t length) const {
  // The length counts as signed; one that is negative so has no packets.
  const auto bytes = static_cast<std::int64_t>(static_cast<std::int32_t>(length));
  if (bytes <= 0 || max_packet_size_ == 0) return 0;
  const std::int64_t packets = (bytes + max_packet_size_ - 1) / max_packet_size_;
  return static_cast<std::uint64_t>(packets) * request_record::kPacketEntryBytes;
}

RequestRecord* CTzIsocEndPoint::StartDirectTransfer(std::uint8_t* buffer, std::uint32_t length,
                                                    OVERLAPPED* overlapped) {
  const std::uint64_t table = PacketTableBytes(length);
  if (table == 0) return Refuse(ERROR_INVALID_PARAMETER);
  RequestRecord* const record = PrepareRecord(nullptr, length, table, false);
  if (!record) return nullptr;
  return Send(driver_request::kDirectTransfer, record, buffer, length, overlapped);
}

RequestRecord* CTzIsocEndPoint::StartBufferedTransfer(std::uint8_t* buffer, std::uint32_t length,
                                                      OVERLAPPED* overlapped) {
  const std::uint64_t table = PacketTableBytes(length);
  if (table == 0) return Refuse(ERROR_INVALID_PARAMETER);
  RequestRecord* const record = PrepareRecord(buffer, length, table, true);
  if (!record) return nullptr;
  return Send(driver_request::kBufferedTransfer, record, nullptr, length, overlapped);
}

RequestRecord* CTzIsocEndPoint::StartTransfer(std::uint8_t* buffer, std::uint32_t length,
                                              OVERLAPPED* overlapped) {
  return IsDirect() ? StartDirectTransfer(buffer, length, overlapped)
                    : StartBufferedTransfer(buffer, length, overlapped);
}
