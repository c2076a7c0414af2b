// Lists the probes, and what is behind each in its present mode. Build it where these files lie:
//   x86_64-w64-mingw32-g++ -std=c++20 -static -I include list_probes.cpp -o list_probes.exe
//       -lole32 -loleaut32 -luuid
#include <cstdio>

#include "api/tz_wirefox.h"

namespace {

// Prints the strings of an array and frees it; calls `each` with every one.
template <typename Each>
void TakeStrings(SAFEARRAY* strings, Each each) {
  if (!strings) return;
  BSTR* text = nullptr;
  if (SUCCEEDED(SafeArrayAccessData(strings, reinterpret_cast<void**>(&text)))) {
    for (ULONG i = 0; i < strings->rgsabound[0].cElements; ++i) each(text[i]);
    SafeArrayUnaccessData(strings);
  }
  SafeArrayDestroy(strings);
}

int List(ITzWirefox_v3& wirefox) {
  SAFEARRAY* probes = nullptr;
  TzErrorCode error = TzErrorCode::UNKNOWN;
  if (FAILED(wirefox.EnumerateWirefoxs(&probes, &error)) || error != TzErrorCode::SUCCESS) {
    std::printf("error %d\n", static_cast<int>(error));
    return 1;
  }
  TakeStrings(probes, [&](BSTR probe) {
    std::printf("%ls\n", probe);
    SAFEARRAY* targets = nullptr;
    if (SUCCEEDED(wirefox.EnumerateDevices(probe, &targets, &error))) {
      TakeStrings(targets, [](BSTR target) { std::printf("  %ls\n", target); });
    }
  });
  return 0;
}

}  // namespace

int main() {
  if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return 3;
  int status = 3;
  ITzWirefox_v3* wirefox = nullptr;
  const HRESULT created = CoCreateInstance(api::kClassId, nullptr, CLSCTX_LOCAL_SERVER,
                                           api::kInterfaceIdV3, reinterpret_cast<void**>(&wirefox));
  if (SUCCEEDED(created)) {
    status = List(*wirefox);
    wirefox->Release();
  } else {
    std::printf("the service cannot be reached: 0x%08lx\n", static_cast<unsigned long>(created));
  }
  CoUninitialize();
  return status;
}
