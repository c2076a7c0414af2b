#include "support/paths.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

TEST(Paths, NamesThatStandByThemselves) {
  const bool slash_host = std::filesystem::path::preferred_separator == L'/';
  for (const char* name : {"c:\\fw\\fw.hex", "c:fw.hex", "a:"}) {
    EXPECT_TRUE(IsAbsoluteName(name)) << name;
  }
  for (const char* name : {":c", "fw.hex", "", "x", "dir/fw.hex", "\\\\host\\fw", "\\fw.hex"}) {
    EXPECT_FALSE(IsAbsoluteName(name)) << name;
  }
  for (const char* name : {"/opt/fw.hex", "/"}) EXPECT_EQ(slash_host, IsAbsoluteName(name)) << name;
}

TEST(Paths, ModuleDirectoryIsThatOfTheRunningProgram) {
  const std::string directory = GetModuleDirectory();
  ASSERT_FALSE(directory.empty());
  EXPECT_EQ(static_cast<char>(std::filesystem::path::preferred_separator), directory.back());
  EXPECT_TRUE(std::filesystem::exists(directory + "unit_support") ||
              std::filesystem::exists(directory + "unit_support.exe"));
}

TEST(Paths, NamesAreKept) {
  EXPECT_EQ("", NarrowText(L""));
  EXPECT_EQ("WFX0001 \\?", NarrowText(L"WFX0001 \\?"));
  EXPECT_EQ(std::filesystem::path(u8"f\u00FCr").native(), StreamPath(L"f\u00FCr").native());
}

}  // namespace
