// SWD requests as a probe takes them, and the replies that it gives (ADIv5).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "client/numbers.h"

namespace client {

enum class SwdPort { kDebug, kAccess };

// The eight bits in front of each transfer: start, port, direction, address bits 2 and 3, parity
// over these four, stop, park.
std::uint8_t SwdRequestHeader(SwdPort port, bool read, std::uint32_t address);

// A status byte is good when bit 0 is set and bit 2 is clear.
bool IsGoodSwdStatus(std::uint8_t status);

// What a bad status byte says, for people.
std::string SwdStatusText(std::uint8_t status);

// A sequence of requests, made with their parity, and the walk through the reply to it.
class SwdPacket {
 public:
  struct Answer {
    bool read;
    std::uint8_t header;
    std::uint32_t value;  // what was read, or written
    std::uint8_t status;
  };

  void Read(SwdPort port, std::uint32_t address);
  void Write(SwdPort port, std::uint32_t address, std::uint32_t value);

  const Bytes& bytes() const { return bytes_; }
  std::size_t request_count() const { return requests_.size(); }

  // One answer for each request, in order; nothing when the reply's length does not fit.
  std::optional<std::vector<Answer>> Decode(std::span<const std::uint8_t> reply) const;

 private:
  struct Request {
    std::uint8_t header;
    std::uint32_t value;
  };

  Bytes bytes_;
  std::vector<Request> requests_;
};

}  // namespace client
