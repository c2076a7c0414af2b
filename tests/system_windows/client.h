// A client of the service in the test's process.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <objbase.h>

#include "api/identifiers.h"
#include "api/tz_wirefox.h"
#include "platform/windows/com_pointer.h"
#include "tests/system_windows/programs.h"

namespace system_windows {

// The component library on the calling thread while one lives.
class Apartment {
 public:
  explicit Apartment(DWORD model = COINIT_MULTITHREADED) { CoInitializeEx(nullptr, model); }
  Apartment(const Apartment&) = delete;
  Apartment& operator=(const Apartment&) = delete;
  ~Apartment() { CoUninitialize(); }
};

// A new object of the service, which is started for it if need be; null when there is none. In the
// moment in which an earlier server ends, activation may fail (seen with Wine), and is tried again.
inline windows_host::ComPointer<ITzWirefox_v3> Connect() {
  windows_host::ComPointer<ITzWirefox_v3> object;
  HRESULT result = E_FAIL;
  WaitUntil([&] {
    result = CoCreateInstance(api::kClassId, nullptr, CLSCTX_LOCAL_SERVER, api::kInterfaceIdV3,
                              object.ReceiveVoid());
    return SUCCEEDED(result);
  });
  EXPECT_EQ(result, S_OK);
  return object;
}

// The running server's class object, or that of one that is started for it.
inline windows_host::ComPointer<IClassFactory> ClassObject() {
  windows_host::ComPointer<IClassFactory> factory;
  EXPECT_EQ(CoGetClassObject(api::kClassId, CLSCTX_LOCAL_SERVER, nullptr, IID_IClassFactory,
                             factory.ReceiveVoid()),
            S_OK);
  return factory;
}

}  // namespace system_windows
