// The transfers of a bench: where they wait, how a probe's answers and armed faults end them.
#include "sim/bench_core.h"

#include <algorithm>
#include <random>

namespace sim {
namespace {

using probe_driver::UsbStatus;
using probe_driver::UsbTransfer;

constexpr std::uint8_t kDirectionIn = 0x80;
// Standard requests that concern halts, by bmRequestType and bRequest.
constexpr std::uint16_t kEndpointStatus = 0x8200;
constexpr std::uint16_t kClearEndpoint = 0x0201;  // the only feature of an endpoint is its halt
constexpr std::uint16_t kHaltEndpoint = 0x0203;
constexpr std::uint16_t kSetConfiguration = 0x0009;
constexpr std::uint16_t kSetInterface = 0x010B;
constexpr std::uint32_t kMinFaultReply = 64;  // longest reply that a refusal fills

// Bytes that a reply has too many.
constexpr std::uint8_t kExcess = 0xEE;

bool ControlIn(const UsbTransfer& transfer) {
  return (transfer.setup.request_type & kDirectionIn) != 0;
}

// Changes some bytes of a descriptor, lengths and types among them more often than the rest.
void Corrupt(ControlReply& reply, std::uint32_t seed) {
  if (reply.size == 0) return;
  std::mt19937 random(seed);
  const std::uint32_t changes = 1 + random() % 4;
  for (std::uint32_t i = 0; i < changes; ++i) {
    const std::uint32_t reach = random() % 2 == 0 ? std::min(reply.size, 4u) : reply.size;
    reply.bytes[random() % reach] = static_cast<std::uint8_t>(random());
  }
}

}  // namespace

void BenchCore::Submit(const std::shared_ptr<Attachment>& attachment,
                       const std::shared_ptr<InFlight>& owner, UsbTransfer& transfer) {
  transfer.status = UsbStatus::kOk;
  transfer.actual = transfer.bus_status = transfer.driver_status = 0;
  owner->Begin();
  Session session(*this);
  Pending pending{.transfer = &transfer, .owner = owner};
  EndpointQueue* queue = attachment->Find(transfer.endpoint);
  if (attachment->present && capture_.is_open()) {
    pending.capture_id = capture_.Submitted(attachment->usb_address, transfer);
  }
  if (!attachment->present) {
    Finish(*attachment, pending, UsbStatus::kDisconnected, session.done());
    return;
  }
  ProbeSlot& slot = *attachment->slot;
  if (!queue || !slot.probe->HasEndpoint(transfer.endpoint)) {
    Finish(*attachment, pending, UsbStatus::kError, session.done());
    return;
  }
  if (!slot.faults.empty()) pending.fault = slot.faults.Take(transfer);
  if (pending.fault) Hold(*attachment, pending);
  if (!queue->transfers.empty() || !Process(*attachment, pending, *queue, session.done())) {
    // A fault may have taken the probe away, but then the transfer has ended.
    queue->transfers.push_back(std::move(pending));
  }
  if (attachment->present) Pump(*attachment, session.done());
}

void BenchCore::Hold(Attachment& attachment, Pending& pending) {
  if (pending.fault->kind == FaultKind::kSilent) pending.held = true;
  if (pending.fault->kind != FaultKind::kDelay) return;
  pending.held = true;
  pending.number = ++held_;
  const std::uint8_t endpoint = pending.transfer->endpoint;
  Later(*attachment.slot, pending.fault->value,
        [endpoint, number = pending.number](ProbeSlot& slot, Completions&) {
          for (Pending& waiting : slot.attachment->Find(endpoint)->transfers) {
            if (waiting.number == number) waiting.held = false;
          }
        });
}

// What is read from one endpoint lets another one go on.
void BenchCore::Pump(Attachment& attachment, Completions& done) {
  for (bool moved = true; moved;) {
    moved = false;
    for (EndpointQueue& queue : attachment.queues) {
      while (attachment.present && !queue.transfers.empty()) {
        // Taken off first: the probe may leave while the transfer is worked on.
        Pending pending = std::move(queue.transfers.front());
        queue.transfers.pop_front();
        const std::uint32_t before = pending.transfer->actual;
        const bool ended = Process(attachment, pending, queue, done);
        moved |= ended || pending.transfer->actual != before;
        if (ended) continue;
        queue.transfers.push_front(std::move(pending));
        break;
      }
    }
  }
}

// True when the transfer has ended.
bool BenchCore::Process(Attachment& attachment, Pending& pending, EndpointQueue& queue,
                        Completions& done) {
  if (pending.held) return false;
  if (pending.fault && pending.fault->kind == FaultKind::kStall) {
    queue.halted = pending.transfer->endpoint != 0;
    Finish(attachment, pending, UsbStatus::kStall, done);
    return true;
  }
  if (queue.halted) {
    Finish(attachment, pending, UsbStatus::kStall, done);
    return true;
  }
  if (pending.fault && pending.fault->kind == FaultKind::kUnplug) {
    ProcessUnplug(attachment, pending, done);
    return true;
  }
  const std::uint8_t endpoint = pending.transfer->endpoint;
  if (pending.fault && pending.fault->kind == FaultKind::kErrorStatus && endpoint != 0) {
    Finish(attachment, pending, UsbStatus::kError, done);
    return true;
  }
  if (endpoint == 0) {
    ProcessControl(attachment, pending, done);
  } else if ((endpoint & 0x80) != 0) {
    return ProcessIn(attachment, pending, done);
  } else {
    return ProcessOut(attachment, pending, done);
  }
  return true;
}

void BenchCore::ProcessControl(Attachment& attachment, Pending& pending, Completions& done) {
  UsbTransfer& transfer = *pending.transfer;
  const bool in = ControlIn(transfer);
  ProbeSlot& slot = *attachment.slot;
  ControlReply reply;
  const std::uint32_t sent =
      in ? 0 : std::min<std::uint32_t>(transfer.length, transfer.setup.length);
  if (pending.fault && pending.fault->kind == FaultKind::kErrorStatus) {
    reply.size = std::min<std::uint32_t>(transfer.setup.length, kMinFaultReply);
    std::fill_n(reply.bytes.begin(), std::max(reply.size, 1u), 0);
    reply.bytes[0] = static_cast<std::uint8_t>(std::max(pending.fault->value, 1u));
  } else {
    slot.probe->Control(transfer.setup, {transfer.data, sent}, reply);
  }
  if (reply.stall) {
    Finish(attachment, pending, UsbStatus::kStall, done);
    return;
  }
  ApplyHalts(attachment, transfer.setup, reply);
  if (in) {
    ApplyReply(pending, reply);
  } else {
    transfer.actual = sent;
  }
  Finish(attachment, pending, transfer.status, done);
  if (slot.probe->TakeStarted()) Restart(slot);
}

void BenchCore::ApplyHalts(Attachment& attachment, const probe_driver::SetupPacket& setup,
                           ControlReply& reply) {
  EndpointQueue* const queue = attachment.Find(static_cast<std::uint8_t>(setup.index));
  switch (setup.request_type << 8 | setup.request) {
    case kEndpointStatus:
      reply.bytes[0] = queue && queue->halted ? 1 : 0;
      break;
    case kHaltEndpoint:
      if (queue && setup.index != 0) queue->halted = true;
      break;
    case kClearEndpoint:
      ResetPipeLocked(attachment, static_cast<std::uint8_t>(setup.index));
      break;
    case kSetConfiguration:
    case kSetInterface:
      for (const std::uint8_t endpoint : Attachment::kEndpoints)
        ResetPipeLocked(attachment, endpoint);
      break;
    default:
      break;
  }
}

void BenchCore::ApplyReply(Pending& pending, ControlReply& reply) {
  UsbTransfer& transfer = *pending.transfer;
  if (pending.fault && pending.fault->kind == FaultKind::kCorruptDescriptor) {
    Corrupt(reply, pending.fault->value);
  } else if (pending.fault && pending.fault->kind == FaultKind::kShortReply) {
    reply.size = std::min(reply.size, pending.fault->value);
  } else if (pending.fault && pending.fault->kind == FaultKind::kWrongLength) {
    const auto room = static_cast<std::uint32_t>(reply.bytes.size()) - reply.size;
    const std::uint32_t excess = std::min(room, std::max(pending.fault->value, 1u));
    std::fill_n(reply.bytes.begin() + reply.size, excess, kExcess);
    reply.size += excess;
  }
  transfer.actual = std::min(reply.size, transfer.length);
  std::copy_n(reply.bytes.begin(), transfer.actual, transfer.data);
  if (reply.size > transfer.length) transfer.status = UsbStatus::kOverrun;
}

bool BenchCore::ProcessOut(Attachment& attachment, Pending& pending, Completions& done) {
  UsbTransfer& transfer = *pending.transfer;
  if (!attachment.slot->probe->Takes(transfer.endpoint)) return false;
  attachment.slot->probe->Out(transfer.endpoint, {transfer.data, transfer.length});
  transfer.actual = transfer.length;
  Finish(attachment, pending, UsbStatus::kOk, done);
  return true;
}

bool BenchCore::ProcessIn(Attachment& attachment, Pending& pending, Completions& done) {
  UsbTransfer& transfer = *pending.transfer;
  const InPipe::End end = attachment.slot->probe->in(transfer.endpoint)
                              .Fill(transfer.data, transfer.length, transfer.actual);
  if (end == InPipe::End::kNone) return false;
  UsbStatus status = end == InPipe::End::kOverrun ? UsbStatus::kOverrun : UsbStatus::kOk;
  if (pending.fault && pending.fault->kind == FaultKind::kShortReply) {
    transfer.actual = std::min(transfer.actual, pending.fault->value);
  } else if (pending.fault && pending.fault->kind == FaultKind::kWrongLength) {
    const std::uint32_t room = transfer.length - transfer.actual;
    const std::uint32_t excess = std::max(pending.fault->value, 1u);
    std::fill_n(transfer.data + transfer.actual, std::min(room, excess), kExcess);
    transfer.actual += std::min(room, excess);
    if (excess > room) status = UsbStatus::kOverrun;
  }
  Finish(attachment, pending, status, done);
  return true;
}

void BenchCore::ProcessUnplug(Attachment& attachment, Pending& pending, Completions& done) {
  UsbTransfer& transfer = *pending.transfer;
  ProbeSlot& slot = *attachment.slot;
  const std::uint32_t half = transfer.length / 2;
  if (transfer.endpoint != 0 && (transfer.endpoint & 0x80) == 0) {
    slot.probe->Out(transfer.endpoint, {transfer.data, half});
    transfer.actual = half;
  } else if (transfer.endpoint != 0) {
    slot.probe->in(transfer.endpoint).Fill(transfer.data, half, transfer.actual);
  }
  Finish(attachment, pending, UsbStatus::kDisconnected, done);
  Detach(slot, done);
}

void BenchCore::Finish(const Attachment& attachment, Pending& pending, UsbStatus status,
                       Completions& done) {
  pending.transfer->status = status;
  if (pending.capture_id != 0) {
    capture_.Completed(attachment.usb_address, pending.capture_id, *pending.transfer);
  }
  done.Add(pending.transfer, std::move(pending.owner));
}

void BenchCore::Cancel(Attachment& attachment, UsbTransfer& transfer) {
  Session session(*this);
  EndpointQueue* queue = attachment.Find(transfer.endpoint);
  if (!queue) return;
  const auto it = std::find_if(queue->transfers.begin(), queue->transfers.end(),
                               [&](const Pending& p) { return p.transfer == &transfer; });
  if (it == queue->transfers.end()) return;
  Finish(attachment, *it, UsbStatus::kAborted, session.done());
  queue->transfers.erase(it);
  if (attachment.present) Pump(attachment, session.done());
}

void BenchCore::Abort(Attachment& attachment, const InFlight& owner, int endpoint) {
  Session session(*this);
  for (std::size_t i = 0; i < attachment.queues.size(); ++i) {
    if (endpoint >= 0 && Attachment::kEndpoints[i] != endpoint) continue;
    auto& transfers = attachment.queues[i].transfers;
    for (auto it = transfers.begin(); it != transfers.end();) {
      if (it->owner.get() != &owner) {
        ++it;
        continue;
      }
      Finish(attachment, *it, UsbStatus::kAborted, session.done());
      it = transfers.erase(it);
    }
  }
  if (attachment.present) Pump(attachment, session.done());
}

bool BenchCore::ResetPipe(const std::shared_ptr<Attachment>& attachment, std::uint8_t endpoint) {
  Session session(*this);
  if (!attachment->present || !attachment->slot->probe->HasEndpoint(endpoint)) return false;
  ResetPipeLocked(*attachment, endpoint);
  Pump(*attachment, session.done());
  return true;
}

// The firmware drops what it still had to send on the endpoint, so that the next exchange starts
// clean.
void BenchCore::ResetPipeLocked(Attachment& attachment, std::uint8_t endpoint) {
  EndpointQueue* queue = attachment.Find(endpoint);
  if (!queue) return;
  queue->halted = false;
  if ((endpoint & 0x80) != 0) attachment.slot->probe->in(endpoint).Clear();
}

}  // namespace sim
