#include "platform/linux/automation/variant.h"

#include <oleauto.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/linux/automation/safearray.h"

namespace linux_host {
namespace {

// Any integer of up to 64 bits: `bits` is the two's complement pattern, extended to 64 bits by its
// sign when it is signed.
struct Integer {
  std::uint64_t bits = 0;
  bool is_signed = true;

  bool IsNegative() const { return is_signed && static_cast<std::int64_t>(bits) < 0; }
};

bool IsSigned(VARTYPE type) {
  return type == VT_I1 || type == VT_I2 || type == VT_I4 || type == VT_I8 || type == VT_INT ||
         type == VT_BOOL || type == VT_ERROR;
}

// Booleans and errors are stored like integers; strings are eight bytes wide but no integers.
ULONG IntegerSize(VARTYPE type) {
  if (type == VT_ERROR) return 4;
  return type == VT_BSTR ? 0 : ElementSize(type);
}

Integer LoadInteger(const void* storage, VARTYPE type) {
  const ULONG size = IntegerSize(type);
  std::uint64_t bits = 0;
  std::memcpy(&bits, storage, size);  // little-endian hosts only
  const bool is_signed = IsSigned(type);
  if (is_signed && size < 8 && (bits >> (size * 8 - 1)) != 0)
    bits |= ~std::uint64_t{0} << (size * 8);
  return {bits, is_signed};
}

HRESULT ParseInteger(BSTR text, Integer& number) {
  const std::wstring wide(text ? text : L"", SysStringLen(text));
  const std::size_t first = wide.find_first_not_of(L' ');
  const std::size_t last = wide.find_last_not_of(L' ');
  if (first == std::wstring::npos) return DISP_E_TYPEMISMATCH;
  const std::wstring digits = wide.substr(first, last - first + 1);
  const std::size_t sign = digits[0] == L'-' || digits[0] == L'+' ? 1 : 0;
  if (digits.size() == sign ||
      digits.find_first_not_of(L"0123456789", sign) != std::wstring::npos) {
    return DISP_E_TYPEMISMATCH;
  }
  errno = 0;
  number.is_signed = digits[0] == L'-';
  number.bits = number.is_signed
                    ? static_cast<std::uint64_t>(std::wcstoll(digits.c_str(), nullptr, 10))
                    : std::wcstoull(digits.c_str(), nullptr, 10);
  return errno == ERANGE ? DISP_E_OVERFLOW : S_OK;
}

std::wstring ToText(const Integer& number) {
  return number.is_signed ? std::to_wstring(static_cast<std::int64_t>(number.bits))
                          : std::to_wstring(number.bits);
}

// The integer of a value of an integer type, boolean, error or empty value, directly or by
// reference, or of a string that holds a decimal number. DISP_E_TYPEMISMATCH for all else and
// DISP_E_OVERFLOW for strings beyond 64 bits.
HRESULT ReadInteger(const VARIANT& value, Integer& number) {
  const VARTYPE type = value.vt & VT_TYPEMASK;
  const bool by_reference = (value.vt & VT_BYREF) != 0;
  if ((value.vt & ~(VT_TYPEMASK | VT_BYREF)) != 0) return DISP_E_TYPEMISMATCH;
  if (by_reference && !value.byref) return DISP_E_TYPEMISMATCH;
  if (value.vt == VT_EMPTY) {
    number = {};
    return S_OK;
  }
  if (type == VT_BSTR) return ParseInteger(by_reference ? *value.pbstrVal : value.bstrVal, number);
  if (IntegerSize(type) == 0) return DISP_E_TYPEMISMATCH;
  number = LoadInteger(by_reference ? value.byref : &value.llVal, type);
  return S_OK;
}

// Stores the number as that integer type at `storage`; DISP_E_OVERFLOW when it does not fit,
// DISP_E_TYPEMISMATCH when that is no integer type.
HRESULT StoreInteger(const Integer& number, VARTYPE type, void* storage) {
  const ULONG size = IntegerSize(type);
  if (size == 0) return DISP_E_TYPEMISMATCH;
  if (type == VT_BOOL) {
    const VARIANT_BOOL truth = number.bits != 0 ? VARIANT_TRUE : VARIANT_FALSE;
    std::memcpy(storage, &truth, sizeof truth);
    return S_OK;
  }
  const Integer stored = LoadInteger(&number.bits, type);
  if (stored.bits != number.bits || stored.IsNegative() != number.IsNegative()) {
    return DISP_E_OVERFLOW;
  }
  std::memcpy(storage, &number.bits, size);
  return S_OK;
}

}  // namespace

const VARIANT* FollowVariant(const VARIANT* value) {
  if (value && value->vt == (VT_BYREF | VT_VARIANT)) value = value->pvarVal;
  return value;
}

}  // namespace linux_host

void VariantInit(VARIANTARG* value) { value->vt = VT_EMPTY; }

HRESULT VariantClear(VARIANTARG* value) {
  if (!value) return E_INVALIDARG;
  const VARTYPE type = value->vt;
  if ((type & VT_BYREF) == 0) {
    if ((type & VT_ARRAY) != 0) {
      const HRESULT status = SafeArrayDestroy(value->parray);
      if (FAILED(status)) return status;
    } else if (type == VT_BSTR) {
      SysFreeString(value->bstrVal);
    } else if ((type == VT_UNKNOWN || type == VT_DISPATCH) && value->punkVal) {
      value->punkVal->Release();
    } else if (type == VT_RECORD) {
      return DISP_E_BADVARTYPE;  // no record descriptions exist on this host
    }
  }
  value->vt = VT_EMPTY;
  return S_OK;
}

HRESULT VariantChangeType(VARIANTARG* destination, const VARIANTARG* source, USHORT, VARTYPE type) {
  if (!destination || !source) return E_INVALIDARG;
  const VARIANT* value = linux_host::FollowVariant(source);
  if (!value) return DISP_E_TYPEMISMATCH;
  VARIANT converted;
  VariantInit(&converted);
  if (type == VT_BSTR && (value->vt & ~VT_BYREF) == VT_BSTR) {
    const BSTR text = (value->vt & VT_BYREF) != 0 ? *value->pbstrVal : value->bstrVal;
    converted.bstrVal = SysAllocStringLen(text, SysStringLen(text));
  } else {
    linux_host::Integer number;
    HRESULT status = linux_host::ReadInteger(*value, number);
    if (FAILED(status)) return status;
    if (type == VT_BSTR) {
      converted.bstrVal = SysAllocString(linux_host::ToText(number).c_str());
    } else {
      converted.llVal = 0;
      status = linux_host::StoreInteger(number, type, &converted.llVal);
      if (FAILED(status)) return status;
    }
  }
  if (type == VT_BSTR && !converted.bstrVal) return E_OUTOFMEMORY;
  converted.vt = type;
  const HRESULT status = VariantClear(destination);
  if (FAILED(status)) {
    VariantClear(&converted);
    return status;
  }
  *destination = converted;
  return S_OK;
}
