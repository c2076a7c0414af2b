// Bits in a row, the first in the lowest bit of the first byte, added at the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "client/numbers.h"

namespace client {

class BitQueue {
 public:
  std::size_t size() const { return size_; }
  bool operator[](std::size_t at) const { return (bytes_[at / 8] >> at % 8 & 1) != 0; }
  void Set(std::size_t at) { bytes_[at / 8] |= static_cast<std::uint8_t>(1u << at % 8); }

  void Add(bool bit);
  void Add(bool bit, std::size_t count);
  // The first `count` bits of `bits`, whose further ones are not looked at.
  void Add(std::span<const std::uint8_t> bits, std::size_t count);

  void Clear();
  // The last `count` bits, which leave the queue.
  BitQueue TakeBack(std::size_t count);

  // Bits beyond the last one are 0.
  const Bytes& bytes() const { return bytes_; }

 private:
  void Truncate(std::size_t size);

  Bytes bytes_;
  std::size_t size_ = 0;
};

// `count` bits of `bits` from bit `first` on.
Bytes SliceBits(std::span<const std::uint8_t> bits, std::size_t first, std::size_t count);

}  // namespace client
