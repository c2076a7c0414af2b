#include "platform/linux/devices/simulator_link.h"

#include <sys/un.h>

#include <algorithm>
#include <chrono>

namespace linux_host {

using probe_driver::Frame;
using probe_driver::FrameHeader;
using probe_driver::FrameSocket;
using probe_driver::FrameType;
using probe_driver::UsbStatus;
using probe_driver::UsbTransfer;

namespace {

constexpr std::chrono::seconds kBetweenAttempts(1);
constexpr std::chrono::seconds kMaxFirstWait(2);
// A bench that does not take or answer a frame for so long is lost, as if it had ended.
constexpr std::chrono::seconds kAnswerTimeout(10);

}  // namespace

void SimulatorLink::Run() {
  std::unique_lock lock(mutex_);
  while (!ending_) {
    lock.unlock();
    const Socket socket = Connect();
    lock.lock();
    if (socket && !ending_) {
      socket_ = socket;
      lock.unlock();
      ReadFrames(*socket);
      Lose(*socket);
      lock.lock();
    }
    settled_ = true;
    changed_.notify_all();
    changed_.wait_for(lock, kBetweenAttempts, [&] { return ending_; });
  }
}

SimulatorLink::Socket SimulatorLink::Connect() const {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socket_path_.size() >= sizeof address.sun_path) return nullptr;
  socket_path_.copy(address.sun_path, socket_path_.size());
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return nullptr;
  auto connected = std::make_shared<FrameSocket>(fd);
  const timeval send_timeout{.tv_sec = kAnswerTimeout.count(), .tv_usec = 0};
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return nullptr;
  }
  const std::string_view greeting = probe_driver::kBusGreeting;
  return connected->SendBytes(greeting.data(), greeting.size()) ? connected : nullptr;
}

void SimulatorLink::End() {
  const std::lock_guard lock(mutex_);
  ending_ = true;
  if (socket_) socket_->Shutdown();
  changed_.notify_all();
}

void SimulatorLink::AwaitFirstList() {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, kMaxFirstWait, [&] { return settled_; });
}

void SimulatorLink::ReadFrames(FrameSocket& socket) {
  FrameHeader header;
  while (socket.Receive(header.data(), header.size())) {
    const std::optional<Frame> frame = probe_driver::DecodeFrame(header);
    if (!frame || !Handle(socket, *frame)) return;
  }
}

// False: the frame breaks the rules, or the connection is lost.
bool SimulatorLink::Handle(FrameSocket& socket, const Frame& frame) {
  switch (frame.type) {
    case FrameType::kCompleted:
      return HandleCompleted(socket, frame);
    case FrameType::kOpened:
    case FrameType::kWasReset:
      return HandleAnswer(socket, frame);
    case FrameType::kArrived:
    case FrameType::kRemoved:
      return HandlePath(socket, frame);
    case FrameType::kListed: {
      const std::lock_guard lock(mutex_);
      settled_ = true;
      changed_.notify_all();
      return true;
    }
    default:
      return false;
  }
}

// The payload goes straight into the buffer of the transfer. The transfer stays in the table until
// then, so that a connection that is lost in the middle ends it like all the others.
bool SimulatorLink::HandleCompleted(FrameSocket& socket, const Frame& frame) {
  std::unique_lock lock(mutex_);
  const auto it = in_flight_.find(frame.id);
  if (it == in_flight_.end()) return false;
  UsbTransfer& transfer = *it->second.transfer;
  lock.unlock();
  const bool in = probe_driver::IsInTransfer(transfer.endpoint, transfer.setup);
  if (frame.length > transfer.length || (in ? frame.length : 0) != frame.payload) return false;
  if (frame.payload != 0 && !socket.Receive(transfer.data, frame.payload)) return false;
  transfer.actual = frame.length;
  transfer.bus_status = frame.bus_status;
  transfer.driver_status = frame.driver_status;
  lock.lock();
  auto waiting = in_flight_.extract(frame.id);
  lock.unlock();
  Complete(waiting.mapped(), static_cast<UsbStatus>(frame.status));
  return true;
}

