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
}  // namespace

int StringFromGUID2(REFGUID id, LPOLESTR text, int capacity) {
  if (!text || capacity <= kTextLength) return 0;
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
