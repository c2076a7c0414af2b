#include "client/automation.h"

#include "client/text.h"

namespace client {

namespace {

// Elements of a one-dimensional array whose elements have the size of T; 0 for any other.
template <typename T>
std::size_t ElementCount(SAFEARRAY* array) {
  if (!array || SafeArrayGetDim(array) != 1 || SafeArrayGetElemsize(array) != sizeof(T)) {
    return 0;
  }
  LONG first = 0;
  LONG last = -1;
  if (FAILED(SafeArrayGetLBound(array, 1, &first))) return 0;
  if (FAILED(SafeArrayGetUBound(array, 1, &last))) return 0;
  return last < first ? 0 : static_cast<std::size_t>(last - first) + 1;
}

// Calls `use` with the array's elements, unless there are none or they cannot be accessed.
template <typename T, typename Use>
void WithElements(SAFEARRAY* array, Use use) {
  const std::size_t count = ElementCount<T>(array);
  void* data = nullptr;
  if (count == 0 || FAILED(SafeArrayAccessData(array, &data))) return;
  use(std::span<T>(static_cast<T*>(data), count));
  SafeArrayUnaccessData(array);
}

}  // namespace

Bstr MakeBstr(std::string_view utf8) {
  const std::wstring wide = WideFromUtf8(utf8);
  return Bstr(SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size())));
}

std::string Utf8FromBstr(BSTR text) {
  if (!text) return {};
  return Utf8FromWide(std::wstring_view(text, SysStringLen(text)));
}

SafeArray MakeByteArray(std::span<const std::uint8_t> bytes) {
  SAFEARRAYBOUND bound = {static_cast<ULONG>(bytes.size()), 0};
  SafeArray array(SafeArrayCreate(VT_UI1, 1, &bound));
  WithElements<std::uint8_t>(array.get(), [&](std::span<std::uint8_t> elements) {
    std::copy(bytes.begin(), bytes.end(), elements.begin());
  });
  return array;
}

Bytes BytesOf(SAFEARRAY* array) {
  Bytes bytes;
  WithElements<std::uint8_t>(array, [&](std::span<std::uint8_t> elements) {
    bytes.assign(elements.begin(), elements.end());
  });
  return bytes;
}

std::vector<std::string> StringsOf(SAFEARRAY* array) {
  std::vector<std::string> strings;
  WithElements<BSTR>(array, [&](std::span<BSTR> elements) {
    for (const BSTR text : elements) strings.push_back(Utf8FromBstr(text));
  });
  return strings;
}

}  // namespace client
