// Calls between tables of virtual operations and lists of argument words, for interfaces that are
// known at run time only.
//
// Every parameter of the interfaces is an integer or a pointer, and each travels as one 64-bit
// word: the conventions of this layer's processors hand such arguments over in full registers or
// eight-byte stack places, of which a callee reads no more than its parameter's width.
#pragma once

#include <comstatus.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace linux_host {

using CallWord = std::uint64_t;

inline constexpr std::size_t kMaxCallWords = 12;
inline constexpr std::uint32_t kFirstMethodSlot = 7;  // after those of IUnknown and IDispatch
inline constexpr std::uint32_t kMaxSlots = 64;

// Calls the operation in `slot` of the object's table with `count` arguments.
HRESULT CallSlot(void* object, std::uint32_t slot, const CallWord* words, std::size_t count);

// What an object made of a run-time table begins with. Its operations from kFirstMethodSlot on end
// in `on_call`, which receives the slot and the caller's words: each valid in the width of its
// parameter only.
struct CallReceiver {
  const void* const* operations = nullptr;
  HRESULT (*on_call)(CallReceiver* self, std::uint32_t slot, const CallWord* words) = nullptr;
};
static_assert(std::is_standard_layout_v<CallReceiver>, "the table's address comes first");

// The operation for a slot whose method has `count` parameters.
const void* ReceivingOperation(std::uint32_t slot, std::size_t count);

}  // namespace linux_host
