#include "usb/usb_endpoint.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "base/little_endian.h"
#include "support/handle.h"
#include "usb/driver_call.h"
#include "usb/kept_memory.h"
#include "usb/timeouts.h"

namespace {

// wMaxPacketSize: bits 0 to 10 are the size, bits 11 and 12 further packets per microframe.
constexpr std::uint16_t kPacketSizeMask = 0x7FF;
constexpr int kPacketsShift = 11;
constexpr std::uint16_t kPacketsMask = 3;

}  // namespace

bool RequestRecord::Prepare(std::uint64_t size, std::uint32_t requested_length) {
  if (size > std::numeric_limits<std::uint32_t>::max()) return false;
  if (size > kInlineBytes && size > heap_bytes_) {
    heap_.reset(new (std::nothrow) std::uint8_t[size]);
    heap_bytes_ = heap_ ? static_cast<std::uint32_t>(size) : 0;
    if (!heap_) return false;
  }
  size_ = static_cast<std::uint32_t>(size);
  requested_length_ = requested_length;
  in_use_ = true;
  aborted_ = false;
  return true;
}

void RequestRecord::Release() {
  in_use_ = false;
  if (heap_bytes_ <= kKeptBytes) return;
  heap_.reset();
  heap_bytes_ = 0;
}

CTzUSBEndPoint::CTzUSBEndPoint(DriverFile& driver, const std::uint8_t* descriptor)
    : driver_(driver), record_(std::make_unique<RequestRecord>()) {
  if (!descriptor) return;
  descriptor_length_ = descriptor[0];
  descriptor_type_ = descriptor[1];
  address_ = descriptor[2];
  attributes_ = descriptor[3];
  const std::uint16_t packet_size = LoadLe16(descriptor + 4);
  packets_per_microframe_ = ((packet_size >> kPacketsShift) & kPacketsMask) + 1;
  max_packet_size_ = (packet_size & kPacketSizeMask) * packets_per_microframe_;
  interval_ = descriptor[6];
  is_in_ = (address_ & usb_standard::kEndpointIn) != 0;
}

// Closing the driver's file ends what nobody completed, but the system may tell so only when the
// thread that started it looks, and writes into its block then.
CTzUSBEndPoint::~CTzUSBEndPoint() {
  if (record_ && record_->in_use_ && record_->in_flight_) KeepForGood(std::move(record_));
}

RequestRecord* CTzUSBEndPoint::Refuse(std::uint32_t error) {
  last_error_ = error;
  return nullptr;
}

RequestRecord* CTzUSBEndPoint::PrepareRecord(const std::uint8_t* buffer, std::uint32_t length,
                                             std::uint64_t packet_table_bytes, bool payload) {
  if (const DWORD refusal = driver_.Refusal(); refusal != ERROR_SUCCESS) return Refuse(refusal);
  if (record_->in_use_) return Refuse(ERROR_BUSY);
  const std::uint64_t payload_offset = request_record::kHeaderBytes + packet_table_bytes;
  if (!record_->Prepare(payload_offset + (payload ? length : 0), length)) {
    return Refuse(ERROR_NOT_ENOUGH_MEMORY);
  }
  record_->packet_table_bytes_ = static_cast<std::uint32_t>(packet_table_bytes);
  record_->payload_offset_ = payload ? static_cast<std::uint32_t>(payload_offset) : 0;

  std::uint8_t* const bytes = record_->Bytes();
  std::memset(bytes, 0, request_record::kHeaderBytes);
  bytes[request_record::kEndpoint] = address_;
  if (packet_table_bytes != 0) {
    std::memset(bytes + request_record::kHeaderBytes, 0, record_->packet_table_bytes_);
    StoreLe32(bytes + request_record::kPacketTableOffset, request_record::kHeaderBytes);
    StoreLe32(bytes + request_record::kPacketTableLength, record_->packet_table_bytes_);
  }
  if (payload) {
    StoreLe32(bytes + request_record::kPayloadOffset, record_->payload_offset_);
    StoreLe32(bytes + request_record::kPayloadLength, length);
    // Also for transfers to the host: the driver is given what the caller's buffer held.
    if (length != 0) std::memcpy(bytes + payload_offset, buffer, length);
  }
  return record_.get();
}

