#include "platform/probe_driver/probe_driver.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/little_endian.h"
#include "platform/probe_driver/driver_requests.h"

namespace probe_driver {
namespace {

// Bus status words for outcomes that the bus gives no word for, as the system's USB stack has them.
constexpr std::uint32_t kStatusStalled = 0xC0000004;
constexpr std::uint32_t kStatusOverrun = 0xC0000008;
constexpr std::uint32_t kStatusTransactionError = 0xC0000011;
constexpr std::uint32_t kStatusDeviceGone = 0xC0007000;
constexpr std::uint32_t kStatusCancelled = 0xC0010000;

struct Outcome {
  DriverError error;
  std::uint32_t bus_status;
  bool keeps_bytes;
};

Outcome OutcomeOf(UsbStatus status) {
  switch (status) {
    case UsbStatus::kOk:
      return {kSuccess, 0, true};
    case UsbStatus::kStall:
      return {kGeneralFailure, kStatusStalled, true};
    case UsbStatus::kAborted:
      return {kAborted, kStatusCancelled, false};
    case UsbStatus::kDisconnected:
      return {kDeviceNotConnected, kStatusDeviceGone, false};
    case UsbStatus::kOverrun:
      return {kGeneralFailure, kStatusOverrun, true};
    case UsbStatus::kError:
      break;
  }
  return {kGeneralFailure, kStatusTransactionError, true};
}

// The record rounds the client's time-out down to whole seconds. The driver waits a second longer,
// so that the client's own time-out, which is the exact one, always comes first (also that of 5 s
// for descriptors), and this one only ends what nobody watches.
std::uint32_t TimeOutMs(std::uint32_t seconds) {
  constexpr std::uint32_t kMaxSeconds = 0x7FFFFFFF / 1000;
  return seconds == 0 ? 0 : (std::min(seconds, kMaxSeconds - 1) + 1) * 1000;
}

}  // namespace

DriverRequest::DriverRequest() {
  transfer.complete = [this](UsbTransfer&) { driver->Complete(*this); };
}

ProbeDriver::ProbeDriver(std::unique_ptr<UsbDevice> device, DriverTimers& timers)
    : timers_(timers), device_(std::move(device)) {}

DriverError ProbeDriver::Submit(DriverRequest& request) {
  if ((request.input_size > 0 && !request.input) || (request.output_size > 0 && !request.output)) {
    return kInvalidParameter;
  }
  if (gone_.load(std::memory_order_relaxed)) return kDeviceNotConnected;
  switch (request.code) {
    case kControlTransfer:
      return SubmitControl(request);
    case kBufferedTransfer:
      return SubmitBuffered(request);
    case kDirectTransfer:
      return SubmitDirect(request);
    case kResetPipe:
    case kAbortPipe:
    case kSetTransferSize:
      return SubmitPipeRequest(request);
    default:
      return SubmitQuery(request);
  }
}

namespace {

// Checks the header of a buffered record, in which the payload travels between client and driver in
// both directions, and points the transfer at it.
DriverError TakePayload(DriverRequest& request, bool in) {
  const std::uint32_t offset = LoadLe32(request.input + record::kPayloadOffset);
  const std::uint32_t size = LoadLe32(request.input + record::kPayloadSize);
  if (offset < record::kHeaderSize || offset > request.input_size) return kInvalidParameter;
  if (size > request.input_size - offset) return kInvalidParameter;
  if (offset > request.output_size || size > request.output_size - offset) {
    return kInsufficientBuffer;
  }
  // The record that goes back is the one that came, with the status words and the payload changed.
  if (request.output != request.input) std::memmove(request.output, request.input, offset);
  request.transfer.data = (in ? request.output : request.input) + offset;
  request.transfer.length = size;
  request.record = request.output;
  request.header_size = offset;
  return kSuccess;
}

bool IsDataEndpoint(std::uint8_t address) { return (address & 0x0F) != 0; }

}  // namespace

DriverError ProbeDriver::SubmitControl(DriverRequest& request) {
  if (request.input_size < record::kHeaderSize) return kInvalidParameter;
  const std::uint8_t* header = request.input;
  SetupPacket setup;
  setup.request_type = header[record::kRequestType];
  setup.request = header[record::kRequest];
  setup.value = LoadLe16(header + record::kValue);
  setup.index = LoadLe16(header + record::kIndex);
  setup.length = LoadLe16(header + record::kLength);
  if (LoadLe32(header + record::kPacketTableSize) != 0) return kNotSupported;
  if (LoadLe32(header + record::kPayloadSize) < setup.length) return kInvalidParameter;
  const std::uint32_t seconds = LoadLe32(header + record::kTimeOutSeconds);

  const DriverError error = TakePayload(request, setup.request_type & kDirectionIn);
  if (error != kSuccess) return error;
  request.transfer.endpoint = 0;
  request.transfer.setup = setup;
  request.transfer.length = setup.length;  // the data stage is as long as the setup packet says
  request.time_out_ms = TimeOutMs(seconds);
  return SubmitTransfer(request);
}

DriverError ProbeDriver::SubmitBuffered(DriverRequest& request) {
  if (request.input_size < record::kHeaderSize) return kInvalidParameter;
  const std::uint8_t endpoint = request.input[record::kEndpoint];
  if (!IsDataEndpoint(endpoint)) return kInvalidParameter;
  DriverError error = TakePackets(request, LoadLe32(request.input + record::kPayloadOffset));
  if (error == kSuccess) error = TakePayload(request, endpoint & kDirectionIn);
  if (error != kSuccess) return error;
  request.transfer.endpoint = endpoint;
  return SubmitTransfer(request);
}

DriverError ProbeDriver::SubmitDirect(DriverRequest& request) {
  if (request.input_size < record::kHeaderSize) return kInvalidParameter;
  const std::uint8_t* header = request.input;
  if (!IsDataEndpoint(header[record::kEndpoint])) return kInvalidParameter;
  const DriverError error = TakePackets(request, request.input_size);
  if (error != kSuccess) return error;
  if (LoadLe32(header + record::kPayloadOffset) != 0 ||
      LoadLe32(header + record::kPayloadSize) != 0) {
    return kInvalidParameter;
  }
  request.transfer.endpoint = header[record::kEndpoint];
  request.transfer.data = request.output;
  request.transfer.length = request.output_size;
  request.record = request.input;
  request.header_size = 0;
  return SubmitTransfer(request);
}

// The table of an isochronous transfer's packets lies between the header and `table_end`.
DriverError ProbeDriver::TakePackets(DriverRequest& request, std::uint32_t table_end) {
  const std::uint32_t size = LoadLe32(request.input + record::kPacketTableSize);
  if (size == 0) return kSuccess;
  if (!device_->HasIsochronous()) return kNotSupported;
  const std::uint32_t offset = LoadLe32(request.input + record::kPacketTableOffset);
  const std::uint32_t end = std::min(table_end, request.input_size);
  if (offset < record::kHeaderSize || offset > end || size > end - offset ||
      size % record::kPacketEntrySize != 0) {
    return kInvalidParameter;
  }
  request.packet_table = offset;
  request.packets.resize(size / record::kPacketEntrySize);
  request.transfer.packets = request.packets;
  return kSuccess;
}

DriverError ProbeDriver::SubmitPipeRequest(DriverRequest& request) {
  if (request.input_size < 1) return kInvalidParameter;
  const std::uint8_t endpoint = request.input[0];
  switch (request.code) {
    case kResetPipe:
      if (!device_->ResetPipe(endpoint)) return kGeneralFailure;
      return Answer(request, nullptr, 0);
    case kAbortPipe:
      device_->AbortPipe(endpoint);
      return Answer(request, nullptr, 0);
    default: {
      constexpr std::uint32_t kSize = 5;
      if (request.input_size < kSize || !IsDataEndpoint(endpoint)) return kInvalidParameter;
      device_->SetTransferSize(endpoint, LoadLe32(request.input + 1));
      return Answer(request, request.input, kSize);
    }
  }
}

DriverError ProbeDriver::SubmitQuery(DriverRequest& request) {
  const DriverFacts facts = device_->Facts();
  const auto answer_u32 = [&](std::uint32_t value) {
    std::uint8_t bytes[4];
    StoreLe32(bytes, value);
    return Answer(request, bytes, sizeof(bytes));
  };
  const auto answer_text = [&](const std::string& text) {
    std::array<char, kTextSize> bytes = {};
    std::copy_n(text.data(), std::min<std::size_t>(text.size(), kTextSize - 1), bytes.data());
    return Answer(request, bytes.data(), kTextSize);
  };
  switch (request.code) {
    case kQueryDriverVersion:
      return answer_u32(facts.driver_version);
    case kQueryInterfaceVersion:
      return answer_u32(facts.interface_version);
    case kQueryAlternateSetting:
      return Answer(request, &facts.alternate_setting, 1);
    case kQueryUsbAddress:
      return Answer(request, &facts.usb_address, 1);
    case kQueryText:
      return answer_text(facts.text);
    case kQuerySecondText:
      return answer_text(facts.second_text);
    case kQuerySpeed:
      return answer_u32(facts.speed);
    default:
      return kInvalidFunction;
  }
}

// Completes a request that needs no transfer.
DriverError ProbeDriver::Answer(DriverRequest& request, const void* data, std::uint32_t size) {
  if (request.output_size < size) return kInsufficientBuffer;
  if (size > 0) std::memmove(request.output, data, size);
  request.bytes = size;
  request.complete(request);
  return kSuccess;
}

DriverError ProbeDriver::SubmitTransfer(DriverRequest& request) {
  request.driver = this;
  device_->Submit(request.transfer);

  // A transfer that is answered at once needs no timer. The completion may run at any moment: it
  // either finds the timer armed and stops it, or leaves the mark that this must be done here.
  using TimeOut = DriverRequest::TimeOut;
  if (request.time_out_ms == 0) return kSuccess;
  if (request.time_out_state.load(std::memory_order_acquire) == TimeOut::kOver) return kSuccess;
  const std::uint64_t timer =
      timers_.Start(request.time_out_ms, [this, &request] { Cancel(request); });
  request.timer = timer;
  TimeOut expected = TimeOut::kNone;
  if (!request.time_out_state.compare_exchange_strong(expected, TimeOut::kArmed)) {
    timers_.Stop(timer);
  }
  return kSuccess;
}

void ProbeDriver::Complete(DriverRequest& request) {
  using TimeOut = DriverRequest::TimeOut;
  if (request.time_out_ms != 0 &&
      request.time_out_state.exchange(TimeOut::kOver) == TimeOut::kArmed) {
    timers_.Stop(request.timer);
  }

  const UsbTransfer& transfer = request.transfer;
  const Outcome outcome = OutcomeOf(transfer.status);
  if (transfer.status == UsbStatus::kDisconnected) gone_.store(true, std::memory_order_relaxed);
  const std::uint32_t bus_status =
      transfer.bus_status != 0 ? transfer.bus_status : outcome.bus_status;
  StoreLe32(request.record + record::kDriverStatus, transfer.driver_status);
  StoreLe32(request.record + record::kBusStatus, bus_status);
  std::uint8_t* entry = request.record + request.packet_table;
  for (const UsbPacket& packet : request.packets) {
    StoreLe32(entry, packet.actual);
    StoreLe32(entry + record::kPacketStatus, OutcomeOf(packet.status).bus_status);
    entry += record::kPacketEntrySize;
  }

  const std::uint32_t moved = std::min(transfer.actual, transfer.length);
  request.error = outcome.error;
  request.bytes = outcome.keeps_bytes && (moved > 0 || outcome.error == kSuccess)
                      ? request.header_size + moved
                      : 0;
  request.complete(request);
}

}  // namespace probe_driver
