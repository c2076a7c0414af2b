// What an IN endpoint of a probe has to send: replies one after another, or a stream of bytes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <span>
#include <vector>

namespace sim {

class InPipe {
 public:
  void Clear() {
    replies_.clear();
    taken_ = 0;
  }

  // A reply ends with a short packet: one IN transfer brings at most one reply. An empty reply is a
  // packet of no bytes.
  void Send(std::vector<std::uint8_t> reply) { replies_.push_back(std::move(reply)); }

  // Stream bytes join those that still wait.
  void Stream(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) return;
    if (replies_.empty()) replies_.emplace_back();
    replies_.back().insert(replies_.back().end(), bytes.begin(), bytes.end());
  }

  bool empty() const { return replies_.empty(); }
  // Bytes that wait in the first reply.
  std::size_t waiting() const { return empty() ? 0 : replies_.front().size() - taken_; }

  // Moves at most `room` bytes of the first reply; what does not fit stays for the next transfer.
  std::uint32_t Take(std::uint8_t* out, std::uint32_t room) {
    if (empty()) return 0;
    const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(room, waiting()));
    if (count != 0) std::memcpy(out, replies_.front().data() + taken_, count);
    taken_ += count;
    if (taken_ == replies_.front().size()) {
      replies_.pop_front();
      taken_ = 0;
    }
    return count;
  }

 private:
  std::deque<std::vector<std::uint8_t>> replies_;
  std::size_t taken_ = 0;  // bytes of the first reply that have gone
};

}  // namespace sim
