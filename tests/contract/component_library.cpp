#include <gtest/gtest.h>
#include <windows.h>

#include <objbase.h>

#include <string>
#include <thread>

namespace {

constexpr GUID kUnknownClass = {
    0x0B1C2D3E, 0x4F50, 0x6172, {0x83, 0x94, 0xA5, 0xB6, 0xC7, 0xD8, 0xE9, 0xFA}};

TEST(ComponentLibrary, ApartmentsNestAndDoNotMix) {
  std::thread([] {
    EXPECT_EQ(CoInitialize(nullptr), S_OK);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_FALSE);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
    CoUninitialize();
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE)
        << "one initialisation is left";
    CoUninitialize();
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    CoUninitialize();
  }).join();
}

TEST(ComponentLibrary, NothingIsCreatedWithoutInitialisationOrRegistration) {
  std::thread([] {
    const auto create = [](void** object) {
      return CoCreateInstance(kUnknownClass, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, object);
    };
    void *first = &first, *second = &second;
    EXPECT_EQ(create(&first), CO_E_NOTINITIALIZED);
    ASSERT_EQ(CoInitialize(nullptr), S_OK);
    EXPECT_EQ(create(&second), REGDB_E_CLASSNOTREG);
    EXPECT_TRUE(!first && !second);
    CoUninitialize();
  }).join();
}

TEST(ComponentLibrary, AThreadThatHasInitialisedNothingMayCreateWhileTheMultithreadedModelIsKept) {
  void* object = nullptr;
  const auto create = [&] {
    return CoCreateInstance(kUnknownClass, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, &object);
  };
  CO_MTA_USAGE_COOKIE first, second;
  ASSERT_EQ(CoIncrementMTAUsage(&first), S_OK);
  ASSERT_EQ(CoIncrementMTAUsage(&second), S_OK);
  EXPECT_EQ(CoDecrementMTAUsage(first), S_OK);
  EXPECT_EQ(create(), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(CoDecrementMTAUsage(second), S_OK);
  EXPECT_EQ(create(), CO_E_NOTINITIALIZED);
}

TEST(ComponentLibrary, IdentifiersHaveOneText) {
  OLECHAR text[39];
  EXPECT_EQ(StringFromGUID2(kUnknownClass, text, 39), 39);
  EXPECT_EQ(std::wstring(text), L"{0B1C2D3E-4F50-6172-8394-A5B6C7D8E9FA}");
  EXPECT_EQ(StringFromGUID2(kUnknownClass, text, 38), 0);
}

}  // namespace
