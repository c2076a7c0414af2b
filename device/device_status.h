// The statuses that probe operations give of their own; every other value but 0 is the probe's
// status byte or a system error code, passed on unchanged.
#pragma once

#include <cstdint>

namespace device_status {

inline constexpr std::uint32_t kSuccess = 0;
// An FPGA register access whose request failed, or an I2C transfer that timed out.
inline constexpr std::uint32_t kTransferFailed = 1;
// The operation is not possible: not in the probe's present mode, not on this class of probe, or
// not with these arguments; also an I2C transfer without its endpoint.
inline constexpr std::uint32_t kNotPossible = 5;
// No control endpoint, or no endpoint with the given address.
inline constexpr std::uint32_t kNoEndpoint = 6;
// A JTAG or SWD exchange of which some part failed or timed out; both pipes have been reset.
inline constexpr std::uint32_t kStreamFailed = 8;

}  // namespace device_status
