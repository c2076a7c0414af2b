#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/contract/kernel_handles.h"

namespace {

using contract::ErrorOf;
using contract::kPatienceMs;

class ChangeNotification : public testing::Test {
 protected:
  void SetUp() override {
    wchar_t temporary[1024];
    GetTempPathW(1024, temporary);
    directory_ = std::filesystem::path(temporary) /
                 ("wirefox-contract-" + std::to_string(GetCurrentProcessId()));
    std::filesystem::remove_all(directory_);
    std::filesystem::create_directory(directory_);
  }

  void TearDown() override {
    if (notification_ != INVALID_HANDLE_VALUE) FindCloseChangeNotification(notification_);
    std::filesystem::remove_all(directory_);
  }

  void Watch(DWORD filter) {
    notification_ = FindFirstChangeNotificationW(directory_.wstring().c_str(), FALSE, filter);
    ASSERT_NE(INVALID_HANDLE_VALUE, notification_);
  }

  void Write(const char* name, const char* text) {
    std::ofstream(directory_ / name, std::ios::binary) << text;
  }

  bool IsSignalled(DWORD patience_ms) {
    return WaitForSingleObject(notification_, patience_ms) == WAIT_OBJECT_0;
  }

  std::filesystem::path directory_;
  HANDLE notification_ = INVALID_HANDLE_VALUE;
};

TEST_F(ChangeNotification, AFileWrittenAnewIsReportedEachTime) {
  Write("wfx.log", "WFX0001\r\n");
  for (const char* text : {"WFX0001\r\nWFX0002\r\n", ""}) {
    Watch(FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_SIZE);
    EXPECT_FALSE(IsSignalled(0)) << "what happened before does not count";
    Write("wfx.log", text);
    ASSERT_TRUE(IsSignalled(kPatienceMs));
    EXPECT_TRUE(IsSignalled(0)) << "it stays so until asked for the next change";
    EXPECT_TRUE(FindCloseChangeNotification(notification_));
  }
  notification_ = INVALID_HANDLE_VALUE;
}

TEST_F(ChangeNotification, NewAndDeletedFilesAreNameChanges) {
  Watch(FILE_NOTIFY_CHANGE_FILE_NAME);
  Write("new", "");
  ASSERT_TRUE(IsSignalled(kPatienceMs));
  ASSERT_TRUE(FindNextChangeNotification(notification_));
  std::filesystem::remove(directory_ / "new");
  EXPECT_TRUE(IsSignalled(kPatienceMs));
}

TEST_F(ChangeNotification, WaitsTogetherWithAnEvent) {
  Watch(FILE_NOTIFY_CHANGE_FILE_NAME);
  const contract::Handle event = contract::AutoResetEvent();
  const HANDLE handles[] = {notification_, event};
  SetEvent(event);
  EXPECT_EQ(DWORD{WAIT_OBJECT_0 + 1}, WaitForMultipleObjects(2, handles, FALSE, kPatienceMs));
  Write("new", "");
  EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForMultipleObjects(2, handles, FALSE, kPatienceMs));
}

TEST_F(ChangeNotification, AMissingDirectoryAndNoFilterAreRefused) {
  EXPECT_EQ(INVALID_HANDLE_VALUE,
            FindFirstChangeNotificationW((directory_ / "missing").wstring().c_str(), FALSE,
                                         FILE_NOTIFY_CHANGE_FILE_NAME));
  const DWORD error = GetLastError();
  EXPECT_TRUE(error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) << error;
  EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER},
            ErrorOf(FindFirstChangeNotificationW(directory_.wstring().c_str(), FALSE, 0)));
}

}  // namespace
