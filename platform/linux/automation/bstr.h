// The memory of a counted string, for the parts of the layer that build strings in place.
#pragma once

#include <wtypes.h>

#include <cstddef>
#include <cstdint>

namespace linux_host {

// The bytes before the first character: padding, then the byte count.
inline constexpr std::size_t kBstrPrefixBytes = 8;

// Room for a string of `length` characters: prefix, characters and the final zero.
constexpr std::size_t BstrRoom(std::size_t length) {
  return kBstrPrefixBytes + (length + 1) * sizeof(OLECHAR);
}

// Makes a string of `length` characters in `memory`, which holds BstrRoom(length) bytes aligned to
// eight and stays the caller's: the string must not be freed. Its characters are uninitialised.
BSTR PlaceBstr(void* memory, std::uint32_t length);

}  // namespace linux_host
