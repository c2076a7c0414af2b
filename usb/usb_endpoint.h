// The endpoints of a USB device of the probe driver: they build the driver's transfer records and
// run transfers, blocking or in flight while the caller does something else.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "support/handle.h"
#include "usb/driver_file.h"
#include "usb/request_record.h"
#include "usb/timeouts.h"

// The record of a transfer in flight, with the block that the system keeps its state in: all that
// the driver works on, but for the caller's buffer and event. Belongs to its endpoint; callers only
// hand it from the start to CompleteTransfer.
class RequestRecord {
 public:
  std::uint8_t* Bytes() { return size_ > kInlineBytes ? heap_.get() : inline_.data(); }
  std::uint32_t Size() const { return size_; }
  std::uint32_t RequestedLength() const { return requested_length_; }

 private:
  friend class CTzUSBEndPoint;

  // Records of direct transfers and of all the probes' short commands need no allocation, those of
  // buffered JTAG chunks one for all.
  static constexpr std::uint32_t kInlineBytes = request_record::kHeaderBytes + 64;
  static constexpr std::uint32_t kKeptBytes = 64 * 1024;

  // `size` bytes of undefined content; false when there is no memory for them.
  bool Prepare(std::uint64_t size, std::uint32_t requested_length);
  void Release();

  OVERLAPPED block_{};
  std::array<std::uint8_t, kInlineBytes> inline_;
  std::unique_ptr<std::uint8_t[]> heap_;
  std::uint32_t heap_bytes_ = 0;
  std::uint32_t size_ = 0;
  std::uint32_t requested_length_ = 0;
  // As they were sent: the driver may write over the record's own fields.
  std::uint32_t payload_offset_ = 0;
  std::uint32_t packet_table_bytes_ = 0;
  bool in_use_ = false;
  bool in_flight_ = false;  // started, and not completed at once
  bool aborted_ = false;    // its pipe was aborted when it had timed out
};

// Not locked: one thread at a time, and one transfer in flight per endpoint. Different endpoints of
// one device may carry transfers at the same time. Every start that returned a record is followed
// by exactly one CompleteTransfer, also after a failed wait; until then the caller's buffer and
// event stay alive and untouched.
//
// No wait is without limit. A driver that keeps a transfer when it is cancelled, and when its pipe
// is aborted, makes the device be given up: everything that is started on its endpoints from then
// on is refused (1167). Record and block then stay alive for good; so does a buffer that the driver
// was given itself to write into, when the caller's memory heeds what usb/kept_memory.h says.
class CTzUSBEndPoint {
 public:
  // `driver` is the file of the device, which outlives the endpoint and stays open as long as it is
  // used. `descriptor` is null (then the fields stay zero) or has the 7 bytes of an
  // endpoint descriptor, which are copied.
  CTzUSBEndPoint(DriverFile& driver, const std::uint8_t* descriptor);
  CTzUSBEndPoint(const CTzUSBEndPoint&) = delete;
  CTzUSBEndPoint& operator=(const CTzUSBEndPoint&) = delete;

  // The start operations issue the request and return without waiting. `overlapped` has an
  // auto-reset event of the caller's and is otherwise zero; the transfer uses a copy of it, so that
  // it may go when a driver keeps the transfer. LastError() is then 997 while the
  // transfer is in flight, 0 when it completed at once, else why the system refused it. They return
  // null, and nothing was started, when the driver's file is closed (6) or the device given up
  // (1167), a transfer is in flight already (170), memory is short (8), or an isochronous transfer
  // has no packets (87).
  virtual RequestRecord* StartDirectTransfer(std::uint8_t* buffer, std::uint32_t length,
                                             OVERLAPPED* overlapped);
  virtual RequestRecord* StartBufferedTransfer(std::uint8_t* buffer, std::uint32_t length,
                                               OVERLAPPED* overlapped);
  virtual RequestRecord* StartTransfer(std::uint8_t* buffer, std::uint32_t length,
                                       OVERLAPPED* overlapped) = 0;

  // Collects a started transfer without waiting for it and releases its record. `length` receives
  // the payload bytes moved. `packet_table` is null or has room for the record's packet table (8
  // bytes per packet), which is copied there when bytes have moved. True when the request ended
  // well and both status words are 0.
  //
  // A transfer that is still in flight counts as failed with 0 bytes. It is cancelled before this
  // returns, and when that does not help its pipe is aborted, since the driver must not write into
  // a freed or reused buffer. So the caller may free or reuse it at once, unless the device was
  // given up. `record` null: false, `length` 0.
  virtual bool CompleteTransfer(std::uint8_t* buffer, std::uint32_t& length, OVERLAPPED* overlapped,
                                RequestRecord* record, std::uint8_t* packet_table);

  // Behind the four operations above, whose places in the table are fixed.
  virtual ~CTzUSBEndPoint();

  // True when the started transfer has ended within `timeout_ms`. A time-out leaves it in flight.
  bool WaitTransfer(OVERLAPPED* overlapped, std::uint32_t timeout_ms);

  // The blocking transfer: start, wait for TimeoutMs() (then abort the pipe, once, and wait for the
  // driver to let go), complete. `length` goes in as the bytes asked for and comes out as the bytes
  // moved. After a failure LastError() is the code of the failed start, or 997 after a time-out.
  bool Transfer(std::uint8_t* buffer, std::uint32_t& length, std::uint8_t* packet_table = nullptr);

  // Ends whatever the pipe has pending; true when the driver accepted the request.
  bool AbortTransfers();
  bool ResetPipe();

  // Tells the driver to move data in pieces of WholePackets(size) bytes.
  void SetTransferSize(std::uint32_t size);

