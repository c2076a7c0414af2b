#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>

namespace {

constexpr DWORD kPatienceMs = 20000;

struct Seen {
  HANDLE go;
  std::atomic<DWORD> thread_id = 0;
};

DWORD WINAPI WaitForGo(LPVOID parameter) {
  auto& seen = *static_cast<Seen*>(parameter);
  seen.thread_id = GetCurrentThreadId();
  WaitForSingleObject(seen.go, kPatienceMs);
  return 0xFFFFFFFE;
}

TEST(KernelThreads, HandleIsSignalledAtTheEndAndTellsTheExitCode) {
  Seen seen;
  seen.go = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  DWORD id = 0;
  const HANDLE thread = CreateThread(nullptr, 0, WaitForGo, &seen, 0, &id);
  ASSERT_NE(nullptr, thread);
  EXPECT_NE(GetCurrentThreadId(), id);
  DWORD exit_code = 0;
  EXPECT_TRUE(GetExitCodeThread(thread, &exit_code));
  EXPECT_EQ(259U, exit_code);
  EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(thread, 0));
  SetEvent(seen.go);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, kPatienceMs));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 0));
  EXPECT_TRUE(GetExitCodeThread(thread, &exit_code));
  EXPECT_EQ(0xFFFFFFFEU, exit_code);
  EXPECT_EQ(id, seen.thread_id.load());
  CloseHandle(thread);
  CloseHandle(seen.go);
}

DWORD WINAPI CountDown(LPVOID parameter) {
  --*static_cast<std::atomic<int>*>(parameter);
  return 0;
}

TEST(KernelThreads, RunOnWhenTheirHandleIsClosed) {
  std::atomic<int> left = 8;
  for (int i = 0; i < 8; ++i) {
    const HANDLE thread = CreateThread(nullptr, 0, CountDown, &left, 0, nullptr);
    ASSERT_NE(nullptr, thread);
    CloseHandle(thread);
  }
  for (const DWORD start = GetTickCount(); left > 0 && GetTickCount() - start < kPatienceMs;) {
    Sleep(1);
  }
  EXPECT_EQ(0, left.load());
}

DWORD WINAPI OverwriteLastError(LPVOID) {
  SetLastError(1);
  return GetLastError();
}

TEST(KernelThreads, LastErrorBelongsToTheThread) {
  const HANDLE thread = CreateThread(nullptr, 0, OverwriteLastError, nullptr, 0, nullptr);
  SetLastError(4711);
  WaitForSingleObject(thread, INFINITE);
  EXPECT_EQ(4711U, GetLastError());
  CloseHandle(thread);
}

}  // namespace
