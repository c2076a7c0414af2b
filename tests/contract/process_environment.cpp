// What a process learns of its surroundings, and tells them.
#include <gtest/gtest.h>
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/contract/kernel_handles.h"

namespace {

using contract::ErrorOf;

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

std::vector<DWORD> ListProcesses(DWORD size) {
  std::vector<DWORD> ids(size / sizeof(DWORD), 0xFFFFFFFF);
  DWORD filled = 0;
  EXPECT_TRUE(EnumProcesses(ids.data(), size, &filled));
  EXPECT_LE(filled, size);
  EXPECT_EQ(0u, filled % sizeof(DWORD));
  ids.resize(filled / sizeof(DWORD));
  return ids;
}

TEST(ProcessList, HoldsThisProcessAndEachOnlyOnce) {
  const auto ids = ListProcesses(64 * 1024);
  EXPECT_EQ(1, std::count(ids.begin(), ids.end(), GetCurrentProcessId()));
  EXPECT_EQ(ids.size(), std::set<DWORD>(ids.begin(), ids.end()).size());
}

TEST(ProcessList, FillsAtMostTheBufferAndReportsWhatItFilled) {
  EXPECT_EQ(2u, ListProcesses(2 * sizeof(DWORD)).size());
  std::vector<DWORD> ids(4, 0xFFFFFFFF);
  DWORD filled = 0;
  EXPECT_TRUE(EnumProcesses(ids.data(), sizeof(DWORD) + 3, &filled));
  EXPECT_EQ(sizeof(DWORD), filled) << "half an id is none";
  EXPECT_EQ(0xFFFFFFFF, ids[1]) << "written beyond the buffer";
}

BOOL WINAPI Heed(DWORD) { return TRUE; }
BOOL WINAPI Disregard(DWORD) { return FALSE; }

TEST(ConsoleControl, HandlersAreRemovedAsOftenAsTheyWereAdded) {
  EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOf(SetConsoleCtrlHandler(Heed, FALSE)));
  ASSERT_TRUE(SetConsoleCtrlHandler(Heed, TRUE));
  ASSERT_TRUE(SetConsoleCtrlHandler(Heed, TRUE));
  EXPECT_FALSE(SetConsoleCtrlHandler(Disregard, FALSE));
  EXPECT_TRUE(SetConsoleCtrlHandler(Heed, FALSE));
  EXPECT_TRUE(SetConsoleCtrlHandler(Heed, FALSE));
  EXPECT_FALSE(SetConsoleCtrlHandler(Heed, FALSE));
}

TEST(EventLog, ASourceTakesReports) {
  const HANDLE log = RegisterEventSourceW(nullptr, L"WirefoxContractTest");
  ASSERT_NE(nullptr, log);
  const wchar_t* text = L"A test event.";
  EXPECT_TRUE(ReportEventW(log, EVENTLOG_INFORMATION_TYPE, 0, 0, nullptr, 1, 0, &text, nullptr));
  EXPECT_TRUE(DeregisterEventSource(log));
}

TEST(Resources, AnAbsentStringHasLengthZero) {
  wchar_t text[8] = L"before";
  EXPECT_EQ(0, LoadStringW(nullptr, 55306, text, 8));
}

}  // namespace
