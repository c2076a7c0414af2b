// One presence of a probe on the bus: its path, its endpoints and the transfers that wait at them.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/probe_driver/in_flight.h"
#include "platform/probe_driver/usb_bus.h"
#include "sim/fault.h"

namespace sim {

struct ProbeSlot;

using probe_driver::InFlight;

// A transfer that waits at its endpoint.
struct Pending {
  probe_driver::UsbTransfer* transfer = nullptr;
  std::shared_ptr<InFlight> owner;  // of the device object that submitted it
  std::uint64_t capture_id = 0;
  std::optional<Fault> fault{};
  bool held = false;         // by a fault: not before its time, or never
  std::uint64_t number = 0;  // names it for the end of its delay
};

struct EndpointQueue {
  bool halted = false;
  std::deque<Pending> transfers;
};

struct Attachment {
  static constexpr std::array<std::uint8_t, 6> kEndpoints = {0x00, 0x01, 0x02, 0x81, 0x84, 0x86};

  std::string path;
  std::uint8_t usb_address = 0;
  bool present = true;
  ProbeSlot* slot = nullptr;                            // lives as long as the bench
  std::array<EndpointQueue, kEndpoints.size()> queues;  // control, OUT, IN

  // Null when no probe has such an endpoint.
  EndpointQueue* Find(std::uint8_t endpoint) {
    for (std::size_t i = 0; i < kEndpoints.size(); ++i) {
      if (kEndpoints[i] == endpoint) return &queues[i];
    }
    return nullptr;
  }
};

// Transfers whose completion is due once the bench's lock has been given back.
class Completions {
 public:
  Completions() = default;
  Completions(const Completions&) = delete;
  Completions& operator=(const Completions&) = delete;

  void Add(probe_driver::UsbTransfer* transfer, std::shared_ptr<InFlight> owner) {
    if (count_ < first_.size()) {
      first_[count_++] = {transfer, std::move(owner)};
    } else {
      more_.emplace_back(transfer, std::move(owner));
    }
  }

  void Run() {
    for (std::size_t i = 0; i < count_; ++i) Complete(first_[i]);
    for (Item& item : more_) Complete(item);
  }

 private:
  using Item = std::pair<probe_driver::UsbTransfer*, std::shared_ptr<InFlight>>;

  static void Complete(Item& item) {
    if (item.first->complete) item.first->complete(*item.first);
    item.second->End();
  }

  std::array<Item, 3> first_;  // most calls complete one transfer, or an OUT and its IN
  std::size_t count_ = 0;
  std::vector<Item> more_;
};

}  // namespace sim
