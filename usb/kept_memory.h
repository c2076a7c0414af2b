// Memory that a driver has not given back: it stays alive for good, whoever it belonged to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

// Any thread may call. What is kept grows with each probe that is given up, and only then.

// The driver may write into `bytes` at any time from now on.
void NoteKept(std::span<const std::uint8_t> bytes);

// Whether a driver may still write into a part of `bytes`. While no driver has kept anything, which
// is nearly always, this costs one load.
bool IsKept(std::span<const std::uint8_t> bytes);

// Whether a driver has kept a request, in whatever memory.
bool IsAnythingKept();

// Makes `owner` outlive the process's other objects.
void KeepForGood(std::shared_ptr<void> owner);

// Zeroed memory for what a device sends; null, and no allocation, for a size of 0. A driver that
// keeps the request on it keeps the memory as well: everything that a device's bytes land in is one
// of these, or asks IsKept before it is let go or used for something else. What is only sent needs
// no such care: a driver reads it at most.
class ReplyBuffer {
 public:
  explicit ReplyBuffer(std::size_t size);
  ~ReplyBuffer();
  ReplyBuffer(const ReplyBuffer&) = delete;
  ReplyBuffer& operator=(const ReplyBuffer&) = delete;

  std::uint8_t* Data() const { return bytes_.get(); }
  std::size_t Size() const { return size_; }
  std::span<std::uint8_t> Bytes() const { return {bytes_.get(), size_}; }

  // To be called before each use of a buffer that is used again: takes other, zeroed memory when a
  // driver has kept this.
  void Renew();

 private:
  void LetGo();

  std::size_t size_;
  std::unique_ptr<std::uint8_t[]> bytes_;
};
