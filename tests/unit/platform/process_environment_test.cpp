// What this host adds to the calls that tests/contract checks on both.
#include <gtest/gtest.h>
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/platform/child_process.h"
#include "tests/unit/platform/scratch_home.h"

namespace {

std::vector<DWORD> ListProcesses(std::size_t room = 4096) {
  std::vector<DWORD> ids(room);
  DWORD filled = 0;
  EXPECT_TRUE(EnumProcesses(ids.data(), static_cast<DWORD>(room * sizeof(DWORD)), &filled));
  ids.resize(filled / sizeof(DWORD));
  return ids;
}

TEST(ProcessList, BeginsWithIdZeroAndTheNewestAndLeavesOutWhatHasEnded) {
  ChildProcess child([]() -> int {
    for (;;) pause();
  });
  const auto id = static_cast<DWORD>(child.id());
  const auto ids = ListProcesses();
  ASSERT_FALSE(ids.empty());
  EXPECT_EQ(0u, ids[0]);
  const auto child_place = std::find(ids.begin(), ids.end(), id);
  EXPECT_LT(child_place, std::find(ids.begin(), ids.end(), GetCurrentProcessId()));
  EXPECT_EQ(std::vector<DWORD>{0}, ListProcesses(1));

  kill(child.id(), SIGKILL);
  siginfo_t info;
  waitid(P_PID, id, &info, WEXITED | WNOWAIT);
  const auto later = ListProcesses();
  EXPECT_EQ(0, std::count(later.begin(), later.end(), id)) << "nobody has waited for it";
}

TEST(TemporaryPath, LiesBelowTheInstallationsHome) {
  const ScratchHome home;
  wchar_t path[MAX_PATH];
  GetTempPathW(MAX_PATH, path);
  EXPECT_EQ(home.directory().wstring() + L"/tmp/", path);
  EXPECT_TRUE(std::filesystem::is_directory(home.directory() / "tmp"));
}

TEST(ChangeNotification, AChangeBetweenWaitAndNextIsNotLost) {
  const ScratchHome home;
  const std::wstring directory = home.directory().wstring();
  const HANDLE notification =
      FindFirstChangeNotificationW(directory.c_str(), FALSE, FILE_NOTIFY_CHANGE_DIR_NAME);
  ASSERT_NE(INVALID_HANDLE_VALUE, notification);
  std::filesystem::create_directory(home.directory() / "first");
  ASSERT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(notification, 10000));
  std::filesystem::create_directory(home.directory() / "second");
  ASSERT_TRUE(FindNextChangeNotification(notification));
  EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(notification, 10000));
  EXPECT_TRUE(FindCloseChangeNotification(notification));
  EXPECT_FALSE(FindCloseChangeNotification(notification));
  EXPECT_EQ(INVALID_HANDLE_VALUE,
            FindFirstChangeNotificationW(directory.c_str(), TRUE, FILE_NOTIFY_CHANGE_DIR_NAME));
  EXPECT_EQ(DWORD{ERROR_NOT_SUPPORTED}, GetLastError());
}

}  // namespace
