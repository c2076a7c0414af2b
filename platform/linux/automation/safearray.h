// What the layer knows of an array beyond its public descriptor: the element type before it, and
// arrays over storage that somebody else owns.
#pragma once

#include <oaidl.h>

#include <cstddef>
#include <cstdint>

namespace linux_host {

// While it lives, its thread makes no array of more bytes than that, so that a method which is to
// answer with a larger one learns it before it begins its work.
class ArrayLimit {
 public:
  explicit ArrayLimit(std::size_t bytes);
  ~ArrayLimit();
  ArrayLimit(const ArrayLimit&) = delete;
  ArrayLimit& operator=(const ArrayLimit&) = delete;

  // Whether an array was refused.
  bool was_exceeded() const { return was_exceeded_; }

  // Whether the calling thread may make an array of that many bytes.
  static bool Allows(std::size_t bytes);

 private:
  static thread_local ArrayLimit* current_;
  const std::size_t bytes_;
  bool was_exceeded_ = false;
};

// Bytes of an element of that type; 0 for types that arrays do not hold on this host.
ULONG ElementSize(VARTYPE type);

// A descriptor with the element type in front of it, as SafeArrayCreate lays them out.
struct TypedArray {
  std::uint64_t reserved = 0;
  std::uint32_t unused = 0;
  std::uint32_t type = 0;
  SAFEARRAY array{};
};
static_assert(offsetof(TypedArray, array) == 16);

// Whether the array is null or of one dimension of elements of that type.
bool IsArrayOf(SAFEARRAY* array, VARTYPE element_type);

// Makes `holder` an array of `count` bytes over `bytes`, which stay their owner's. Destroying it
// frees nothing; the one who receives it as an input must not write through it.
SAFEARRAY* BorrowBytes(TypedArray& holder, const void* bytes, std::uint32_t count);

}  // namespace linux_host
