// What an IN endpoint of a probe has to send: replies one after another, or a stream of bytes, both
// cut into packets.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <span>
#include <vector>

#include "sim/protocol.h"

namespace sim {

class InPipe {
 public:
  enum class End { kNone, kWhole, kOverrun };

  void Clear() {
    replies_.clear();
    taken_ = 0;
  }

  // A reply's last packet is the short one, if any is: nothing follows one that is full. An empty
  // reply is a packet of no bytes.
  void Send(std::vector<std::uint8_t> reply) { replies_.push_back(std::move(reply)); }

  // Stream bytes join those that still wait.
  void Stream(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) return;
    if (replies_.empty()) replies_.emplace_back();
    replies_.back().insert(replies_.back().end(), bytes.begin(), bytes.end());
  }

  // Bytes that wait in the first reply.
  std::size_t waiting() const { return replies_.empty() ? 0 : replies_.front().size() - taken_; }

  // The buffers are in use, so that what asks for more replies has to wait.
  bool IsFull() const {
    return replies_.size() >= kBuffers || waiting() >= kBuffers * protocol::kBulkPacket;
  }

  // Moves packets into a transfer of which `moved` bytes are there, until it is full or a short
  // packet ends it. Of a packet that is longer than the room that is left the rest is lost.
  End Fill(std::uint8_t* data, std::uint32_t length, std::uint32_t& moved) {
    while (!replies_.empty()) {
      const auto packet =
          static_cast<std::uint32_t>(std::min<std::size_t>(protocol::kBulkPacket, waiting()));
      const std::uint32_t count = std::min(packet, length - moved);
      if (count != 0) std::memcpy(data + moved, replies_.front().data() + taken_, count);
      moved += count;
      Drop(packet);
      if (count < packet) return End::kOverrun;
      if (packet < protocol::kBulkPacket || moved == length) return End::kWhole;
    }
    return End::kNone;
  }

 private:
  static constexpr std::size_t kBuffers = 4;

  void Drop(std::uint32_t packet) {
    taken_ += packet;
    if (taken_ < replies_.front().size()) return;
    replies_.pop_front();
    taken_ = 0;
  }

  std::deque<std::vector<std::uint8_t>> replies_;
  std::size_t taken_ = 0;  // bytes of the first reply that have gone
};

}  // namespace sim
