// Globally unique identifiers, laid out as on Windows.
#pragma once

#include <cstdint>
#include <cstring>

struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
static_assert(sizeof(GUID) == 16);

typedef GUID IID, CLSID;
typedef GUID *LPGUID, *LPIID, *LPCLSID;
typedef const GUID &REFGUID, &REFIID, &REFCLSID;

inline int IsEqualGUID(REFGUID a, REFGUID b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }
inline int IsEqualIID(REFIID a, REFIID b) { return IsEqualGUID(a, b); }
inline int IsEqualCLSID(REFCLSID a, REFCLSID b) { return IsEqualGUID(a, b); }
inline bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b) != 0; }
inline bool operator!=(REFGUID a, REFGUID b) { return !(a == b); }
