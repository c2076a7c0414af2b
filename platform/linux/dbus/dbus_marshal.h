// Parameters of calls as values in messages, both ways and at both ends.
//
//   BSTR s, SAFEARRAY(unsigned char) ay, SAFEARRAY(BSTR) as, int64 x, long and enumerations i,
//   short n, char y, the record as a struct of its fields
//
// The bus knows no null: null strings and arrays travel as empty ones and arrive as empty ones.
// Lower bounds do not travel; arrays arrive with 0.
#pragma once

#include <systemd/sd-bus.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/linux/automation/interface_plan.h"
#include "platform/linux/automation/safearray.h"

namespace linux_host {

// What a message may hold. Beyond it the connection would be lost, so larger ones are refused
// before they are sent.
struct MessageLimits {
  std::size_t array_bytes;
  std::size_t total_bytes;
};
inline constexpr std::size_t kMebibyte = 1024 * 1024;
inline constexpr MessageLimits kPrivateLimits = {64 * kMebibyte, 127 * kMebibyte};
// A message bus daemon takes 32 MiB at most as configured for the system bus.
inline constexpr MessageLimits kBusLimits = {31 * kMebibyte, 31 * kMebibyte};

// The arguments of one call that an object of this process receives. Reused from call to call, so
// that its room is allocated once.
class CallFrame {
 public:
  // Takes the inputs and prepares room for the outputs. Byte arrays are left in the message, which
  // must stay until Release. Returns a negative errno when the message does not hold them.
  int ReadInputs(sd_bus_message* message, const MethodPlan& method);

  const CallWord* words() const { return words_.data(); }

  // Whether the outputs are such that they can travel: E_OUTOFMEMORY beyond the limits,
  // RPC_E_SERVERFAULT for an array of another type than the method's.
  HRESULT CheckOutputs(const MethodPlan& method, const MessageLimits& limits) const;

  int AppendOutputs(sd_bus_message* reply, const MethodPlan& method) const;

  // Frees what the call left and what it was given. Also after a failed ReadInputs.
  void Release(const MethodPlan& method);

 private:
  // Names of probes are short: they need no memory of their own.
  static constexpr std::size_t kShortTextBytes = 512;

  // Room of one argument: each kind uses its part.
  struct Room {
    CallWord value = 0;            // an output; the pointer to it is the argument
    TypedArray borrowed;           // a byte array over the message
    SAFEARRAY* strings = nullptr;  // a string array, owned
    BSTR long_text = nullptr;      // a string that does not fit below, owned
    alignas(8) std::array<std::byte, kShortTextBytes> text;
    alignas(8) std::array<std::byte, kMaxRecordBytes> record;
  };

  int ReadInput(sd_bus_message* message, const ParameterPlan& parameter, std::size_t index);

  std::array<CallWord, kMaxCallWords> words_{};
  std::unique_ptr<std::array<Room, kMaxCallWords>> rooms_ =
      std::make_unique<std::array<Room, kMaxCallWords>>();
};

// The caller's end. `words` are the arguments as the caller passed them.

// Sets every output to zero or null; the failure when a pointer to an output is null.
HRESULT ClearOutputs(const MethodPlan& method, const CallWord* words);
// Where calls go to and how they travel.
struct CallRoute {
  MessageLimits limits = kPrivateLimits;
  std::string destination = {};  // the server's name on the bus; empty on a private connection
  // The process that stands for this one on the machine of the server; 0 when that is this one.
  std::int32_t stand_in = 0;
};

// E_INVALIDARG for an array that is not of the method's type, E_OUTOFMEMORY beyond the limits.
HRESULT AppendInputs(sd_bus_message* message, const MethodPlan& method, const CallWord* words,
                     const CallRoute& route);
// Stores the outputs, which are then the caller's; none is left behind on failure.
HRESULT ReadOutputs(sd_bus_message* reply, const MethodPlan& method, const CallWord* words);

}  // namespace linux_host
