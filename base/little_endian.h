// Little-endian loads and stores by byte offset, for wire records, descriptors and packets.
#pragma once

#include <cstdint>

// The caller has checked that the bytes are there; no alignment is needed.
constexpr std::uint16_t LoadLe16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

constexpr std::uint32_t LoadLe32(const std::uint8_t* bytes) {
  return LoadLe16(bytes) | static_cast<std::uint32_t>(LoadLe16(bytes + 2)) << 16;
}

constexpr std::uint64_t LoadLe64(const std::uint8_t* bytes) {
  return LoadLe32(bytes) | static_cast<std::uint64_t>(LoadLe32(bytes + 4)) << 32;
}

constexpr void StoreLe16(std::uint8_t* bytes, std::uint16_t value) {
  bytes[0] = static_cast<std::uint8_t>(value);
  bytes[1] = static_cast<std::uint8_t>(value >> 8);
}

constexpr void StoreLe32(std::uint8_t* bytes, std::uint32_t value) {
  StoreLe16(bytes, static_cast<std::uint16_t>(value));
  StoreLe16(bytes + 2, static_cast<std::uint16_t>(value >> 16));
}

constexpr void StoreLe64(std::uint8_t* bytes, std::uint64_t value) {
  StoreLe32(bytes, static_cast<std::uint32_t>(value));
  StoreLe32(bytes + 4, static_cast<std::uint32_t>(value >> 32));
}
