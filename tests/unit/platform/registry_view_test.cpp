#include <gtest/gtest.h>

#include "platform/linux/registry.h"

namespace {

using linux_host::KeyView;
using linux_host::RegistryKey;

TEST(RegistryView, TheUsersOwnHiveHidesTheMachines) {
  RegistryKey user;
  RegistryKey machine;
  user.values[L"path"] = {.type = REG_BINARY, .data = {1}};
  machine.values[L"PATH"] = {.type = REG_BINARY, .data = {2}};
  machine.values[L"machine"] = {.type = REG_BINARY, .data = {3}};
  user.FindOrCreate({L"Both"});
  user.FindOrCreate({L"User"});
  machine.FindOrCreate({L"BOTH"});
  machine.FindOrCreate({L"Machine"});

  const KeyView view({&user, &machine}, true);
  EXPECT_EQ(1, view.FindValue(L"Path")->data[0]);
  EXPECT_EQ(3, view.FindValue(L"Machine")->data[0]);
  EXPECT_EQ(nullptr, view.FindValue(L"none"));
  using Names = std::set<std::wstring, linux_host::NameLess>;
  EXPECT_EQ((Names{L"Both", L"Machine", L"User"}), view.SubkeyNames());
  EXPECT_EQ((Names{L"machine", L"path"}), view.ValueNames());
}

}  // namespace
