#include "platform/windows/virtual_bus/driver/caller_record.h"

// A driver under Wine is a program file of a user process, and may import these. Not from kernel32,
// whose presence makes the loader take the driver for an ordinary library.
extern "C" {
__declspec(dllimport) HANDLE NTAPI OpenThread(ULONG access, int inherit, ULONG id);
__declspec(dllimport) int NTAPI GetThreadContext(HANDLE thread, CONTEXT* context);
__declspec(dllimport) HANDLE NTAPI OpenProcess(ULONG access, int inherit, ULONG id);
__declspec(dllimport) int NTAPI
    ReadProcessMemory(HANDLE process, const void* from, void* to, SIZE_T size, SIZE_T* moved);
__declspec(dllimport) int NTAPI
    WriteProcessMemory(HANDLE process, void* to, const void* from, SIZE_T size, SIZE_T* moved);
}

namespace virtual_bus {
namespace {

constexpr ULONG kThreadGetContext = 0x0008;
constexpr ULONG kThreadSuspendResume = 0x0002;
constexpr ULONG kProcessMemory = 0x0008 | 0x0010 | 0x0020;  // operate on, read, write
constexpr ULONG kControlRegisters = CONTEXT_AMD64 | 0x1;

// The stack of a thread in NtDeviceIoControlFile, in places of 8 bytes from the return address on:
// four places for the arguments in registers, then the fifth argument and the following.
enum StackPlace {
  kIoControlCode = 6,
  kInputBuffer = 7,
  kInputSize = 8,
  kOutputSize = 10,
  kStackPlaces = 11,
};

ULONG ToId(HANDLE id) { return static_cast<ULONG>(reinterpret_cast<ULONG_PTR>(id)); }

std::uint64_t StackPointer() {
  const HANDLE thread =
      OpenThread(kThreadGetContext | kThreadSuspendResume, FALSE, ToId(PsGetCurrentThreadId()));
  if (!thread) return 0;
  alignas(16) CONTEXT context;
  context.ContextFlags = kControlRegisters;
  const bool known = GetThreadContext(thread, &context) != FALSE;
  ZwClose(thread);
  return known ? context.Rsp : 0;
}

}  // namespace

CallerRecord::~CallerRecord() {
  if (process_) ZwClose(process_);
}

void CallerRecord::Find(std::uint32_t code, std::uint32_t input_size, std::uint32_t output_size) {
  const std::uint64_t stack = StackPointer();
  if (stack == 0) return;
  process_ = OpenProcess(kProcessMemory, FALSE, ToId(PsGetCurrentProcessId()));
  if (!process_) return;
  std::uint64_t places[kStackPlaces];
  SIZE_T moved = 0;
  if (!ReadProcessMemory(process_, reinterpret_cast<const void*>(stack), places, sizeof places,
                         &moved) ||
      static_cast<std::uint32_t>(places[kIoControlCode]) != code ||
      static_cast<std::uint32_t>(places[kInputSize]) != input_size ||
      static_cast<std::uint32_t>(places[kOutputSize]) != output_size) {
    return;
  }
  address_ = places[kInputBuffer];
}

void CallerRecord::Write(const std::uint8_t* bytes, std::uint32_t size) const {
  if (address_ == 0 || size == 0) return;
  SIZE_T moved = 0;
  WriteProcessMemory(process_, reinterpret_cast<void*>(address_), bytes, size, &moved);
}

}  // namespace virtual_bus
