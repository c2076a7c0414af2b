#include "platform/linux/automation/bstr.h"

#include <oleauto.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace linux_host {
namespace {

// Beyond this the byte count with its prefix would not fit in 32 bits.
constexpr std::size_t kMaxBytes = 0x7FFFFFFF - kBstrPrefixBytes - 2 * sizeof(OLECHAR);

std::uint32_t LoadByteCount(BSTR string) {
  std::uint32_t count;
  std::memcpy(&count, reinterpret_cast<const char*>(string) - sizeof count, sizeof count);
  return count;
}

BSTR FinishBstr(char* memory, std::uint32_t byte_count) {
  char* characters = memory + kBstrPrefixBytes;
  std::memcpy(characters - sizeof byte_count, &byte_count, sizeof byte_count);
  std::memset(characters + byte_count, 0, sizeof(OLECHAR));
  return reinterpret_cast<BSTR>(characters);
}

BSTR AllocateBytes(const void* source, std::size_t byte_count) {
  if (byte_count > kMaxBytes) return nullptr;
  char* memory = static_cast<char*>(std::malloc(kBstrPrefixBytes + byte_count + sizeof(OLECHAR)));
  if (!memory) return nullptr;
  if (source && byte_count != 0) {
    std::memcpy(memory + kBstrPrefixBytes, source, byte_count);
  }
  return FinishBstr(memory, static_cast<std::uint32_t>(byte_count));
}

}  // namespace

BSTR PlaceBstr(void* memory, std::uint32_t length) {
  return FinishBstr(static_cast<char*>(memory), length * sizeof(OLECHAR));
}

}  // namespace linux_host

BSTR SysAllocString(const OLECHAR* text) {
  if (!text) return nullptr;
  return linux_host::AllocateBytes(text, std::wcslen(text) * sizeof(OLECHAR));
}

BSTR SysAllocStringLen(const OLECHAR* text, UINT length) {
  return linux_host::AllocateBytes(text, std::size_t{length} * sizeof(OLECHAR));
}

void SysFreeString(BSTR string) {
  if (string) std::free(reinterpret_cast<char*>(string) - linux_host::kBstrPrefixBytes);
}

UINT SysStringLen(BSTR string) {
  return string ? linux_host::LoadByteCount(string) / sizeof(OLECHAR) : 0;
}
