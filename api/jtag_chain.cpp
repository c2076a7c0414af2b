#include "api/jtag_chain.h"

#include <algorithm>
#include <array>

#include "device/device.h"
#include "usb/kept_memory.h"

namespace api {
namespace {

// 12 cycles with TMS high to Test-Logic-Reset, where every device connects its IDCODE register or
// else its bypass bit; then TMS 0, 1, 0, 0 through Run-Test/Idle, Select-DR-Scan and Capture-DR to
// Shift-DR. TDI stays low.
constexpr std::array<std::uint8_t, 4> kResetToShiftDr = {0xF0, 0xF0, 0xF0, 0x20};
constexpr std::int32_t kResetToShiftDrCycles = 16;

// A byte of four cycles with TMS low, TDI high or low.
constexpr std::uint8_t kShiftOnes = 0x0F;
constexpr std::uint8_t kShiftZeros = 0x00;

constexpr std::uint32_t kCyclesPerStreamByte = 4;
constexpr std::uint32_t kBitsPerReplyByte = 8;
constexpr std::uint32_t kIdcodeBits = 32;
constexpr std::uint32_t kMeasurementsDisagree = 1;

using MeasureStream = std::array<std::uint8_t, kMaxChainLength / kCyclesPerStreamByte>;

bool BitAt(std::span<const std::uint8_t> bytes, std::uint32_t position) {
  const std::size_t byte = position / kBitsPerReplyByte;
  return byte < bytes.size() && (bytes[byte] >> (position % kBitsPerReplyByte) & 1) != 0;
}

std::uint32_t EnterShiftDr(CTzDevice& device) {
  auto cycles = kResetToShiftDr;
  return device.JTAG_BufferedIo(kResetToShiftDrCycles, cycles.data(), false, nullptr, false);
}

std::uint32_t ShiftThrough(CTzDevice& device, std::uint8_t pattern, std::uint8_t* reply) {
  MeasureStream stream;
  stream.fill(pattern);
  return device.JTAG_BufferedIo(kMaxChainLength, stream.data(), reply != nullptr, reply, false);
}

// Number of bits of this value before the first of the other, at most kMaxChainLength.
std::uint32_t LeadingBits(std::span<const std::uint8_t> reply, bool value) {
  std::uint32_t count = 0;
  while (count < kMaxChainLength && BitAt(reply, count) == value) ++count;
  return count;
}

// How many ones it takes to push the zeros out again must agree with how many zeros it took to push
// the ones out. A TDO line that stays low gives no end of zeros; it is taken as the empty chain
// that the first count then says.
std::uint32_t MeasureJtagChain(CTzDevice& device, std::uint32_t& length) {
  length = 0;
  const ReplyBuffer reply(kMaxChainLength / kBitsPerReplyByte);
  if (const std::uint32_t result = ShiftThrough(device, kShiftOnes, nullptr); result != 0) {
    return result;
  }
  if (const std::uint32_t result = ShiftThrough(device, kShiftZeros, reply.Data()); result != 0) {
    return result;
  }
  length = LeadingBits(reply.Bytes(), true);
  if (const std::uint32_t result = ShiftThrough(device, kShiftOnes, reply.Data()); result != 0) {
    return result;
  }
  const std::uint32_t zeros = LeadingBits(reply.Bytes(), false);
  return zeros != kMaxChainLength && zeros != length ? kMeasurementsDisagree : 0;
}

}  // namespace

std::uint32_t ScanJtagChain(CTzDevice& device, std::vector<std::uint32_t>& ids) {
  if (const std::uint32_t result = device.JTAG_Reset(); result != 0) return result;
  if (const std::uint32_t result = EnterShiftDr(device); result != 0) return result;
  std::uint32_t length = 0;
  if (const std::uint32_t result = MeasureJtagChain(device, length); result != 0) return result;
  if (length == 0) return 0;
  // Measuring has shifted the identities out; this captures them afresh.
  if (const std::uint32_t result = EnterShiftDr(device); result != 0) return result;

  // The chain is read in whole bytes. What a length that is no multiple of 8 leaves out, up to 7
  // bits, ParseChain takes for zeros: a device that begins there can only be one in bypass, which
  // shifts out a zero, and an IDCODE that ends there loses top bits of its version. So every device
  // is listed, in its place.
  const std::uint32_t read_bits = length / kBitsPerReplyByte * kBitsPerReplyByte;
  const std::vector<std::uint8_t> stream(read_bits / kCyclesPerStreamByte, kShiftZeros);
  const ReplyBuffer received(read_bits / kBitsPerReplyByte);
  const std::uint32_t result = device.JTAG_BufferedIo(static_cast<std::int32_t>(read_bits),
                                                      stream.data(), true, received.Data(), false);
  if (result != 0) return result;
  ids = ParseChain(received.Bytes(), length);
  return 0;
}

std::vector<std::uint32_t> ParseChain(std::span<const std::uint8_t> received,
                                      std::uint32_t length) {
  std::vector<std::uint32_t> ids;
  std::uint32_t position = 0;
  while (position < length) {
    if (!BitAt(received, position)) {
      ids.push_back(0);
      position += 1;
      continue;
    }
    // The first bit out of an IDCODE register is always a one.
    std::uint32_t idcode = 0;
    for (std::uint32_t bit = 0; bit < kIdcodeBits; ++bit) {
      if (BitAt(received, position + bit)) idcode |= std::uint32_t{1} << bit;
    }
    ids.push_back(idcode);
    position += kIdcodeBits;
  }
  // The bits of the device next to TDI leave the chain last.
  std::reverse(ids.begin(), ids.end());
  return ids;
}

}  // namespace api
