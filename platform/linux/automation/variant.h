// Reading and writing the integers that automation values hold or refer to.
#pragma once

#include <oaidl.h>

#include <cstdint>

namespace linux_host {

// Any integer of up to 64 bits: `bits` is the two's complement pattern, extended to 64 bits by its
// sign when it is signed.
struct Integer {
  std::uint64_t bits = 0;
  bool is_signed = true;

  bool IsNegative() const { return is_signed && static_cast<std::int64_t>(bits) < 0; }
};

// Follows VT_BYREF | VT_VARIANT to the value meant; null when that leads nowhere.
const VARIANT* FollowVariant(const VARIANT* value);

// The integer of a value of an integer type, boolean, error or empty value, directly or by
// reference, or of a string that holds a decimal number. DISP_E_TYPEMISMATCH for all else and
// DISP_E_OVERFLOW for strings beyond 64 bits.
HRESULT ReadInteger(const VARIANT& value, Integer& number);

// Stores the number as that integer type at `storage`; DISP_E_OVERFLOW when it does not fit,
// DISP_E_TYPEMISMATCH when that is no integer type.
HRESULT StoreInteger(const Integer& number, VARTYPE type, void* storage);

}  // namespace linux_host