RequestRecord* CTzUSBEndPoint::Send(std::uint32_t code, RequestRecord* record,
                                    std::uint8_t* direct_buffer, std::uint32_t length,
                                    OVERLAPPED* overlapped) {
  std::uint8_t* const bytes = record->Bytes();
  const bool direct = record->payload_offset_ == 0;
  // A request that completes at once leaves the last error alone.
  SetLastError(ERROR_SUCCESS);
  record->block_ = *overlapped;
  const BOOL completed =
      DeviceIoControl(driver_.Handle(), code, bytes, record->Size(), direct ? direct_buffer : bytes,
                      direct ? length : record->Size(), nullptr, &record->block_);
  last_error_ = GetLastError();
  record->in_flight_ = !completed && last_error_ == ERROR_IO_PENDING;
  // Until it has completed, the record is the driver's.
  bus_status_ = completed ? LoadLe32(bytes + request_record::kBusStatus) : 0;
  driver_status_ = completed ? LoadLe32(bytes + request_record::kDriverStatus) : 0;
  return record;
}

RequestRecord* CTzUSBEndPoint::StartDirectTransfer(std::uint8_t* buffer, std::uint32_t length,
                                                   OVERLAPPED* overlapped) {
  RequestRecord* const record = PrepareRecord(nullptr, length, 0, false);
  if (!record) return nullptr;
  return Send(driver_request::kDirectTransfer, record, buffer, length, overlapped);
}

RequestRecord* CTzUSBEndPoint::StartBufferedTransfer(std::uint8_t* buffer, std::uint32_t length,
                                                     OVERLAPPED* overlapped) {
  RequestRecord* const record = PrepareRecord(buffer, length, 0, true);
  if (!record) return nullptr;
  return Send(driver_request::kBufferedTransfer, record, nullptr, length, overlapped);
}

bool CTzUSBEndPoint::TakeBack(RequestRecord* record) {
  CancelIoEx(driver_.Handle(), &record->block_);
  if (EndsWithin(driver_.Handle(), record->block_, kDriverReleaseMs)) return true;
  if (record->aborted_) return false;
  // Some drivers heed this alone.
  AbortTransfers();
  return EndsWithin(driver_.Handle(), record->block_, kDriverReleaseMs);
}

// In the direct form the driver has the caller's own memory, which it writes into when the bytes go
// that way. Memory of bytes that were to be sent goes as always, and its place serves others.
void CTzUSBEndPoint::GiveUp(std::span<const std::uint8_t> buffer) {
  if (is_in_ && record_->payload_offset_ == 0) NoteKept(buffer);
  KeepForGood(std::move(record_));
  driver_.GiveUp();
}

bool CTzUSBEndPoint::CompleteTransfer(std::uint8_t* buffer, std::uint32_t& length, OVERLAPPED*,
                                      RequestRecord* record, std::uint8_t* packet_table) {
  length = 0;
  bytes_transferred_ = 0;
  if (!record) return false;

  DWORD count = 0;
  const bool succeeded =
      GetOverlappedResult(driver_.Handle(), &record->block_, &count, FALSE) != FALSE;
  // A refused request may look incomplete for ever: the system marks the block before it asks the
  // driver. There is nothing to wait for then.
  if (!succeeded && GetLastError() == ERROR_IO_INCOMPLETE && record->in_flight_) {
    if (!TakeBack(record)) {
      GiveUp({buffer, record->RequestedLength()});
      return false;
    }
    count = 0;
  }

  const std::uint8_t* const bytes = record->Bytes();
  // The count includes the record where the payload travels in it. It is the driver's word, and no
  // reason to believe that more moved than was asked for.
  if (count > record->payload_offset_) {
    length = std::min<std::uint32_t>(count - record->payload_offset_, record->RequestedLength());
  }
  bytes_transferred_ = length;
  driver_.CountBytes(length);
  bus_status_ = LoadLe32(bytes + request_record::kBusStatus);
  driver_status_ = LoadLe32(bytes + request_record::kDriverStatus);
  if (is_in_ && record->payload_offset_ != 0 && length > 0) {
    std::memcpy(buffer, bytes + record->payload_offset_, length);
  }
  if (packet_table && length >= 1) {
    std::memcpy(packet_table, bytes + request_record::kHeaderBytes, record->packet_table_bytes_);
  }
  record->Release();
  return succeeded && bus_status_ == 0 && driver_status_ == 0;
}

