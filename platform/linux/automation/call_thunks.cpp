#include "platform/linux/automation/call_thunks.h"

#include <array>
#include <utility>

#if !(defined(__x86_64__) || defined(__aarch64__)) || !defined(__linux__)
#error "How this processor passes integer arguments has not been looked into."
#endif

namespace linux_host {
namespace {

static_assert(sizeof(void*) == sizeof(CallWord));
static_assert(sizeof(long) == sizeof(CallWord), "argument registers have 64 bits");

template <std::size_t>
using WordAt = CallWord;

using Caller = HRESULT (*)(const void* operation, void* object, const CallWord* words);

template <std::size_t... I>
constexpr Caller MakeCaller(std::index_sequence<I...>) {
  return [](const void* operation, void* object, [[maybe_unused]] const CallWord* words) {
    using Operation = HRESULT (*)(void*, WordAt<I>...);
    return reinterpret_cast<Operation>(const_cast<void*>(operation))(object, words[I]...);
  };
}

template <std::size_t... Count>
constexpr auto MakeCallers(std::index_sequence<Count...>) {
  return std::array<Caller, sizeof...(Count)>{MakeCaller(std::make_index_sequence<Count>())...};
}

constexpr auto kCallers = MakeCallers(std::make_index_sequence<kMaxCallWords + 1>());

template <std::uint32_t Slot, typename... Words>
HRESULT Receive(CallReceiver* self, Words... words) {
  const CallWord all[sizeof...(Words) + 1] = {words...};
  return self->on_call(self, Slot, all);
}

template <std::uint32_t Slot, std::size_t... I>
const void* ReceiverFor(std::index_sequence<I...>) {
  HRESULT (*operation)(CallReceiver*, WordAt<I>...) = &Receive<Slot, WordAt<I>...>;
  return reinterpret_cast<const void*>(operation);
}

using ReceiverRow = std::array<const void*, kMaxCallWords + 1>;

template <std::uint32_t Slot, std::size_t... Count>
ReceiverRow MakeRow(std::index_sequence<Count...>) {
  return {ReceiverFor<Slot>(std::make_index_sequence<Count>())...};
}

template <std::uint32_t... Index>
auto MakeReceivers(std::integer_sequence<std::uint32_t, Index...>) {
  return std::array<ReceiverRow, sizeof...(Index)>{
      MakeRow<kFirstMethodSlot + Index>(std::make_index_sequence<kMaxCallWords + 1>())...};
}

}  // namespace

HRESULT CallSlot(void* object, std::uint32_t slot, const CallWord* words, std::size_t count) {
  if (count > kMaxCallWords) return E_UNEXPECTED;
  const void* operation = (*static_cast<const void* const* const*>(object))[slot];
  return kCallers[count](operation, object, words);
}

const void* ReceivingOperation(std::uint32_t slot, std::size_t count) {
  static const auto receivers =
      MakeReceivers(std::make_integer_sequence<std::uint32_t, kMaxSlots - kFirstMethodSlot>());
  if (slot < kFirstMethodSlot || slot >= kMaxSlots || count > kMaxCallWords) return nullptr;
  return receivers[slot - kFirstMethodSlot][count];
}

}  // namespace linux_host