  // `size` bytes rounded up to a multiple of the packet size.
  std::uint32_t WholePackets(std::uint32_t size) const;

  std::uint8_t Address() const { return address_; }
  std::uint8_t Attributes() const { return attributes_; }
  std::uint16_t MaxPacketSize() const { return max_packet_size_; }
  std::uint16_t PacketsPerMicroframe() const { return packets_per_microframe_; }
  std::uint8_t Interval() const { return interval_; }
  bool IsIn() const { return is_in_; }
  bool IsDirect() const { return direct_ == 1; }
  void SetDirect(bool direct) { direct_ = direct ? 1 : 0; }
  std::uint32_t TimeoutMs() const { return timeout_ms_; }
  void SetTimeoutMs(std::uint32_t timeout_ms) { timeout_ms_ = timeout_ms; }

  // Of the last transfer: the status words that the driver wrote, the payload bytes moved and the
  // system's code.
  std::uint32_t BusStatus() const { return bus_status_; }
  std::uint32_t DriverStatus() const { return driver_status_; }
  std::uint32_t BytesTransferred() const { return bytes_transferred_; }
  std::uint32_t LastError() const { return last_error_; }

 protected:
  // A record with a zeroed header and packet table, the endpoint address, and the payload copied
  // from `buffer`; or null as the start operations return it. `payload` false: the direct forms.
  RequestRecord* PrepareRecord(const std::uint8_t* buffer, std::uint32_t length,
                               std::uint64_t packet_table_bytes, bool payload);

  // Sends the record as `code`. The output is the record itself, or for one without payload
  // `direct_buffer`.
  RequestRecord* Send(std::uint32_t code, RequestRecord* record, std::uint8_t* direct_buffer,
                      std::uint32_t length, OVERLAPPED* overlapped);

  RequestRecord* Refuse(std::uint32_t error);

  DriverFile& driver_;
  std::uint8_t descriptor_length_ = 0;
  std::uint8_t descriptor_type_ = 0;
  std::uint8_t address_ = 0;
  std::uint8_t attributes_ = 0;
  std::uint16_t max_packet_size_ = 0;  // bytes per (micro)frame
  std::uint16_t packets_per_microframe_ = 0;
  std::uint8_t interval_ = 0;
  std::uint32_t timeout_ms_ = kDefaultTransferTimeoutMs;
  std::uint32_t bus_status_ = 0;
  std::uint32_t driver_status_ = 0;
  std::uint32_t bytes_transferred_ = 0;
  std::uint32_t last_error_ = 0;
  bool is_in_ = false;
  std::uint32_t direct_ = 1;

 private:
  // Waits for a started transfer; after a time-out aborts its pipe and waits until it has ended.
  bool WaitOrAbort(RequestRecord* record);
  // Ends a transfer in flight. False when the driver keeps it.
  bool TakeBack(RequestRecord* record);
  void GiveUp(std::span<const std::uint8_t> buffer);
  bool SendPipeRequest(std::uint32_t code);

  std::unique_ptr<RequestRecord> record_;  // null once the device is given up for its sake
  // Of Transfer, from its first call on. The system resets it whenever a request is started.
  KernelHandle transfer_event_;
};

// The next control request. Set the parts that differ, then call Transfer.
struct ControlRequest {
  std::uint32_t target = 0;        // 0 device, 1 interface, 2 endpoint, 3 other
  std::uint32_t request_type = 2;  // 0 standard, 1 class, 2 vendor
  std::uint32_t direction = 0;     // 0 host to device, 1 device to host
  std::uint8_t request_code = 0;   // bRequest
  std::uint16_t value = 0;         // wValue
  std::uint16_t index = 0;         // wIndex
};

class CTzControlEndPoint : public CTzUSBEndPoint {
 public:
  CTzControlEndPoint(DriverFile& driver, const std::uint8_t* descriptor);

  // Control transfers go both ways: IsIn() follows the request's direction.
  RequestRecord* StartTransfer(std::uint8_t* buffer, std::uint32_t length,
                               OVERLAPPED* overlapped) override;

  const ControlRequest& Request() const { return request_; }
  void SetRequest(const ControlRequest& request) { request_ = request; }

  // Makes this the descriptor of endpoint 0, which no device reports.
  void DescribeEndpointZero(std::uint8_t max_packet_size);

 private:
  ControlRequest request_;
};

class CTzIsocEndPoint : public CTzUSBEndPoint {
 public:
  using CTzUSBEndPoint::CTzUSBEndPoint;
  RequestRecord* StartDirectTransfer(std::uint8_t* buffer, std::uint32_t length,
                                     OVERLAPPED* overlapped) override;
  RequestRecord* StartBufferedTransfer(std::uint8_t* buffer, std::uint32_t length,
                                       OVERLAPPED* overlapped) override;
  RequestRecord* StartTransfer(std::uint8_t* buffer, std::uint32_t length,
                               OVERLAPPED* overlapped) override;

 private:
  // Bytes of the packet table for `length`, 0 when there are no packets.
  std::uint64_t PacketTableBytes(std::uint32_t length) const;
};

class CTzBulkEndPoint : public CTzUSBEndPoint {
 public:
  using CTzUSBEndPoint::CTzUSBEndPoint;
  RequestRecord* StartTransfer(std::uint8_t* buffer, std::uint32_t length,
                               OVERLAPPED* overlapped) override;
};

class CTzInterruptEndPoint : public CTzUSBEndPoint {
 public:
  using CTzUSBEndPoint::CTzUSBEndPoint;
  RequestRecord* StartTransfer(std::uint8_t* buffer, std::uint32_t length,
                               OVERLAPPED* overlapped) override;
};
