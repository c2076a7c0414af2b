#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cwctype>
#include <filesystem>
#include <string>

namespace {

std::wstring ModulePath() {
  wchar_t path[1024];
  const DWORD length = GetModuleFileNameW(nullptr, path, 1024);
  return std::wstring(path, length);
}

TEST(Paths, ModuleFileNameIsTheRunningExecutable) {
  const std::filesystem::path path(ModulePath());
  EXPECT_TRUE(path.is_absolute());
  EXPECT_TRUE(std::filesystem::is_regular_file(path));
  EXPECT_EQ(L"contract", path.stem().wstring());
}

TEST(Paths, ModuleFileNameIsCutToTheBufferAndSaysSo) {
  const std::wstring full = ModulePath();
  wchar_t path[1024];
  std::fill_n(path, 1024, L'#');
  const auto size = static_cast<DWORD>(full.size());  // without room for the NUL
  EXPECT_EQ(size, GetModuleFileNameW(nullptr, path, size));
  EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER}, GetLastError());
  EXPECT_EQ(full.substr(0, size - 1), std::wstring(path, size - 1));
  EXPECT_EQ(L'#', path[size]) << "written beyond the room";
  EXPECT_EQ(size, GetModuleFileNameW(nullptr, path, size + 1));
  EXPECT_EQ(full, path);
}

TEST(Paths, TemporaryDirectoryEndsWithASeparatorAndCanBeWritten) {
  wchar_t path[1024];
  const DWORD length = GetTempPathW(1024, path);
  const std::wstring directory(path, length);
  ASSERT_FALSE(directory.empty());
  EXPECT_EQ(std::filesystem::path::preferred_separator,
            static_cast<std::filesystem::path::value_type>(directory.back()));
  EXPECT_TRUE(std::filesystem::is_directory(directory));

  path[0] = L'#';
  EXPECT_EQ(length + 1, GetTempPathW(length, path)) << "the room needed, with the NUL";
  EXPECT_EQ(length, GetTempPathW(length + 1, path));
  EXPECT_EQ(directory, path);
}

TEST(Paths, CommandLineBeginsWithTheProgramAndStaysInPlace) {
  const LPWSTR line = GetCommandLineW();
  EXPECT_NE(std::wstring::npos, std::wstring(line).find(L"contract"));
  EXPECT_EQ(line, GetCommandLineW());
}

}  // namespace
