#include "tests/system_windows/session/handle_table.h"

#include <winternl.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace system_windows {
namespace {

constexpr auto kExtendedHandleInformation = static_cast<SYSTEM_INFORMATION_CLASS>(64);
constexpr NTSTATUS kLengthMismatch = static_cast<NTSTATUS>(0xC0000004);

// One handle of the list. The compiler's headers do not declare it.
struct Entry {
  void* object;
  std::uintptr_t process_id;
  std::uintptr_t handle;
  std::uint32_t access;
  std::uint16_t creator;
  std::uint16_t kind;
  std::uint32_t attributes;
  std::uint32_t reserved;
};
static_assert(sizeof(Entry) == 40);

// Two words stand before the entries: their number, and one without use.
constexpr std::size_t kListHeader = 2 * sizeof(std::uintptr_t);

std::vector<Entry> AllHandles() {
  std::vector<std::byte> list(1 << 20);
  ULONG size = 0;
  NTSTATUS status = 0;
  while ((status = NtQuerySystemInformation(kExtendedHandleInformation, list.data(),
                                            static_cast<ULONG>(list.size()), &size)) ==
         kLengthMismatch) {
    list.resize(2 * list.size());
  }
  if (status != 0) return {};
  std::uintptr_t count = 0;
  std::memcpy(&count, list.data(), sizeof count);
  std::vector<Entry> entries(count);
  std::memcpy(entries.data(), list.data() + kListHeader, count * sizeof(Entry));
  return entries;
}

}  // namespace

HandleCounts CountHandles(DWORD process_id) {
  HandleCounts counts;
  for (const Entry& entry : AllHandles()) {
    if (entry.process_id == process_id) ++counts[entry.kind];
  }
  return counts;
}

}  // namespace system_windows
