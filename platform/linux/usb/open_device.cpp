#include "platform/linux/usb/open_device.h"

#include <libusb.h>
#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <new>
#include <span>
#include <utility>
#include <vector>

#include "platform/linux/kernel/notices.h"
#include "platform/linux/usb/usb_errors.h"
#include "platform/probe_driver/in_flight.h"

namespace linux_host {
namespace {

using probe_driver::SetupPacket;
using probe_driver::UsbPacket;
using probe_driver::UsbStatus;
using probe_driver::UsbTransfer;

class Transfers;

// A request to libusb. All but isochronous ones are used again and again, so that no transfer
// allocates.
struct Request {
  explicit Request(std::size_t packets) : usb(libusb_alloc_transfer(static_cast<int>(packets))) {
    if (!usb) throw std::bad_alloc();
  }
  ~Request() { libusb_free_transfer(usb); }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  libusb_transfer* const usb;
  UsbTransfer* transfer = nullptr;            // null while it is not in flight, or given up
  std::shared_ptr<Transfers> owner;           // while it is in flight
  int cancels = 0;                            // that are being made: not used again meanwhile
  std::vector<std::uint8_t> control_block{};  // setup packet and payload
};

bool IsIn(const SetupPacket& setup) { return (setup.request_type & LIBUSB_ENDPOINT_IN) != 0; }

// What one opened device has in flight. Outlives it while the system does not let go of a transfer.
class Transfers : public std::enable_shared_from_this<Transfers> {
 public:
  explicit Transfers(std::shared_ptr<Attachment> attachment) : attachment_(std::move(attachment)) {}

  // 0, or libusb's error: the transfer then is not in flight.
  int Submit(UsbTransfer& transfer);
  // Cancels those for which `chosen` holds.
  template <typename Chosen>
  void Cancel(Chosen chosen);
  // Cancels everything, and waits for the end of it. False when the system has kept something: its
  // submitters are told that it has ended, and whether their buffers are in use even so.
  bool End(EventTurns& turns, std::chrono::seconds timeout);

 private:
  static void LIBUSB_CALL Completed(libusb_transfer* usb);
  // 0, or libusb's error.
  int Fill(Request& request, UsbTransfer& transfer);
  int FillPackets(libusb_transfer& usb, const UsbTransfer& transfer);
  std::shared_ptr<Request> Take(const UsbTransfer& transfer);
  // Ends the request's use. The transfer that it was for, unless that was given up.
  UsbTransfer* Finish(Request& request);
  bool GiveUp();

