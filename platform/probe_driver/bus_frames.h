// The frames between a bus in one process and its devices' users in another, over a byte stream.
//
// The user of the bus connects and sends the eight bytes of kBusGreeting. From then on both sides
// send frames: a header of kFrameHeaderSize bytes, little-endian, then `payload` bytes. Every
// header has all fields; those that a type does not name are 0.
//
//   offset size field          offset size field
//        0    4 payload             24    8 setup packet, as on the wire
//        4    1 type                32    4 status (UsbStatus, or 0 and 1)
//        5    1 endpoint            36    4 bus status
//        6    2 0                   40    4 driver status
//        8    8 id                  44    4 0
//       16    4 device
//       20    4 length
//
// User to bus:
//   kOpen    id, payload: path              opens a device under `device`, a number of the user's
//   kClose   device                         closes it; what is in flight completes before
//   kSubmit  id, device, endpoint, setup,   starts a transfer of `length` bytes; the payload is the
//            length, payload                data of an OUT transfer, empty for an IN transfer
//   kCancel  id, device                     ends the transfer with that id
//   kAbort   device, endpoint               ends all that the device has pending on an endpoint
//   kReset   id, device, endpoint           resets a pipe
// Bus to user:
//   kArrived   payload: path                first for every present device, later as devices come
//   kListed    once, when the present devices have been told
//   kRemoved   payload: path
//   kOpened    id, status (1: opened), payload when opened: the driver's facts
//   kCompleted id, endpoint, status, bus status, driver status, length (bytes moved), payload: the
//              data of an IN transfer, `length` bytes
//   kWasReset  id, status (1: done)
//
// Ids are the user's and unique while their answer is due. A side that receives a frame that does
// not fit these rules ends the connection; with it all devices are closed.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/little_endian.h"
#include "platform/probe_driver/usb_bus.h"

