// What this host adds to the calls that tests/contract checks on both.
#include <gtest/gtest.h>
#include <windows.h>

#include <psapi.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
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

// Files are readable and folders open, so that only whose they are counts.
TEST(OtherAccounts, TheirFilesAreNotReadAndTheirProgramsKnownByTheirOwnName) {
  if (geteuid() != 0) GTEST_SKIP() << "needs the right to be several accounts";
  const ScratchHome home;
  const std::filesystem::path file = home.directory() / "file";
  const auto error_of_opening = [&] {
    const HANDLE opened =
        CreateFileW(file.wstring().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                    FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    return opened == INVALID_HANDLE_VALUE ? GetLastError() : !CloseHandle(opened);
  };
  std::ofstream(file) << "planted";
  EXPECT_EQ(0U, error_of_opening());
  ASSERT_EQ(0, chown(file.c_str(), 65534, 65534));
  EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, error_of_opening());
  ASSERT_EQ(0, chown(file.c_str(), 0, 0));
  std::filesystem::create_symlink(file, home.directory() / "link");
  EXPECT_EQ(INVALID_HANDLE_VALUE, CreateFileW((home.directory() / "link").wstring().c_str(),
                                              GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  chmod(home.directory().c_str(), 0755);
  const auto parent = static_cast<DWORD>(getpid());
  ChildProcess stranger([&] {
    if (setuid(65534) != 0) return 1;
    wchar_t name[64];
    DWORD size = 64;
    const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, parent);
    if (!QueryFullProcessImageNameW(process, 0, name, &size)) return 2;
    if (name != std::wstring(L"unit_platform")) return 3;
    return error_of_opening() == 0 ? 0 : 4;  // root's are read
  });
  EXPECT_EQ(0, stranger.Await());
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