bool CTzUSBEndPoint::WaitTransfer(OVERLAPPED* overlapped, std::uint32_t timeout_ms) {
  if (last_error_ == ERROR_SUCCESS) return true;
  if (last_error_ != ERROR_IO_PENDING) return false;
  // The largest number is seven weeks to a client that set it, but no limit to the system.
  const DWORD limit_ms = std::min<DWORD>(timeout_ms, INFINITE - 1);
  return WaitForSingleObject(overlapped->hEvent, limit_ms) == WAIT_OBJECT_0;
}

bool CTzUSBEndPoint::WaitOrAbort(RequestRecord* record) {
  if (WaitTransfer(&record->block_, timeout_ms_)) return true;
  if (last_error_ == ERROR_IO_PENDING) {
    AbortTransfers();
    record->aborted_ = true;
    EndsWithin(driver_.Handle(), record->block_, kDriverReleaseMs);
  }
  return false;
}

bool CTzUSBEndPoint::Transfer(std::uint8_t* buffer, std::uint32_t& length,
                              std::uint8_t* packet_table) {
  if (!transfer_event_) transfer_event_.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  if (!transfer_event_) {
    last_error_ = GetLastError();
    length = 0;
    return false;
  }
  OVERLAPPED overlapped{};
  overlapped.hEvent = transfer_event_.Get();
  RequestRecord* const record = StartTransfer(buffer, length, &overlapped);
  const bool waited = record && WaitOrAbort(record);
  const bool completed = CompleteTransfer(buffer, length, &overlapped, record, packet_table);
  return waited && completed;
}

bool CTzUSBEndPoint::SendPipeRequest(std::uint32_t code) {
  std::uint32_t returned = 0;
  return CallDriver(driver_, code, {&address_, 1}, {}, returned);
}

bool CTzUSBEndPoint::AbortTransfers() { return SendPipeRequest(driver_request::kAbortPipe); }

bool CTzUSBEndPoint::ResetPipe() { return SendPipeRequest(driver_request::kResetPipe); }

std::uint32_t CTzUSBEndPoint::WholePackets(std::uint32_t size) const {
  if (max_packet_size_ == 0) return size;
  const std::uint64_t packets = (std::uint64_t{size} + max_packet_size_ - 1) / max_packet_size_;
  return static_cast<std::uint32_t>(packets * max_packet_size_);
}

void CTzUSBEndPoint::SetTransferSize(std::uint32_t size) {
  std::array<std::uint8_t, driver_request::kTransferSizeBytes> request{address_};
  StoreLe32(request.data() + 1, WholePackets(size));
  std::uint32_t returned = 0;
  CallDriver(driver_, driver_request::kSetTransferSize, request, request, returned);
}

RequestRecord* CTzBulkEndPoint::StartTransfer(std::uint8_t* buffer, std::uint32_t length,
                                              OVERLAPPED* overlapped) {
  return IsDirect() ? StartDirectTransfer(buffer, length, overlapped)
                    : StartBufferedTransfer(buffer, length, overlapped);
}

RequestRecord* CTzInterruptEndPoint::StartTransfer(std::uint8_t* buffer, std::uint32_t length,
                                                   OVERLAPPED* overlapped) {
  return IsDirect() ? StartDirectTransfer(buffer, length, overlapped)
                    : StartBufferedTransfer(buffer, length, overlapped);
}
