#include "sim/server/kernel_port.h"

#include <utility>

#include "sim/linux_status.h"

namespace sim {
namespace {

using probe_driver::UsbStatus;
using usbip::Kind;

constexpr std::uint8_t kDirectionIn = 0x80;
constexpr std::int32_t kConnectionReset = -104;        // ECONNRESET
constexpr std::int32_t kRemoteIo = -121;               // EREMOTEIO
constexpr std::uint32_t kNotIsochronous = 0xFFFFFFFF;  // as some kernels say
constexpr std::uint32_t kMaxTransferBytes = 64u << 20;

}  // namespace

KernelPort::KernelPort(std::unique_ptr<probe_driver::UsbDevice> device, int socket)
    : socket_(socket), device_(std::move(device)), thread_([this] { Serve(); }) {}

KernelPort::~KernelPort() {
  socket_.Shutdown();
  thread_.join();
}

void KernelPort::Serve() {
  usbip::Record record;
  while (socket_.Receive(record.data(), record.size())) {
    if (!Handle(usbip::Decode(record))) break;
    const std::lock_guard lock(transfers_mutex_);
    completed_.clear();
  }
  socket_.Shutdown();
}

bool KernelPort::Handle(const usbip::Command& command) {
  if (command.kind == Kind::kUnlink) Unlink(command);
  return command.kind == Kind::kUnlink || (command.kind == Kind::kSubmit && Submit(command));
}

bool KernelPort::Submit(const usbip::Command& command) {
  // No probe has an isochronous endpoint, and the kernel submits only to those that it was shown.
  const bool isochronous = command.packets != 0 && command.packets != kNotIsochronous;
  if (isochronous || command.length > kMaxTransferBytes) return false;
  auto made = std::make_unique<Transfer>();
  Transfer& transfer = *made;
  transfer.sequence = command.sequence;
  transfer.in = command.in;
  transfer.short_is_error = (command.flags & usbip::kShortIsError) != 0;
  // Not cleared: only what the device wrote is sent back.
  transfer.data.reset(new std::uint8_t[command.length]);
  if (!command.in && !socket_.Receive(transfer.data.get(), command.length)) return false;
  transfer.usb.endpoint = command.endpoint;
  if (command.in && command.endpoint != 0) transfer.usb.endpoint |= kDirectionIn;
  transfer.usb.setup = command.setup;
  transfer.usb.data = transfer.data.get();
  transfer.usb.length = command.length;
  transfer.usb.complete = [this, &transfer](probe_driver::UsbTransfer&) { OnCompleted(transfer); };
  {
    const std::lock_guard lock(transfers_mutex_);
    if (!in_flight_.emplace(command.sequence, std::move(made)).second) return false;
  }
  device_->Submit(transfer.usb);
  return true;
}

// Each of them is answered once: by the submission's end when that is still to come, otherwise
// here.
void KernelPort::Unlink(const usbip::Command& command) {
  probe_driver::UsbTransfer* taken_back = nullptr;
  {
    const std::lock_guard lock(transfers_mutex_);
    const auto it = in_flight_.find(command.taken_back);
    if (it != in_flight_.end()) {
      it->second->unlinked_by = command.sequence;
      taken_back = &it->second->usb;
    }
  }
  if (taken_back) {
    device_->Cancel(*taken_back);
  } else {
    const std::lock_guard lock(out_mutex_);
    Send(usbip::Answer(Kind::kUnlinked, command.sequence, 0));
  }
}

void KernelPort::OnCompleted(Transfer& transfer) {
  const probe_driver::UsbTransfer& usb = transfer.usb;
  std::unique_ptr<Transfer> owned;
  // From before it is missed in the table: the kernel breaks off when it hears that a submission
  // has ended already, and that one's answer comes afterwards.
  const std::lock_guard out_lock(out_mutex_);
  {
    const std::lock_guard lock(transfers_mutex_);
    const auto it = in_flight_.find(transfer.sequence);
    owned = std::move(it->second);
    in_flight_.erase(it);
  }
  const bool aborted = usb.status == UsbStatus::kAborted;
  if (transfer.unlinked_by == 0 || !aborted) {
    const bool too_short = transfer.in && transfer.short_is_error && usb.actual < usb.length;
    const std::int32_t status =
        usb.status == UsbStatus::kOk && too_short ? kRemoteIo : LinuxStatus(usb.status);
    Send(usbip::Answer(Kind::kSubmitted, transfer.sequence, status, usb.actual), usb.data,
         transfer.in ? usb.actual : 0);
  }
  if (transfer.unlinked_by != 0) {
    Send(usbip::Answer(Kind::kUnlinked, transfer.unlinked_by, aborted ? kConnectionReset : 0));
  }
  // Not before its bytes are on their way: the serving thread frees what has completed.
  const std::lock_guard lock(transfers_mutex_);
  completed_.push_back(std::move(owned));
}

// Waits as long as the kernel takes, which reads whatever else it does.
void KernelPort::Send(const usbip::Record& record, const std::uint8_t* payload, std::size_t size) {
  if (!socket_.Send(record, payload, size)) socket_.Shutdown();
}

}  // namespace sim
