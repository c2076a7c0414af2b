#include "usb/kept_memory.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

namespace {

struct KeptMemory {
  std::atomic<bool> any = false;
  std::mutex mutex;  // guards the two below
  std::vector<std::span<const std::uint8_t>> ranges;
  std::vector<std::shared_ptr<void>> owners;
};

KeptMemory& Kept() {
  static auto& kept = *new KeptMemory;
  return kept;
}

}  // namespace

void NoteKept(std::span<const std::uint8_t> bytes) {
  KeptMemory& kept = Kept();
  const std::lock_guard lock(kept.mutex);
  kept.ranges.push_back(bytes);
  kept.any = true;
}

bool IsKept(std::span<const std::uint8_t> bytes) {
  if (!IsAnythingKept()) return false;
  KeptMemory& kept = Kept();
  const std::lock_guard lock(kept.mutex);
  return std::ranges::any_of(kept.ranges, [&](const std::span<const std::uint8_t>& range) {
    return range.data() < bytes.data() + bytes.size() && bytes.data() < range.data() + range.size();
  });
}

bool IsAnythingKept() { return Kept().any.load(std::memory_order_relaxed); }

void KeepForGood(std::shared_ptr<void> owner) {
  KeptMemory& kept = Kept();
  const std::lock_guard lock(kept.mutex);
  kept.owners.push_back(std::move(owner));
  kept.any = true;
}

ReplyBuffer::ReplyBuffer(std::size_t size)
    : size_(size), bytes_(size == 0 ? nullptr : std::make_unique<std::uint8_t[]>(size)) {}

ReplyBuffer::~ReplyBuffer() { LetGo(); }

void ReplyBuffer::Renew() {
  if (!IsKept(Bytes())) return;
  LetGo();
  bytes_ = std::make_unique<std::uint8_t[]>(size_);
}

void ReplyBuffer::LetGo() {
  if (IsKept(Bytes())) KeepForGood(std::shared_ptr<std::uint8_t[]>(std::move(bytes_)));
}
