#include "platform/linux/automation/guid_text.h"

#include <oaidl.h>
#include <objbase.h>

#include <cwchar>
#include <iterator>

// Of the component system's own interfaces.
extern const IID IID_IUnknown = {0x00000000, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
extern const IID IID_IClassFactory = {0x00000001, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
extern const IID IID_IDispatch = {0x00020400, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
extern const IID IID_ITypeInfo = {0x00020401, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
extern const IID IID_ITypeLib = {0x00020402, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

namespace {

constexpr int kTextLength = 38;
// Where the bytes of the identifier stand in the text: the first three fields most significant byte
// first, the others in their order.
constexpr int kBytePositions[16] = {1, 3, 5, 7, 10, 12, 15, 17, 20, 22, 25, 27, 29, 31, 33, 35};

int HexDigit(wchar_t character) {
  if (character >= L'0' && character <= L'9') return character - L'0';
  if (character >= L'a' && character <= L'f') return character - L'a' + 10;
  if (character >= L'A' && character <= L'F') return character - L'A' + 10;
  return -1;
}

bool HasFrame(LPCOLESTR text) {
  return text[0] == L'{' && text[9] == L'-' && text[14] == L'-' && text[19] == L'-' &&
         text[24] == L'-' && text[37] == L'}';
}

}  // namespace

int StringFromGUID2(REFGUID id, LPOLESTR text, int capacity) {
  if (text == nullptr || capacity <= kTextLength) return 0;
  std::swprintf(text, static_cast<std::size_t>(capacity),
                L"{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", id.Data1, id.Data2, id.Data3,
                id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3], id.Data4[4], id.Data4[5],
                id.Data4[6], id.Data4[7]);
  return kTextLength + 1;
}

std::wstring linux_host::GuidText(REFGUID id) {
  OLECHAR text[kTextLength + 1];
  StringFromGUID2(id, text, kTextLength + 1);
  return text;
}

HRESULT CLSIDFromString(LPCOLESTR text, CLSID* id) {
  if (id == nullptr) return E_INVALIDARG;
  *id = {};
  if (text == nullptr) return S_OK;
  if (std::wcslen(text) != kTextLength || !HasFrame(text)) return CO_E_CLASSSTRING;
  std::uint8_t bytes[16];
  for (std::size_t i = 0; i < std::size(bytes); ++i) {
    const int high = HexDigit(text[kBytePositions[i]]);
    const int low = HexDigit(text[kBytePositions[i] + 1]);
    if (high < 0 || low < 0) return CO_E_CLASSSTRING;
    bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
  }
  id->Data1 =
      static_cast<std::uint32_t>(bytes[0]) << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
  id->Data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
  id->Data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
  for (int i = 0; i < 8; ++i) id->Data4[i] = bytes[8 + i];
  return S_OK;
}
