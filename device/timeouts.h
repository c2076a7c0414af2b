// How long a transfer on each of a probe's endpoints may take, until a client says otherwise.
#pragma once

#include <cstdint>

namespace probe {

// Of a probe in use.
inline constexpr std::uint32_t kSerialOutTimeoutMs = 2000;
inline constexpr std::uint32_t kSerialInTimeoutMs = 1000;
inline constexpr std::uint32_t kStreamOutTimeoutMs = 1000;
inline constexpr std::uint32_t kStreamInTimeoutMs = 2000;
inline constexpr std::uint32_t kSwvInTimeoutMs = 100;

// Of a Wirefox probe in I2C mode.
inline constexpr std::uint32_t kI2cOutTimeoutMs = 2000;
inline constexpr std::uint32_t kI2cInTimeoutMs = 1500;

// For a reply that is not wanted.
inline constexpr std::uint32_t kDrainTimeoutMs = 50;

}  // namespace probe
