// Measures a probe's JTAG chain and reads the identities of the devices in it (IEEE 1149.1).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

class CTzDevice;

namespace api {

// The longest chain that is measured, in bits: 100 devices with an IDCODE, or 3200 in bypass.
inline constexpr std::uint32_t kMaxChainLength = 3200;

// Puts an id into `ids` for each device, the one next to the probe's TDI first: its IDCODE, or 0
// for a device that shifts out a bypass bit. Leaves `ids` empty on failure and for an empty chain.
// The TAPs are left in Shift-DR. Statuses of the probe operations, and 1 for a chain whose two
// measurements disagree.
[[nodiscard]] std::uint32_t ScanJtagChain(CTzDevice& device, std::vector<std::uint32_t>& ids);

// The ids that `length` bits of a chain hold, of which only those in `received` (bit i of the
// stream is bit i mod 8 of byte i / 8) have come in; the others count as 0. In the order given by
// ScanJtagChain.
std::vector<std::uint32_t> ParseChain(std::span<const std::uint8_t> received, std::uint32_t length);

}  // namespace api
