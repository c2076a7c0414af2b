#include "device/stream_pipe.h"

#include "device/failure_log.h"
#include "usb/kept_memory.h"
#include "usb/usb_endpoint.h"

std::uint32_t TransferOn(CTzUSBEndPoint& endpoint, std::uint8_t* buffer, std::uint32_t& length,
                         const char* source) {
  if (endpoint.Transfer(buffer, length)) return 0;
  return LogFailure(source, endpoint.LastError());
}

StreamPipe::StreamPipe(CTzUSBEndPoint& endpoint, const wchar_t* event_name)
    : endpoint_(endpoint),
      // A driver that has kept a transfer may still signal the event of that name.
      event_(CreateEventW(nullptr, FALSE, FALSE, IsAnythingKept() ? nullptr : event_name)) {
  // Another kind of object may have the name, or another account the event.
  if (!event_) event_.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
}

StreamPipe::~StreamPipe() = default;

void StreamPipe::Start(std::uint8_t* buffer, std::uint32_t length) {
  overlapped_ = OVERLAPPED{};
  overlapped_.hEvent = event_.Get();
  buffer_ = buffer;
  record_ = endpoint_.StartTransfer(buffer, length, &overlapped_);
}

bool StreamPipe::Wait() {
  // Without a record nothing was started; the endpoint's last error may be of an earlier transfer.
  return record_ && endpoint_.WaitTransfer(&overlapped_, endpoint_.TimeoutMs());
}

bool StreamPipe::Complete(std::uint32_t& length) {
  RequestRecord* const record = record_;
  record_ = nullptr;
  return endpoint_.CompleteTransfer(buffer_, length, &overlapped_, record, nullptr);
}

bool StreamPipe::TransferOnce(std::uint8_t* buffer, std::uint32_t& length) {
  Start(buffer, length);
  const bool waited = Wait();
  static_cast<void>(Complete(length));
  if (!waited) endpoint_.AbortTransfers();
  return waited;
}