void SimulatorLink::Complete(Waiting& waiting, UsbStatus status) {
  waiting.transfer->status = status;
  if (waiting.transfer->complete) waiting.transfer->complete(*waiting.transfer);
  waiting.owner->End();
}

bool SimulatorLink::HandleAnswer(FrameSocket& socket, const Frame& frame) {
  std::vector<std::uint8_t> payload(frame.payload);
  if (!socket.Receive(payload.data(), payload.size())) return false;
  const std::lock_guard lock(mutex_);
  const auto it = answers_.find(frame.id);
  if (it == answers_.end() || it->second->type != frame.type) return false;
  Answer& answer = *it->second;
  answer.ok = frame.status == 1;
  if (frame.type == FrameType::kOpened && answer.ok) {
    const auto facts = probe_driver::DecodeFacts(payload);
    if (!facts) return false;
    answer.facts = *facts;
  }
  answer.due = false;
  answers_.erase(it);
  changed_.notify_all();
  return true;
}

bool SimulatorLink::HandlePath(FrameSocket& socket, const Frame& frame) {
  std::vector<std::uint8_t> payload(frame.payload);
  if (!socket.Receive(payload.data(), payload.size())) return false;
  if (!probe_driver::IsPath(payload)) return false;
  const std::string path(payload.begin(), payload.end());
  const std::lock_guard lock(mutex_);
  const bool arrived = frame.type == FrameType::kArrived;
  // A device can be told twice when it comes while the first list is made.
  if (arrived ? paths_.insert(path).second : paths_.erase(path) != 0) Note(arrived, path);
  return true;
}

// The caller holds mutex_.
void SimulatorLink::Note(bool arrived, const std::string& path) {
  news_.Add(arrived, path);
  changed_.notify_all();
}

void SimulatorLink::Lose(FrameSocket& socket) {
  socket.Shutdown();
  std::unique_lock sending(sending_);
  std::unique_lock lock(mutex_);
  socket_ = nullptr;
  open_.clear();
  const auto ended = std::exchange(in_flight_, {});
  for (const auto& [id, answer] : std::exchange(answers_, {})) answer->due = false;
  for (const std::string& path : std::exchange(paths_, {})) Note(false, path);
  changed_.notify_all();
  lock.unlock();
  // A completion waits for the driver's time-out of its transfer when that is just running, and the
  // time-out sends a cancellation.
  sending.unlock();
  for (auto [id, waiting] : ended) Complete(waiting, UsbStatus::kDisconnected);
}

void SimulatorLink::Tell() {
  std::unique_lock lock(mutex_);
  while (!ending_) {
    lock.unlock();
    news_.Tell();
    lock.lock();
    changed_.wait(lock, [&] { return ending_ || !news_.IsEmpty(); });
  }
}

std::vector<std::string> SimulatorLink::Paths() {
  const std::lock_guard lock(mutex_);
  return {paths_.begin(), paths_.end()};
}

bool SimulatorLink::Send(const Socket& socket, Frame frame, const std::uint8_t* payload,
                         std::uint32_t size) {
  if (!socket) return false;
  frame.payload = size;
  if (socket->Send(probe_driver::EncodeFrame(frame), payload, size)) return true;
  socket->Shutdown();  // the reader then ends what is in flight
  return false;
}

void SimulatorLink::SendSmall(const Frame& frame) {
  const std::lock_guard sending(sending_);
  std::unique_lock lock(mutex_);
  if (open_.count(frame.device) == 0) return;
  const Socket socket = socket_;
  lock.unlock();
  Send(socket, frame, nullptr, 0);
}

