#include "client/serve/bit_queue.h"

#include <algorithm>

namespace client {

void BitQueue::Add(bool bit) {
  if (size_ % 8 == 0) bytes_.push_back(0);
  if (bit) bytes_.back() |= static_cast<std::uint8_t>(1u << size_ % 8);
  ++size_;
}

void BitQueue::Add(bool bit, std::size_t count) {
  while (count > 0 && size_ % 8 != 0) {
    Add(bit);
    --count;
  }
  bytes_.resize(bytes_.size() + (count + 7) / 8, bit ? 0xFF : 0);
  Truncate(size_ + count);
}

void BitQueue::Add(std::span<const std::uint8_t> bits, std::size_t count) {
  bits = bits.first((count + 7) / 8);
  const std::size_t used = size_ % 8;
  if (used == 0) {
    bytes_.insert(bytes_.end(), bits.begin(), bits.end());
  } else {
    for (const std::uint8_t byte : bits) {
      bytes_.back() |= static_cast<std::uint8_t>(byte << used);
      bytes_.push_back(static_cast<std::uint8_t>(byte >> (8 - used)));
    }
  }
  Truncate(size_ + count);
}

void BitQueue::Clear() {
  bytes_.clear();
  size_ = 0;
}

BitQueue BitQueue::TakeBack(std::size_t count) {
  BitQueue taken;
  taken.bytes_ = SliceBits(bytes_, size_ - count, count);
  taken.size_ = count;
  Truncate(size_ - count);
  return taken;
}

void BitQueue::Truncate(std::size_t size) {
  size_ = size;
  bytes_.resize((size + 7) / 8);
  if (size % 8 != 0) bytes_.back() &= static_cast<std::uint8_t>((1u << size % 8) - 1);
}

Bytes SliceBits(std::span<const std::uint8_t> bits, std::size_t first, std::size_t count) {
  const std::size_t size = (count + 7) / 8;
  bits = bits.subspan(std::min(first / 8, bits.size()));
  Bytes slice(size);
  const std::size_t shift = first % 8;
  for (std::size_t i = 0; i < size; ++i) {
    const unsigned high = i + 1 < bits.size() ? bits[i + 1] : 0u;
    slice[i] = static_cast<std::uint8_t>((bits[i] | high << 8) >> shift);
  }
  if (count % 8 != 0) slice.back() &= static_cast<std::uint8_t>((1u << count % 8) - 1);
  return slice;
}

}  // namespace client