  const std::shared_ptr<Attachment> attachment_;
  probe_driver::InFlight count_;
  std::mutex mutex_;  // guards what follows, and the requests' `transfer`
  std::vector<std::shared_ptr<Request>> in_flight_;  // in the order of their submission
  std::vector<std::shared_ptr<Request>> free_;
};

std::shared_ptr<Request> Transfers::Take(const UsbTransfer& transfer) {
  const std::lock_guard lock(mutex_);
  const std::size_t packets = transfer.packets.size();
  if (packets != 0 || free_.empty()) return std::make_shared<Request>(packets);
  auto request = std::move(free_.back());
  free_.pop_back();
  return request;
}

int Transfers::Fill(Request& request, UsbTransfer& transfer) {
  libusb_transfer& usb = *request.usb;
  usb.actual_length = 0;  // of an earlier use
  if (transfer.endpoint == 0) {
    const SetupPacket& setup = transfer.setup;
    auto& block = request.control_block;
    block.resize(LIBUSB_CONTROL_SETUP_SIZE + setup.length);
    libusb_fill_control_setup(block.data(), setup.request_type, setup.request, setup.value,
                              setup.index, setup.length);
    if (!IsIn(setup)) {
      std::copy_n(transfer.data, setup.length, block.begin() + LIBUSB_CONTROL_SETUP_SIZE);
    }
    libusb_fill_control_transfer(&usb, attachment_->handle(), block.data(), Completed, &request, 0);
    return 0;
  }
  libusb_fill_bulk_transfer(&usb, attachment_->handle(), transfer.endpoint, transfer.data,
                            static_cast<int>(transfer.length), Completed, &request, 0);
  if (attachment_->IsInterrupt(transfer.endpoint)) usb.type = LIBUSB_TRANSFER_TYPE_INTERRUPT;
  return transfer.packets.empty() ? 0 : FillPackets(usb, transfer);
}

int Transfers::FillPackets(libusb_transfer& usb, const UsbTransfer& transfer) {
  const int found = libusb_get_max_iso_packet_size(libusb_get_device(usb.dev_handle), usb.endpoint);
  if (found <= 0) return found < 0 ? found : LIBUSB_ERROR_INVALID_PARAM;
  const auto size = static_cast<std::uint32_t>(found);
  const std::size_t count = transfer.packets.size();
  if (transfer.length == 0 || (transfer.length - 1) / size != count - 1) {
    return LIBUSB_ERROR_INVALID_PARAM;
  }
  usb.type = LIBUSB_TRANSFER_TYPE_ISOCHRONOUS;
  usb.num_iso_packets = static_cast<int>(count);
  libusb_set_iso_packet_lengths(&usb, size);
  usb.iso_packet_desc[count - 1].length =
      transfer.length - size * static_cast<std::uint32_t>(count - 1);
  return 0;
}

// What became of each packet; the end of the last that moved.
std::uint32_t TakePackets(const libusb_transfer& usb, std::span<UsbPacket> packets) {
  std::uint32_t place = 0;
  std::uint32_t end = 0;
  for (std::size_t i = 0; i < packets.size(); ++i) {
    const libusb_iso_packet_descriptor& packet = usb.iso_packet_desc[i];
    packets[i] = {.actual = packet.actual_length, .status = ErrorOfTransfer(packet.status).status};
    if (packet.actual_length != 0) end = place + packet.actual_length;
    place += packet.length;
  }
  return end;
}

int Transfers::Submit(UsbTransfer& transfer) {
  constexpr std::uint32_t kLargest = 0x7FFFFFFF;
  if (transfer.length > kLargest) return LIBUSB_ERROR_INVALID_PARAM;
  std::shared_ptr<Request> taken = Take(transfer);
  Request& request = *taken;
  int error = Fill(request, transfer);
  if (error != 0) return error;
  request.transfer = &transfer;
  request.owner = shared_from_this();
  count_.Begin();
  // Listed before it is submitted: it may complete at once, on the event thread.
  {
    const std::lock_guard lock(mutex_);
    in_flight_.push_back(std::move(taken));
  }
  error = libusb_submit_transfer(request.usb);
  if (error == 0) return 0;
  request.owner.reset();
  Finish(request);
  count_.End();
  return error;
}

UsbTransfer* Transfers::Finish(Request& request) {
  const std::lock_guard lock(mutex_);
  const libusb_transfer& usb = *request.usb;
  UsbTransfer* const transfer = std::exchange(request.transfer, nullptr);
  if (transfer) {
    transfer->status = ErrorOfTransfer(usb.status).status;
    transfer->actual = static_cast<std::uint32_t>(usb.actual_length);
    if (!transfer->packets.empty()) transfer->actual = TakePackets(usb, transfer->packets);
    if (transfer->endpoint == 0 && IsIn(transfer->setup)) {
      std::copy_n(request.control_block.begin() + LIBUSB_CONTROL_SETUP_SIZE, usb.actual_length,
                  transfer->data);
    }
  }
  const auto place = std::ranges::find(in_flight_, &request, &std::shared_ptr<Request>::get);
  if (usb.num_iso_packets == 0 && request.cancels == 0) free_.push_back(std::move(*place));
  in_flight_.erase(place);
  return transfer;
}

void Transfers::Completed(libusb_transfer* usb) {
  auto& request = *static_cast<Request*>(usb->user_data);
  const std::shared_ptr<Transfers> owner = std::move(request.owner);
  UsbTransfer* const transfer = owner->Finish(request);
  if (!transfer) return;  // given up, and counted then
  transfer->complete(*transfer);
  owner->count_.End();
}

// The latest first: the end of one starts the next. Without the lock, since the system waits for
// the controller: one that has completed meanwhile is left alone.
template <typename Chosen>
void Transfers::Cancel(Chosen chosen) {
  std::vector<std::shared_ptr<Request>> found;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& request : in_flight_) {
      if (!request->transfer || !chosen(*request->transfer)) continue;
      ++request->cancels;
      found.push_back(request);
    }
  }
  for (std::size_t i = found.size(); i-- > 0;) libusb_cancel_transfer(found[i]->usb);
  const std::lock_guard lock(mutex_);
  for (const auto& request : found) --request->cancels;
}