namespace probe_driver {

inline constexpr std::string_view kBusGreeting = "WFXBUS1\n";

inline constexpr std::size_t kFrameHeaderSize = 48;
inline constexpr std::uint32_t kMaxTransferBytes = 64u << 20;  // bytes in one transfer
inline constexpr std::uint32_t kMaxPathBytes = 255;
inline constexpr std::uint32_t kMaxFactBytes = 18 + 2 * 255;

enum class FrameType : std::uint8_t {
  kOpen = 1,
  kClose = 2,
  kSubmit = 3,
  kCancel = 4,
  kAbort = 5,
  kReset = 6,
  kArrived = 64,
  kListed = 65,
  kRemoved = 66,
  kOpened = 67,
  kCompleted = 68,
  kWasReset = 69,
};

struct Frame {
  std::uint32_t payload = 0;
  FrameType type = FrameType::kListed;
  std::uint8_t endpoint = 0;
  std::uint64_t id = 0;
  std::uint32_t device = 0;
  std::uint32_t length = 0;
  SetupPacket setup{};
  std::uint32_t status = 0;
  std::uint32_t bus_status = 0;
  std::uint32_t driver_status = 0;
};

using FrameHeader = std::array<std::uint8_t, kFrameHeaderSize>;

inline FrameHeader EncodeFrame(const Frame& frame) {
  FrameHeader bytes{};
  StoreLe32(&bytes[0], frame.payload);
  bytes[4] = static_cast<std::uint8_t>(frame.type);
  bytes[5] = frame.endpoint;
  StoreLe64(&bytes[8], frame.id);
  StoreLe32(&bytes[16], frame.device);
  StoreLe32(&bytes[20], frame.length);
  bytes[24] = frame.setup.request_type;
  bytes[25] = frame.setup.request;
  StoreLe16(&bytes[26], frame.setup.value);
  StoreLe16(&bytes[28], frame.setup.index);
  StoreLe16(&bytes[30], frame.setup.length);
  StoreLe32(&bytes[32], frame.status);
  StoreLe32(&bytes[36], frame.bus_status);
  StoreLe32(&bytes[40], frame.driver_status);
  return bytes;
}

// What a frame of this type may carry at most; none when there is no such type.
inline std::optional<std::uint32_t> LargestPayload(FrameType type) {
  switch (type) {
    case FrameType::kOpen:
    case FrameType::kArrived:
    case FrameType::kRemoved:
      return kMaxPathBytes;
    case FrameType::kSubmit:
    case FrameType::kCompleted:
      return kMaxTransferBytes;
    case FrameType::kOpened:
      return kMaxFactBytes;
    case FrameType::kClose:
    case FrameType::kCancel:
    case FrameType::kAbort:
    case FrameType::kReset:
    case FrameType::kListed:
    case FrameType::kWasReset:
      return 0;
  }
  return std::nullopt;
}

inline bool IsInTransfer(std::uint8_t endpoint, const SetupPacket& setup) {
  return ((endpoint != 0 ? endpoint : setup.request_type) & 0x80) != 0;
}

// None when the header breaks the rules above as far as it alone can tell.
inline std::optional<Frame> DecodeFrame(const FrameHeader& bytes) {
  Frame frame;
  frame.payload = LoadLe32(&bytes[0]);
  frame.type = static_cast<FrameType>(bytes[4]);
  frame.endpoint = bytes[5];
  frame.id = LoadLe64(&bytes[8]);
  frame.device = LoadLe32(&bytes[16]);
  frame.length = LoadLe32(&bytes[20]);
  frame.setup.request_type = bytes[24];
  frame.setup.request = bytes[25];
  frame.setup.value = LoadLe16(&bytes[26]);
  frame.setup.index = LoadLe16(&bytes[28]);
  frame.setup.length = LoadLe16(&bytes[30]);
  frame.status = LoadLe32(&bytes[32]);
  frame.bus_status = LoadLe32(&bytes[36]);
  frame.driver_status = LoadLe32(&bytes[40]);

  const std::optional<std::uint32_t> largest = LargestPayload(frame.type);
  if (!largest || frame.payload > *largest) return std::nullopt;
  if (frame.type == FrameType::kSubmit) {
    const bool in = IsInTransfer(frame.endpoint, frame.setup);
    if (frame.length > kMaxTransferBytes || frame.payload != (in ? 0 : frame.length)) {
      return std::nullopt;
    }
  }
  if (frame.type == FrameType::kCompleted &&
      (frame.status > static_cast<std::uint32_t>(UsbStatus::kError) ||
       (frame.payload != 0 && frame.payload != frame.length))) {
    return std::nullopt;
  }
  return frame;
}

// A path is printable ASCII.
inline bool IsPath(std::span<const std::uint8_t> bytes) {
  for (const std::uint8_t byte : bytes) {
    if (byte < 0x20 || byte > 0x7E) return false;
  }
  return !bytes.empty() && bytes.size() <= kMaxPathBytes;
}

inline std::vector<std::uint8_t> EncodeFacts(const DriverFacts& facts) {
  const std::string text = facts.text.substr(0, 255);
  const std::string second = facts.second_text.substr(0, 255);
  std::vector<std::uint8_t> bytes(18 + text.size() + second.size());
  StoreLe32(&bytes[0], facts.driver_version);
  StoreLe32(&bytes[4], facts.interface_version);
  bytes[8] = facts.usb_address;
  bytes[9] = facts.alternate_setting;
  StoreLe32(&bytes[10], facts.speed);
  StoreLe16(&bytes[14], static_cast<std::uint16_t>(text.size()));
  StoreLe16(&bytes[16], static_cast<std::uint16_t>(second.size()));
  std::copy(second.begin(), second.end(), std::copy(text.begin(), text.end(), bytes.begin() + 18));
  return bytes;
}

inline std::optional<DriverFacts> DecodeFacts(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < 18) return std::nullopt;
  const auto text = std::size_t{LoadLe16(&bytes[14])};
  const auto second = std::size_t{LoadLe16(&bytes[16])};
  if (text > 255 || second > 255 || bytes.size() != 18 + text + second) return std::nullopt;
  DriverFacts facts;
  facts.driver_version = LoadLe32(&bytes[0]);
  facts.interface_version = LoadLe32(&bytes[4]);
  facts.usb_address = bytes[8];
  facts.alternate_setting = bytes[9];
  facts.speed = LoadLe32(&bytes[10]);
  facts.text.assign(bytes.begin() + 18, bytes.begin() + 18 + static_cast<std::ptrdiff_t>(text));
  facts.second_text.assign(bytes.begin() + 18 + static_cast<std::ptrdiff_t>(text), bytes.end());
  return facts;
}

}  // namespace probe_driver
