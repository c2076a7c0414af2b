#include "service/service_module.h"

#include <gtest/gtest.h>

#include <unknwn.h>

namespace {

TEST(ServiceModule, GlobalInterfaceTableIsMadeOnceWhereTheHostHasOne) {
  CTzWirefoxServiceModule module;
  EXPECT_EQ(module.GetGlobalInterfaceTable(nullptr), E_POINTER);
  IUnknown* first = nullptr;
  IUnknown* second = nullptr;
  const HRESULT result = module.GetGlobalInterfaceTable(&first);
  EXPECT_EQ(module.GetGlobalInterfaceTable(&second), result);
  EXPECT_EQ(second, first);
  EXPECT_EQ(SUCCEEDED(result), first != nullptr);
  if (first) first->Release();
  if (second) second->Release();
}

}  // namespace