// False when there is nothing to give up any more.
//
// What the library still has is written to when it is collected. So these objects stay for good,
// also when that happens at last: it is within the handling of an event, where no device may be
// closed. The payload of control transfers, and what was sent, is not the submitter's by now.
bool Transfers::GiveUp() {
  std::vector<UsbTransfer*> given_up;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& request : in_flight_) {
      if (request->transfer) given_up.push_back(std::exchange(request->transfer, nullptr));
    }
  }
  if (given_up.empty()) return false;
  static std::mutex kept_mutex;
  static auto& kept = *new std::vector<std::shared_ptr<Transfers>>;
  {
    const std::lock_guard lock(kept_mutex);
    kept.push_back(shared_from_this());
  }
  for (UsbTransfer* const transfer : given_up) {
    transfer->status = UsbStatus::kDisconnected;
    transfer->kept = transfer->endpoint != 0 && (transfer->endpoint & LIBUSB_ENDPOINT_IN) != 0;
    transfer->complete(*transfer);
    count_.End();
  }
  return true;
}

bool Transfers::End(EventTurns& turns, std::chrono::seconds timeout) {
  Cancel([](const UsbTransfer&) { return true; });
  turns.WorkUntil([&] { return count_.IsNone(); }, EventTurns::Clock::now() + timeout);
  const bool gave_up = !count_.IsNone() && GiveUp();
  // For completions that have begun on other threads.
  count_.AwaitNone();
  return !gave_up;
}

class OpenDevice : public probe_driver::UsbDevice {
 public:
  OpenDevice(std::shared_ptr<Attachment> attachment, EventTurns& turns,
             std::chrono::seconds cancel_timeout)
      : attachment_(std::move(attachment)),
        turns_(turns),
        cancel_timeout_(cancel_timeout),
        transfers_(std::make_shared<Transfers>(attachment_)) {}

  ~OpenDevice() override {
    if (transfers_->End(turns_, cancel_timeout_)) {
      attachment_->Close();
    } else {
      // The handle stays open: the transfers that the system keeps belong to it.
      WriteJournal(LOG_ERR, "TzWirefoxService",
                   "Probe " + attachment_->node() + ": the system does not let go of a transfer.");
    }
  }

  bool HasIsochronous() const override { return true; }

  WaitingWork* Work() override { return &turns_; }

  probe_driver::DriverFacts Facts() override { return attachment_->facts(); }

  void Submit(UsbTransfer& transfer) override {
    transfer.actual = transfer.bus_status = transfer.driver_status = 0;
    if (attachment_->gone()) {
      Complete(transfer, UsbStatus::kDisconnected);
    } else if (AnswerFromCopy(transfer)) {
      Complete(transfer, UsbStatus::kOk);
    } else if (const int error = transfers_->Submit(transfer); error != 0) {
      Complete(transfer, ErrorOfCall(error).status);
    }
  }

  void Cancel(UsbTransfer& transfer) override {
    transfers_->Cancel([&](const UsbTransfer& other) { return &other == &transfer; });
  }

  void AbortPipe(std::uint8_t endpoint) override {
    transfers_->Cancel([=](const UsbTransfer& other) { return other.endpoint == endpoint; });
  }

  bool ResetPipe(std::uint8_t endpoint) override {
    if (attachment_->gone()) return false;
    // The control endpoint is ready again with the next setup packet.
    return endpoint == 0 || libusb_clear_halt(attachment_->handle(), endpoint) == 0;
  }

 private:
  static void Complete(UsbTransfer& transfer, UsbStatus status) {
    transfer.status = status;
    transfer.complete(transfer);
  }

  bool AnswerFromCopy(UsbTransfer& transfer) const {
    const SetupPacket& setup = transfer.setup;
    const bool asks = transfer.endpoint == 0 && setup.request_type == LIBUSB_ENDPOINT_IN &&
                      setup.request == LIBUSB_REQUEST_GET_DESCRIPTOR;
    if (!asks) return false;
    const auto copy = attachment_->DescriptorCopy(static_cast<std::uint8_t>(setup.value >> 8),
                                                  static_cast<std::uint8_t>(setup.value));
    if (copy.empty()) return false;
    const std::size_t size = std::min<std::size_t>(copy.size(), transfer.length);
    std::copy_n(copy.begin(), size, transfer.data);
    transfer.actual = static_cast<std::uint32_t>(size);
    return true;
  }

  const std::shared_ptr<Attachment> attachment_;
  EventTurns& turns_;
  const std::chrono::seconds cancel_timeout_;
  const std::shared_ptr<Transfers> transfers_;
};

}  // namespace

std::unique_ptr<probe_driver::UsbDevice> OpenUsbDevice(std::shared_ptr<Attachment> attachment,
                                                       EventTurns& turns,
                                                       std::chrono::seconds cancel_timeout) {
  if (!attachment->Open()) return nullptr;
  return std::make_unique<OpenDevice>(std::move(attachment), turns, cancel_timeout);
}

}  // namespace linux_host
