#include "sim/server/bus_connection.h"

#include <utility>

namespace sim {
namespace {

using probe_driver::Frame;
using probe_driver::FrameHeader;
using probe_driver::FrameType;
using probe_driver::UsbStatus;

// Beyond these a user is not one of ours, or no longer reads.
constexpr std::size_t kMaxBytesInFlight = 512u << 20;
constexpr std::size_t kMaxUnsentBytes = 512u << 20;
constexpr std::size_t kMaxDevices = 1024;

}  // namespace

BusConnection::BusConnection(probe_driver::UsbBus& bus,
                             std::shared_ptr<probe_driver::FrameSocket> socket)
    : bus_(bus), socket_(std::move(socket)), writer_([this] { Write(); }) {}

BusConnection::~BusConnection() {
  {
    const std::lock_guard lock(out_mutex_);
    ending_ = true;
  }
  socket_->Shutdown();
  out_changed_.notify_one();
  writer_.join();
}

void BusConnection::Tell(bool arrived, const std::string& path) {
  Send({.type = arrived ? FrameType::kArrived : FrameType::kRemoved},
       reinterpret_cast<const std::uint8_t*>(path.data()), path.size());
}

void BusConnection::TellListed() { Send({.type = FrameType::kListed}, nullptr, 0); }

void BusConnection::Run() {
  FrameHeader header;
  while (socket_->Receive(header.data(), header.size())) {
    const std::optional<Frame> frame = probe_driver::DecodeFrame(header);
    if (!frame || !Handle(*frame)) break;
    const std::lock_guard lock(transfers_mutex_);
    completed_.clear();
  }
  socket_->Shutdown();
  devices_.clear();  // ends what is in flight, and waits for it
}

bool BusConnection::Handle(const Frame& frame) {
  switch (frame.type) {
    case FrameType::kOpen:
      return Open(frame);
    case FrameType::kSubmit:
      return Submit(frame);
    case FrameType::kClose:
      return devices_.erase(frame.device) == 1;
    case FrameType::kCancel:
      Cancel(frame);
      return true;
    case FrameType::kAbort: {
      probe_driver::UsbDevice* device = Find(frame.device);
      if (device) device->AbortPipe(frame.endpoint);
      return device != nullptr;
    }
    case FrameType::kReset: {
      probe_driver::UsbDevice* device = Find(frame.device);
      const bool done = device && device->ResetPipe(frame.endpoint);
      Send({.type = FrameType::kWasReset, .id = frame.id, .status = done ? 1u : 0u}, nullptr, 0);
      return true;
    }
    default:
      return false;
  }
}

probe_driver::UsbDevice* BusConnection::Find(std::uint32_t device) {
  const auto it = devices_.find(device);
  return it == devices_.end() ? nullptr : it->second.get();
}

bool BusConnection::Open(const Frame& frame) {
  std::vector<std::uint8_t> path(frame.payload);
  if (!socket_->Receive(path.data(), path.size()) || !probe_driver::IsPath(path)) return false;
  if (devices_.count(frame.device) != 0 || devices_.size() >= kMaxDevices) return false;
  auto device = bus_.OpenDevice({path.begin(), path.end()});
  Frame answer{.type = FrameType::kOpened, .id = frame.id, .status = device ? 1u : 0u};
  std::vector<std::uint8_t> facts;
  if (device) {
    facts = probe_driver::EncodeFacts(device->Facts());
    devices_.emplace(frame.device, std::move(device));
  }
  Send(answer, facts.data(), facts.size());
  return true;
}

bool BusConnection::Submit(const Frame& frame) {
  probe_driver::UsbDevice* device = Find(frame.device);
  if (!device) return false;
  auto transfer = std::make_unique<Transfer>();
  transfer->id = frame.id;
  transfer->device = frame.device;
  {
    const std::lock_guard lock(transfers_mutex_);
    bytes_in_flight_ += frame.length;
    if (bytes_in_flight_ > kMaxBytesInFlight) return false;
  }
  // Not cleared: an IN transfer sends back only what the device wrote.
  transfer->data.reset(new std::uint8_t[frame.length]);
  if (frame.payload != 0 && !socket_->Receive(transfer->data.get(), frame.payload)) return false;
  probe_driver::UsbTransfer& usb = transfer->usb;
  usb.endpoint = frame.endpoint;
  usb.setup = frame.setup;
  usb.data = transfer->data.get();
  usb.length = frame.length;
  usb.complete = [this, at = transfer.get()](probe_driver::UsbTransfer&) { OnCompleted(*at); };
  {
    const std::lock_guard lock(transfers_mutex_);
    if (!in_flight_.emplace(frame.id, std::move(transfer)).second) return false;
  }
  device->Submit(usb);
  return true;
}

void BusConnection::OnCompleted(Transfer& transfer) {
  const probe_driver::UsbTransfer& usb = transfer.usb;
  const bool in = probe_driver::IsInTransfer(usb.endpoint, usb.setup);
  const Frame frame{.type = FrameType::kCompleted,
                    .endpoint = usb.endpoint,
                    .id = transfer.id,
                    .device = transfer.device,
                    .length = usb.actual,
                    .status = static_cast<std::uint32_t>(usb.status),
                    .bus_status = usb.bus_status,
                    .driver_status = usb.driver_status};
  std::unique_ptr<Transfer> owned;
  {
    // Taken off the table first: the user may use the id again once it has the answer.
    const std::lock_guard lock(transfers_mutex_);
    const auto it = in_flight_.find(transfer.id);
    owned = std::move(it->second);
    in_flight_.erase(it);
    bytes_in_flight_ -= usb.length;
  }
  Send(frame, usb.data, in ? usb.actual : 0);
  // Not before its bytes are on their way: the reading thread frees what has completed.
  const std::lock_guard lock(transfers_mutex_);
  completed_.push_back(std::move(owned));
}

void BusConnection::Cancel(const Frame& frame) {
  probe_driver::UsbDevice* device = Find(frame.device);
  if (!device) return;
  probe_driver::UsbTransfer* usb = nullptr;
  {
    const std::lock_guard lock(transfers_mutex_);
    const auto it = in_flight_.find(frame.id);
    // A transfer that has completed stays valid until this thread handles its next frame.
    if (it != in_flight_.end() && it->second->device == frame.device) usb = &it->second->usb;
  }
  if (usb) device->Cancel(*usb);
}

void BusConnection::Send(Frame frame, const std::uint8_t* payload, std::size_t size) {
  frame.payload = static_cast<std::uint32_t>(size);
  const FrameHeader header = probe_driver::EncodeFrame(frame);
  const std::lock_guard lock(out_mutex_);
  if (ending_) return;
  std::size_t sent = 0;
  if (unsent_.empty()) {
    const ssize_t now = socket_->SendNow(header, payload, size);
    if (now < 0) {
      socket_->Shutdown();
      return;
    }
    sent = static_cast<std::size_t>(now);
    if (sent == header.size() + size) return;
  }
  std::vector<std::uint8_t> rest;
  rest.reserve(header.size() + size - sent);
  if (sent < header.size())
    rest.insert(rest.end(), header.begin() + static_cast<std::ptrdiff_t>(sent), header.end());
  const std::size_t of_payload = sent > header.size() ? sent - header.size() : 0;
  rest.insert(rest.end(), payload + of_payload, payload + size);
  unsent_bytes_ += rest.size();
  if (unsent_bytes_ > kMaxUnsentBytes) {
    socket_->Shutdown();
    return;
  }
  unsent_.push_back(std::move(rest));
  out_changed_.notify_one();
}

// A piece stays in the queue while it is being written, so that nothing overtakes it.
void BusConnection::Write() {
  std::unique_lock lock(out_mutex_);
  while (true) {
    out_changed_.wait(lock, [&] { return ending_ || !unsent_.empty(); });
    if (ending_) return;
    const std::vector<std::uint8_t>& piece = unsent_.front();
    lock.unlock();
    const bool sent = socket_->SendBytes(piece.data(), piece.size());
    lock.lock();
    if (!sent) {
      socket_->Shutdown();
      return;
    }
    unsent_bytes_ -= unsent_.front().size();
    unsent_.pop_front();
  }
}

}  // namespace sim
