#include <gtest/gtest.h>
#include <windows.h>

namespace {

BOOL WINAPI Heed(DWORD) { return TRUE; }
BOOL WINAPI Disregard(DWORD) { return FALSE; }

TEST(ConsoleControl, HandlersAreRemovedAsOftenAsTheyWereAdded) {
  EXPECT_FALSE(SetConsoleCtrlHandler(Heed, FALSE));
  EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
  ASSERT_TRUE(SetConsoleCtrlHandler(Heed, TRUE));
  ASSERT_TRUE(SetConsoleCtrlHandler(Heed, TRUE));
  EXPECT_FALSE(SetConsoleCtrlHandler(Disregard, FALSE));
  EXPECT_TRUE(SetConsoleCtrlHandler(Heed, FALSE));
  EXPECT_TRUE(SetConsoleCtrlHandler(Heed, FALSE));
  EXPECT_FALSE(SetConsoleCtrlHandler(Heed, FALSE));
}

}  // namespace
