#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <string>

#include "tests/contract/kernel_handles.h"
#include "tests/unit/scratch_folder.h"

namespace {

using contract::ErrorOf;
using contract::kPatienceMs;

class ChangeNotification : public testing::Test {
 protected:
  void TearDown() override {
    if (notification_ != INVALID_HANDLE_VALUE) FindCloseChangeNotification(notification_);
  }

  void Watch(DWORD filter) {
    notification_ = FindFirstChangeNotificationW(Folder(L"").c_str(), FALSE, filter);
    ASSERT_NE(INVALID_HANDLE_VALUE, notification_);
  }

  bool IsSignalled(DWORD patience_ms) {
    return WaitForSingleObject(notification_, patience_ms) == WAIT_OBJECT_0;
  }

  std::wstring Folder(const std::wstring& name) const {
    return std::filesystem::path(folder_.Path("")).wstring() + name;
  }

  const unit::ScratchFolder folder_;
  HANDLE notification_ = INVALID_HANDLE_VALUE;
};

TEST_F(ChangeNotification, AFileWrittenAnewIsReportedEachTime) {
  folder_.Write("wfx.log", "WFX0001\r\n");
  for (const char* text : {"WFX0001\r\nWFX0002\r\n", ""}) {
    Watch(FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_SIZE);
    EXPECT_FALSE(IsSignalled(0)) << "what happened before does not count";
    folder_.Write("wfx.log", text);
    ASSERT_TRUE(IsSignalled(kPatienceMs));
    EXPECT_TRUE(IsSignalled(0)) << "it stays so until asked for the next change";
    EXPECT_TRUE(FindCloseChangeNotification(notification_));
  }
  notification_ = INVALID_HANDLE_VALUE;
}

TEST_F(ChangeNotification, NewAndDeletedFilesAreNameChanges) {
  Watch(FILE_NOTIFY_CHANGE_FILE_NAME);
  folder_.Write("new", "");
  ASSERT_TRUE(IsSignalled(kPatienceMs));
  ASSERT_TRUE(FindNextChangeNotification(notification_));
  std::filesystem::remove(folder_.Path("new"));
  EXPECT_TRUE(IsSignalled(kPatienceMs));
}

TEST_F(ChangeNotification, WaitsTogetherWithAnEvent) {
  Watch(FILE_NOTIFY_CHANGE_FILE_NAME);
  const contract::Handle event = contract::AutoResetEvent();
  const HANDLE handles[] = {notification_, event};
  SetEvent(event);
  EXPECT_EQ(DWORD{WAIT_OBJECT_0 + 1}, WaitForMultipleObjects(2, handles, FALSE, kPatienceMs));
  folder_.Write("new", "");
  EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForMultipleObjects(2, handles, FALSE, kPatienceMs));
}

TEST_F(ChangeNotification, AMissingDirectoryAndNoFilterAreRefused) {
  EXPECT_EQ(INVALID_HANDLE_VALUE, FindFirstChangeNotificationW(Folder(L"missing").c_str(), FALSE,
                                                               FILE_NOTIFY_CHANGE_FILE_NAME));
  const DWORD error = GetLastError();
  EXPECT_TRUE(error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) << error;
  EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER},
            ErrorOf(FindFirstChangeNotificationW(Folder(L"").c_str(), FALSE, 0)));
}

}  // namespace
