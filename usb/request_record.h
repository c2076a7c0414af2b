// What the probe driver understands: its request codes and the layout of its transfer record. All
// numbers are little-endian, nothing is aligned.
#pragma once

#include <cstdint>

namespace driver_request {

// The queries take the output buffer as their input too.
inline constexpr std::uint32_t kDriverVersion = 0x220000;     // out: 4 bytes
inline constexpr std::uint32_t kInterfaceVersion = 0x220004;  // out: 4 bytes
inline constexpr std::uint32_t kAlternateSetting = 0x220008;  // out: 1 byte
inline constexpr std::uint32_t kUsbAddress = 0x220010;        // out: 1 byte
inline constexpr std::uint32_t kText = 0x22003C;              // out: 256 bytes
inline constexpr std::uint32_t kSecondText = 0x220040;        // out: 256 bytes
inline constexpr std::uint32_t kBusSpeed = 0x22004C;          // out: 4 bytes

// Transfers. Control and buffered: record and payload in one buffer, in and out. Direct: the
// record is the input and the caller's buffer the output, whichever way the data goes.
inline constexpr std::uint32_t kControlTransfer = 0x220020;
inline constexpr std::uint32_t kBufferedTransfer = 0x220024;
inline constexpr std::uint32_t kDirectTransfer = 0x22004B;

// Pipes. In: 1 byte, the endpoint address.
inline constexpr std::uint32_t kResetPipe = 0x22002C;
inline constexpr std::uint32_t kAbortPipe = 0x220044;
// In and out: endpoint address (1 byte), transfer size (4 bytes).
inline constexpr std::uint32_t kSetTransferSize = 0x220038;
inline constexpr std::uint32_t kTransferSizeBytes = 5;

// Driver versions below this one know no direct transfers.
inline constexpr std::uint32_t kFirstDirectVersion = 0x01050500;
// The answer to kBusSpeed of a high-speed device.
inline constexpr std::uint32_t kHighSpeed = 2;
inline constexpr std::uint32_t kTextBytes = 256;

}  // namespace driver_request

namespace request_record {

inline constexpr std::uint32_t kRequestType = 0;    // 1 byte, control only: bmRequestType
inline constexpr std::uint32_t kRequest = 1;        // 1 byte, control only: bRequest
inline constexpr std::uint32_t kValue = 2;          // 2 bytes, control only: wValue
inline constexpr std::uint32_t kIndex = 4;          // 2 bytes, control only: wIndex
inline constexpr std::uint32_t kLength = 6;         // 2 bytes, control only: wLength
inline constexpr std::uint32_t kTimeout = 8;        // 4 bytes, control only: whole seconds
inline constexpr std::uint32_t kEndpoint = 13;      // 1 byte; 0 in the control form
inline constexpr std::uint32_t kDriverStatus = 14;  // 4 bytes, written by the driver
inline constexpr std::uint32_t kBusStatus = 18;     // 4 bytes, written by the driver
// Offset of the isochronous packet table within the record and its length, else 0.
inline constexpr std::uint32_t kPacketTableOffset = 22;  // 4 bytes
inline constexpr std::uint32_t kPacketTableLength = 26;  // 4 bytes
// Offset of the payload within the record and its length; 0 in the direct forms.
inline constexpr std::uint32_t kPayloadOffset = 30;  // 4 bytes
inline constexpr std::uint32_t kPayloadLength = 34;  // 4 bytes
inline constexpr std::uint32_t kHeaderBytes = 38;    // packet table, then payload follow here

inline constexpr std::uint32_t kPacketEntryBytes = 8;  // per isochronous packet

}  // namespace request_record

// USB 2.0 chapter 9.
namespace usb_standard {

inline constexpr std::uint8_t kGetDescriptor = 6;
inline constexpr std::uint8_t kDeviceToHost = 0x80;

inline constexpr std::uint8_t kDeviceDescriptor = 1;
inline constexpr std::uint8_t kConfigurationDescriptor = 2;
inline constexpr std::uint8_t kStringDescriptor = 3;
inline constexpr std::uint8_t kInterfaceDescriptor = 4;
inline constexpr std::uint8_t kEndpointDescriptor = 5;

inline constexpr std::uint32_t kDeviceDescriptorBytes = 18;
inline constexpr std::uint32_t kConfigurationDescriptorBytes = 9;
inline constexpr std::uint32_t kInterfaceDescriptorBytes = 9;
inline constexpr std::uint32_t kEndpointDescriptorBytes = 7;

// bmAttributes of an endpoint descriptor without synchronisation or usage bits.
inline constexpr std::uint8_t kControl = 0;
inline constexpr std::uint8_t kIsochronous = 1;
inline constexpr std::uint8_t kBulk = 2;
inline constexpr std::uint8_t kInterrupt = 3;

inline constexpr std::uint8_t kEndpointIn = 0x80;  // bit of bEndpointAddress
inline constexpr std::uint16_t kEnglishUs = 0x0409;

}  // namespace usb_standard
