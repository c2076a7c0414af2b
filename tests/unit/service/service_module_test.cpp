// The module outside a run: counting, controls and events.
#include "service/service_module.h"

#include <gtest/gtest.h>

#include <unknwn.h>

#include "platform/test_host.h"

namespace {

using Notices = std::vector<std::wstring>;

bool QuitIsPosted() {
  MSG message = {};
  bool quit = false;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) quit |= message.message == WM_QUIT;
  return quit;
}

TEST(ServiceModule, CountsLocksAndDoesNotQuitBeforeItServesAsALocalServer) {
  CTzWirefoxServiceModule module;
  EXPECT_EQ(module.GetLockCount(), 0);
  EXPECT_EQ(module.Lock(), 1);
  EXPECT_EQ(module.Lock(), 2);
  EXPECT_EQ(module.GetLockCount(), 2);
  EXPECT_EQ(module.Unlock(), 1);
  EXPECT_EQ(module.Unlock(), 0);
  EXPECT_FALSE(QuitIsPosted());
}

TEST(ServiceModule, ServiceWithoutItsHandlerSaysSoAndEnds) {
  CTzWirefoxServiceModule module;
  test_host::TakeNotices();
  module.ServiceMain();
  EXPECT_EQ(test_host::TakeNotices(),
            Notices{L"event|TzWirefoxService|4|0|0|Handler not installed"});
}

TEST(ServiceModule, GlobalInterfaceTableIsMadeOnceWhereTheHostHasOne) {
  CTzWirefoxServiceModule module;
  IUnknown* first = nullptr;
  IUnknown* second = nullptr;
  const HRESULT result = module.GetGlobalInterfaceTable(&first);
  EXPECT_EQ(module.GetGlobalInterfaceTable(&second), result);
  EXPECT_EQ(second, first);
  EXPECT_EQ(SUCCEEDED(result), first != nullptr);
  if (first != nullptr) first->Release();
  if (second != nullptr) second->Release();
}

}  // namespace
