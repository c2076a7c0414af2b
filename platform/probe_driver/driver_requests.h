// The numbers of the driver's requests and of the record that travels with transfers. All fields
// are little-endian.
#pragma once

#include <cstdint>

namespace probe_driver {

enum RequestCode : std::uint32_t {
  kQueryDriverVersion = 0x220000,
  kQueryInterfaceVersion = 0x220004,
  kQueryAlternateSetting = 0x220008,
  kQueryUsbAddress = 0x220010,
  kControlTransfer = 0x220020,
  kBufferedTransfer = 0x220024,
  kResetPipe = 0x22002C,
  kSetTransferSize = 0x220038,
  kQueryText = 0x22003C,
  kQuerySecondText = 0x220040,
  kAbortPipe = 0x220044,
  kDirectTransfer = 0x22004B,
  kQuerySpeed = 0x22004C,
};

inline constexpr std::uint32_t kTextSize = 256;

// The transfer record: a header of 38 bytes, the isochronous packet table, the payload.
namespace record {
inline constexpr std::uint32_t kHeaderSize = 38;
inline constexpr std::uint32_t kRequestType = 0;     // u8; 0 to 7 are the setup packet
inline constexpr std::uint32_t kRequest = 1;         // u8
inline constexpr std::uint32_t kValue = 2;           // u16
inline constexpr std::uint32_t kIndex = 4;           // u16
inline constexpr std::uint32_t kLength = 6;          // u16
inline constexpr std::uint32_t kTimeOutSeconds = 8;  // u32; 0: none
inline constexpr std::uint32_t kEndpoint = 13;       // u8
inline constexpr std::uint32_t kDriverStatus = 14;   // u32
inline constexpr std::uint32_t kBusStatus = 18;      // u32
inline constexpr std::uint32_t kPacketTableOffset = 22;
inline constexpr std::uint32_t kPacketTableSize = 26;
// An entry of the table, written by the driver: bytes moved, and bus status word, each a u32.
inline constexpr std::uint32_t kPacketEntrySize = 8;
inline constexpr std::uint32_t kPacketStatus = 4;
inline constexpr std::uint32_t kPayloadOffset = 30;
inline constexpr std::uint32_t kPayloadSize = 34;
}  // namespace record

inline constexpr std::uint8_t kDirectionIn = 0x80;  // of bmRequestType and of endpoint addresses

}  // namespace probe_driver
