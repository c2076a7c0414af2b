// What the operations of probe objects write alike: the failure line, and numbers and addresses
// that some lines show in each other's place.
#pragma once

#include <cstdint>

#include "support/log.h"

// Writes the failure line for any status but 0; returns the status.
inline std::uint32_t LogFailure(const char* source, std::uint32_t status) {
  if (status != 0) Log(LOG_ERROR, source, "Error %u occured.", status);
  return status;
}

// An address as the decimal number of its low 32 bits.
inline std::uint32_t AddressAsNumber(const void* address) {
  return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
}

// A number in the form of an address: 16 hexadecimal digits.
inline const void* NumberAsAddress(std::uint32_t number) {
  return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(number));
}
