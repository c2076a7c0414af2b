// The records in which Linux' virtual host controller (vhci_hcd) passes the transfers to a device
// on to whoever plays that device, and takes their ends back. All numbers are big-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/probe_driver/usb_bus.h"

namespace sim::usbip {

// Both ways. What a transfer sends, or has received, stands behind its record.
inline constexpr std::size_t kRecordSize = 48;
using Record = std::array<std::uint8_t, kRecordSize>;

enum class Kind : std::uint32_t {
  kSubmit = 1,
  kUnlink = 2,  // takes back a submission
  kSubmitted = 3,
  kUnlinked = 4,
};

// Flags of a submission.
inline constexpr std::uint32_t kShortIsError = 0x0001;  // URB_SHORT_NOT_OK

// What the kernel sends.
struct Command {
  Kind kind{};
  std::uint32_t sequence = 0;
  bool in = false;
  std::uint8_t endpoint = 0;  // its number, without the direction
  std::uint32_t flags = 0;
  std::uint32_t taken_back = 0;  // kUnlink: the sequence number of the submission
  std::uint32_t length = 0;
  std::uint32_t packets = 0;  // isochronous ones
  probe_driver::SetupPacket setup;
};

constexpr std::uint32_t LoadBe32(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
         static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
}

constexpr void StoreBe32(std::uint8_t* bytes, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}

// The setup packet is little-endian, as on the wire.
constexpr probe_driver::SetupPacket LoadSetup(const std::uint8_t* bytes) {
  const auto word = [&](int at) {
    return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
  };
  return {bytes[0], bytes[1], word(2), word(4), word(6)};
}

constexpr Command Decode(const Record& record) {
  const auto word = [&](int number) {
    return LoadBe32(&record[4 * static_cast<unsigned>(number)]);
  };
  return {.kind = static_cast<Kind>(word(0)),
          .sequence = word(1),
          .in = word(3) != 0,
          .endpoint = static_cast<std::uint8_t>(word(4) & 0x0F),
          .flags = word(5),
          .taken_back = word(5),
          .length = word(6),
          .packets = word(8),
          .setup = LoadSetup(&record[40])};
}

// `actual` is the number of bytes that moved.
constexpr Record Answer(Kind kind, std::uint32_t sequence, std::int32_t status,
                        std::uint32_t actual = 0) {
  Record record{};
  StoreBe32(&record[0], static_cast<std::uint32_t>(kind));
  StoreBe32(&record[4], sequence);
  StoreBe32(&record[20], static_cast<std::uint32_t>(status));
  StoreBe32(&record[24], actual);
  return record;
}

}  // namespace sim::usbip
