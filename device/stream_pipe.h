// How streams move through an endpoint: blocking transfers, and transfers that run beside those of
// another endpoint.
#pragma once

#include <windows.h>

#include <cstdint>

#include "support/handle.h"

class CTzUSBEndPoint;
class RequestRecord;

// One transfer that blocks until it has ended. `length` goes in as the bytes asked for and comes
// out as the bytes moved. 0 on success, otherwise the endpoint's system error, which is logged for
// `source`; a failure without one counts as success.
[[nodiscard]] std::uint32_t TransferOn(CTzUSBEndPoint& endpoint, std::uint8_t* buffer,
                                       std::uint32_t& length, const char* source);

// Bytes to be sent, as endpoints take them: they have one kind of buffer for both directions and do
// not write into those of an OUT transfer. The memory must be writable all the same: the system may
// refuse other memory for a request that could also bring bytes.
inline std::uint8_t* SentBytes(const std::uint8_t* bytes) {
  return const_cast<std::uint8_t*>(bytes);
}

// The transfers of one endpoint, one after another, in the course of an exchange. Each Start is
// followed by Wait and Complete, in this order. The endpoint outlives the pipe.
class StreamPipe {
 public:
  // `event_name` is one of the two below. The event is private where the name cannot be had.
  StreamPipe(CTzUSBEndPoint& endpoint, const wchar_t* event_name);
  ~StreamPipe();
  StreamPipe(const StreamPipe&) = delete;
  StreamPipe& operator=(const StreamPipe&) = delete;

  // `buffer` is in use until Complete returns.
  void Start(std::uint8_t* buffer, std::uint32_t length);

  // Waits for the endpoint's time-out. False: the transfer did not start, or is still in flight.
  bool Wait();

  // Collects the transfer; one still in flight is ended and counts as failed, so that nothing is
  // left behind that could write into the buffer or signal the event of a later transfer, unless
  // the device had to be given up.
  // `length` is the bytes moved.
  bool Complete(std::uint32_t& length);

  // Start, Wait and Complete; after a wait that failed, ends what the pipe has pending. Only the
  // wait counts: true also when the transfer ended badly. `length` as in Complete.
  [[nodiscard]] bool TransferOnce(std::uint8_t* buffer, std::uint32_t& length);

  CTzUSBEndPoint& EndPoint() { return endpoint_; }

 private:
  CTzUSBEndPoint& endpoint_;
  KernelHandle event_;
  OVERLAPPED overlapped_{};
  RequestRecord* record_ = nullptr;
  std::uint8_t* buffer_ = nullptr;
};

inline constexpr wchar_t kOutEventName[] = L"TZUSB_OUT";
inline constexpr wchar_t kInEventName[] = L"TZUSB_IN";
