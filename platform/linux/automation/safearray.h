// What the layer knows of an array beyond its public descriptor: the element type before it, and
// arrays over storage that somebody else owns.
#pragma once

#include <oaidl.h>

#include <cstddef>
#include <cstdint>

namespace linux_host {

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
