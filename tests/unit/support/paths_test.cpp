#include "support/paths.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

TEST(Paths, NamesThatStandByThemselves) {
  const bool slash_host = std::filesystem::path::preferred_separator == L'/';
  struct Case {
    const char* name;
    bool absolute;
  };
  const Case cases[] = {
      {"c:\\fw\\fw.hex", true},
      {"c:fw.hex", true},
      {":c", false},
      {"a:", true},
      {"fw.hex", false},
      {"", false},
      {"x", false},
      {"dir/fw.hex", false},
      {"\\\\host\\fw", false},
      {"\\fw.hex", false},
      {"/opt/fw.hex", slash_host},
      {"/", slash_host},
  };
  for (const Case& c : cases) EXPECT_EQ(c.absolute, IsAbsoluteName(c.name)) << c.name;
}

TEST(Paths, ModuleDirectoryIsThatOfTheRunningProgram) {
  const std::string directory = GetModuleDirectory();
  ASSERT_FALSE(directory.empty());
  EXPECT_EQ(static_cast<char>(std::filesystem::path::preferred_separator), directory.back());
  bool holds_this_program = false;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.path().stem() == "unit_support") holds_this_program = true;
  }
  EXPECT_TRUE(holds_this_program) << directory;
}

TEST(Paths, NarrowTextKeepsPlainNames) {
  EXPECT_EQ("", NarrowText(L""));
  EXPECT_EQ("WFX0001 \\?", NarrowText(L"WFX0001 \\?"));
}

}  // namespace
