// The SWD packet format between clients and probes: request headers, and the sizes and status bytes
// of replies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// A request is one header byte: bit 0 start, bit 1 access port, bit 2 read, bits 3 and 4 register
// address bits 2 and 3, bit 5 parity, bit 6 stop, bit 7 park. A write's 32 bits of data follow its
// header, little-endian. The reply holds, request by request, the data and a status byte for a
// read, and a status byte for a write.
namespace swd {

inline constexpr std::uint8_t kReadIdcode = 0xA5;        // debug port, register 0x0
inline constexpr std::uint8_t kWriteAccessPort4 = 0x8B;  // access port, register 0x4
inline constexpr std::uint8_t kWriteAccessPortC = 0xBB;  // access port, register 0xC
inline constexpr std::uint8_t kReadBit = 0x04;

inline constexpr std::size_t kHeaderSize = 1;
inline constexpr std::size_t kDataSize = 4;
inline constexpr std::size_t kReadReplySize = kDataSize + 1;
inline constexpr std::size_t kWriteReplySize = 1;

// Bit 0 set and bit 2 clear: the target acknowledged.
constexpr bool IsGoodStatus(std::uint8_t status) { return (status & 5) == 1; }

// Size of the reply to a packet of requests. A write that is cut short at the end of the packet
// counts as a whole one.
constexpr std::uint64_t ReplySize(std::span<const std::uint8_t> requests) {
  std::uint64_t size = 0;
  std::size_t position = 0;
  while (position < requests.size()) {
    const bool read = (requests[position] & kReadBit) != 0;
    size += read ? kReadReplySize : kWriteReplySize;
    position += read ? kHeaderSize : kHeaderSize + kDataSize;
  }
  return size;
}

}  // namespace swd
