// Files in memory that two processes share, and what one process learns of another.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "tests/contract/kernel_handles.h"
#include "tests/support/process.h"
#include "tests/unit/scratch_folder.h"

namespace {

using contract::ErrorOf;
using contract::Handle;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

class MappedFile : public testing::Test {
 protected:
  HANDLE Open(DWORD disposition, DWORD access, DWORD flags = 0) const {
    return CreateFileW(path_.c_str(), access, kShareAll, nullptr, disposition,
                       FILE_FLAG_OPEN_REPARSE_POINT | flags, nullptr);
  }
  HANDLE Create(DWORD flags = 0) const {
    return Open(CREATE_NEW, GENERIC_READ | GENERIC_WRITE, flags);
  }

  const unit::ScratchFolder folder_;
  const std::filesystem::path place_ = folder_.Path("shared");
  const std::wstring path_ = place_.wstring();
};

TEST_F(MappedFile, WhatOneViewWritesTheOtherReadsUntilTheFileGoesWithItsHandle) {
  Handle file = Create(FILE_FLAG_DELETE_ON_CLOSE);
  ASSERT_NE(INVALID_HANDLE_VALUE, file);
  Handle mapping = CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, 8192, nullptr);
  ASSERT_NE(nullptr, mapping) << GetLastError();
  auto* const written =
      static_cast<char*>(MapViewOfFile(mapping, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 8192));
  ASSERT_NE(nullptr, written);
  EXPECT_EQ(0, written[8191]);

  Handle other = Open(OPEN_EXISTING, GENERIC_READ);
  ASSERT_NE(INVALID_HANDLE_VALUE, other) << GetLastError();
  EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY},
            ErrorOf(CreateFileMappingW(other, nullptr, PAGE_READONLY, 0, 8193, nullptr)));
  Handle reading = CreateFileMappingW(other, nullptr, PAGE_READONLY, 0, 8192, nullptr);
  const auto* const read =
      static_cast<const char*>(MapViewOfFile(reading, FILE_MAP_READ, 0, 0, 8192));
  ASSERT_NE(nullptr, read);
  std::strcpy(written + 5000, "told");
  EXPECT_STREQ("told", read + 5000);
  // Views outlive the handles.
  for (Handle* handle : {&mapping, &reading, &other, &file}) handle->Close();
  std::strcpy(written + 5000, "still");
  EXPECT_STREQ("still", read + 5000);
  EXPECT_TRUE(UnmapViewOfFile(written));
  EXPECT_TRUE(UnmapViewOfFile(read));
  EXPECT_EQ(DWORD{ERROR_INVALID_ADDRESS}, ErrorOf(UnmapViewOfFile(read)));
  EXPECT_FALSE(std::filesystem::exists(place_));
}

TEST_F(MappedFile, IsMadeOnlyWhereNothingStandsAndNeverThroughALink) {
  EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, ErrorOf(Open(OPEN_EXISTING, GENERIC_READ)));
  EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, ErrorOf(DeleteFileW(path_.c_str())));
  { const Handle file = Create(); }
  EXPECT_EQ(DWORD{ERROR_FILE_EXISTS}, ErrorOf(Create()));
  EXPECT_TRUE(DeleteFileW(path_.c_str()));
  folder_.Write("victim", "kept");
  std::error_code refused;  // not every system lets every account make links
  std::filesystem::create_symlink(folder_.Path("victim"), place_, refused);
  if (refused) return;
  EXPECT_EQ(DWORD{ERROR_FILE_EXISTS}, ErrorOf(Create()));
  EXPECT_TRUE(DeleteFileW(path_.c_str()));
  EXPECT_EQ("kept", folder_.Read("victim"));
}

constexpr wchar_t kGate[] = L"WirefoxContractGate";

// Run as a process of its own by the test below: ends when it gets the gate.
TEST(OtherProcesses, DISABLED_StayUntilTheGateOpens) {
  const Handle gate = OpenMutexW(SYNCHRONIZE, FALSE, kGate);
  EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(gate, contract::kPatienceMs));
}

// Nothing when it has ended.
std::optional<ULONGLONG> CreationOf(HANDLE process) {
  FILETIME created, exited, kernel, user;
  if (!GetProcessTimes(process, &created, &exited, &kernel, &user)) return std::nullopt;
  if (exited.dwLowDateTime != 0 || exited.dwHighDateTime != 0) return std::nullopt;
  return ULONGLONG{created.dwHighDateTime} << 32 | created.dwLowDateTime;
}

HANDLE Open(DWORD id) { return OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id); }

TEST(OtherProcesses, AreKnownByTheirProgramAndTheirBeginUntilTheirEnd) {
  wchar_t own_path[1024];
  const DWORD length = GetModuleFileNameW(nullptr, own_path, 1024);
  const Handle gate = CreateMutexW(nullptr, TRUE, kGate);
  support::Process child({std::filesystem::path(own_path).string(),
                          "--gtest_also_run_disabled_tests",
                          "--gtest_filter=OtherProcesses.DISABLED_*"});
  const auto id = static_cast<DWORD>(child.id());
  const Handle one = Open(id);
  ASSERT_NE(nullptr, one);
  wchar_t path[1024];
  // On Linux a child is for a moment what its parent is; that is the same program here.
  DWORD size = 1024;
  EXPECT_TRUE(QueryFullProcessImageNameW(one, 0, path, &size));
  EXPECT_EQ(length, size);
  EXPECT_STREQ(own_path, path);
  size = length;
  EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER},
            ErrorOf(QueryFullProcessImageNameW(one, 0, path, &size)));
  const auto begin = CreationOf(one);
  EXPECT_NE(std::nullopt, begin);
  EXPECT_EQ(begin, CreationOf(Handle(Open(id))));
  EXPECT_LE(CreationOf(Handle(Open(GetCurrentProcessId()))), begin);

  ReleaseMutex(gate);
  child.ReadAll();
  EXPECT_EQ(0, child.Wait());
  EXPECT_EQ(std::nullopt, CreationOf(one));
  EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOf(Open(0x7FFFFFFC)));
}

}  // namespace