std::optional<SimulatorLink::Answer> SimulatorLink::Ask(Frame frame, FrameType answer_type,
                                                        const std::string& payload) {
  Answer answer{.type = answer_type};
  {
    const std::lock_guard sending(sending_);
    std::unique_lock lock(mutex_);
    const Socket socket = socket_;
    if (!socket) return std::nullopt;
    frame.id = ++last_id_;
    answers_.emplace(frame.id, &answer);
    lock.unlock();
    Send(socket, frame, reinterpret_cast<const std::uint8_t*>(payload.data()),
         static_cast<std::uint32_t>(payload.size()));
  }
  std::unique_lock lock(mutex_);
  if (!changed_.wait_for(lock, kAnswerTimeout, [&] { return !answer.due; })) {
    Drop();
    changed_.wait(lock, [&] { return !answer.due; });
  }
  if (!answer.ok) return std::nullopt;
  return answer;
}

std::optional<SimulatorLink::Opened> SimulatorLink::Open(const std::string& path) {
  Frame frame{.type = FrameType::kOpen};
  {
    const std::lock_guard lock(mutex_);
    if (paths_.count(path) == 0) return std::nullopt;
    frame.device = ++last_device_;
    open_.insert(frame.device);
  }
  const std::optional<Answer> answer = Ask(frame, FrameType::kOpened, path);
  if (!answer) {
    const std::lock_guard lock(mutex_);
    open_.erase(frame.device);
    return std::nullopt;
  }
  return Opened{frame.device, answer->facts};
}

void SimulatorLink::Close(std::uint32_t device, probe_driver::InFlight& of_device) {
  SendSmall({.type = FrameType::kClose, .device = device});
  {
    const std::lock_guard lock(mutex_);
    open_.erase(device);
  }
  if (of_device.AwaitNoneFor(kAnswerTimeout)) return;
  {
    const std::lock_guard lock(mutex_);
    Drop();
  }
  // Only this process's reader is waited for now.
  of_device.AwaitNone();
}

// The caller holds mutex_. The reader then ends everything that waits for the bench.
void SimulatorLink::Drop() {
  if (socket_) socket_->Shutdown();
}

void SimulatorLink::Submit(std::uint32_t device,
                           const std::shared_ptr<probe_driver::InFlight>& owner,
                           UsbTransfer& transfer) {
  transfer.actual = transfer.bus_status = transfer.driver_status = 0;
  owner->Begin();
  Waiting waiting{&transfer, owner};
  if (transfer.length > probe_driver::kMaxTransferBytes) {
    Complete(waiting, UsbStatus::kError);
    return;
  }
  std::unique_lock sending(sending_);
  std::unique_lock lock(mutex_);
  const Socket socket = open_.count(device) != 0 ? socket_ : nullptr;
  if (!socket) {
    lock.unlock();
    sending.unlock();
    Complete(waiting, UsbStatus::kDisconnected);
    return;
  }
  const Frame frame{.type = FrameType::kSubmit,
                    .endpoint = transfer.endpoint,
                    .id = ++last_id_,
                    .device = device,
                    .length = transfer.length,
                    .setup = transfer.setup};
  in_flight_.emplace(frame.id, std::move(waiting));
  lock.unlock();
  const bool in = probe_driver::IsInTransfer(transfer.endpoint, transfer.setup);
  Send(socket, frame, transfer.data, in ? 0 : frame.length);
}

void SimulatorLink::Cancel(std::uint32_t device, UsbTransfer& transfer) {
  Frame frame{.type = FrameType::kCancel, .device = device};
  {
    const std::lock_guard lock(mutex_);
    const auto it = std::find_if(in_flight_.begin(), in_flight_.end(), [&](const auto& entry) {
      return entry.second.transfer == &transfer;
    });
    if (it == in_flight_.end()) return;
    frame.id = it->first;
  }
  SendSmall(frame);
}

void SimulatorLink::Abort(std::uint32_t device, std::uint8_t endpoint) {
  SendSmall({.type = FrameType::kAbort, .endpoint = endpoint, .device = device});
}

bool SimulatorLink::Reset(std::uint32_t device, std::uint8_t endpoint) {
  {
    const std::lock_guard lock(mutex_);
    if (open_.count(device) == 0) return false;
  }
  const Frame frame{.type = FrameType::kReset, .endpoint = endpoint, .device = device};
  return Ask(frame, FrameType::kWasReset, {}).has_value();
}

}  // namespace linux_host
