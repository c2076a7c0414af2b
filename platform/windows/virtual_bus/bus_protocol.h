// What passes between the virtual bus driver and the process that plays its devices, the player,
// on the driver's control device. Both sides include this header, the driver without a library.
//
// There is one player at a time; when it closes its handle, or ends, everything that it has plugged
// in is unplugged. It keeps kNext requests pending, and the driver completes one with each message:
// a request of a client of one of the devices, or a notice. All numbers are little-endian.
//
//   kPlay      the handle becomes the player's, and may send the others; fails while there is one
//   kPlug      in: Plug            a device appears
//   kUnplug    in: u32 device      it disappears; what its clients have pending fails
//   kNext      out: Message, then as many bytes of the request's contents as there is room for
//   kFetch     in: u64 request, u32 offset   out: its contents from there, as many as there is room
//   kComplete  in: Completion, then the bytes that it counts; fails when the request is gone
//
// The contents of a request are the client's input and, for a request of the neither method, the
// client's output buffer behind it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/little_endian.h"

namespace virtual_bus {

inline constexpr wchar_t kControlDevice[] = L"\\Device\\WfxVirtualBus";
inline constexpr wchar_t kControlDeviceLink[] = L"\\??\\WfxVirtualBus";
inline constexpr wchar_t kControlDevicePath[] = L"\\\\.\\WfxVirtualBus";

constexpr std::uint32_t ControlCode(std::uint32_t function) {
  constexpr std::uint32_t kDeviceType = 0x8337;
  constexpr std::uint32_t kFirstFunction = 0x800;
  return kDeviceType << 16 | (kFirstFunction + function) << 2;  // any access, buffered
}

inline constexpr std::uint32_t kPlay = ControlCode(0);
inline constexpr std::uint32_t kPlug = ControlCode(1);
inline constexpr std::uint32_t kUnplug = ControlCode(2);
inline constexpr std::uint32_t kNext = ControlCode(3);
inline constexpr std::uint32_t kFetch = ControlCode(4);
inline constexpr std::uint32_t kComplete = ControlCode(5);

// The lowest two bits of a control code say how its buffers travel.
inline constexpr std::uint32_t kMethodMask = 3;
inline constexpr std::uint32_t kMethodBuffered = 0;
inline constexpr std::uint32_t kMethodNeither = 3;

enum class MessageKind : std::uint32_t {
  kOpened = 1,     // a client has opened `device`; the handle is `file`
  kRequest = 2,    // a client's request, to be completed
  kCancelled = 3,  // request `id` has ended; its completion will be refused
  kClosed = 4,     // `file` is closed; what it had pending has ended
};

struct Message {
  static constexpr std::size_t kSize = 40;

  std::uint64_t id = 0;  // of the request; never used again
  MessageKind kind = MessageKind::kRequest;
  std::uint32_t device = 0;  // as it was plugged
  std::uint64_t file = 0;
  std::uint32_t code = 0;         // of kRequest, as are the following
  std::uint32_t input_size = 0;   // bytes of the client's input
  std::uint32_t output_size = 0;  // room that the client has for output
  std::uint32_t contents_size = 0;

  void Encode(std::uint8_t* at) const {
    StoreLe64(at, id);
    StoreLe32(at + 8, static_cast<std::uint32_t>(kind));
    StoreLe32(at + 12, device);
    StoreLe64(at + 16, file);
    StoreLe32(at + 24, code);
    StoreLe32(at + 28, input_size);
    StoreLe32(at + 32, output_size);
    StoreLe32(at + 36, contents_size);
  }

  static Message Decode(const std::uint8_t* at) {
    Message message;
    message.id = LoadLe64(at);
    message.kind = static_cast<MessageKind>(LoadLe32(at + 8));
    message.device = LoadLe32(at + 12);
    message.file = LoadLe64(at + 16);
    message.code = LoadLe32(at + 24);
    message.input_size = LoadLe32(at + 28);
    message.output_size = LoadLe32(at + 32);
    message.contents_size = LoadLe32(at + 36);
    return message;
  }
};

// Input of kFetch.
inline constexpr std::size_t kFetchSize = 12;

struct Completion {
  static constexpr std::size_t kSize = 24;

  std::uint64_t id = 0;
  std::uint32_t status = 0;       // NTSTATUS
  std::uint32_t information = 0;  // the count that the client sees
  std::uint32_t output_size = 0;  // bytes that follow, for the client's output buffer
  std::uint32_t input_size =
      0;  // bytes behind those, to replace the beginning of the client's input

  void Encode(std::uint8_t* at) const {
    StoreLe64(at, id);
    StoreLe32(at + 8, status);
    StoreLe32(at + 12, information);
    StoreLe32(at + 16, output_size);
    StoreLe32(at + 20, input_size);
  }

  static Completion Decode(const std::uint8_t* at) {
    Completion completion;
    completion.id = LoadLe64(at);
    completion.status = LoadLe32(at + 8);
    completion.information = LoadLe32(at + 12);
    completion.output_size = LoadLe32(at + 16);
    completion.input_size = LoadLe32(at + 20);
    return completion;
  }
};

// Input of kPlug: the number that names the device from now on, the class of its interface, its
// device id ("USB\VID_0F0F&PID_1001") and its instance id, as 8-bit text ended by 0.
struct Plug {
  static constexpr std::size_t kTextSize = 128;  // with the 0
  static constexpr std::size_t kClass = 4;       // offsets
  static constexpr std::size_t kDeviceId = 20;
  static constexpr std::size_t kInstanceId = kDeviceId + kTextSize;
  static constexpr std::size_t kSize = kInstanceId + kTextSize;
};

}  // namespace virtual_bus
