#include <gtest/gtest.h>
#include <windows.h>

#include <set>
#include <thread>

namespace {

// Long enough for any machine; only a fault waits that long.
constexpr DWORD kPatienceMs = 20000;

TEST(KernelHandles, AreSmallMultiplesOfFourAndDistinctWhileOpen) {
  std::set<HANDLE> handles;
  for (int i = 0; i < 2000; ++i) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const auto value = reinterpret_cast<UINT_PTR>(event);
    ASSERT_NE(0U, value);
    EXPECT_EQ(0U, value % 4);
    EXPECT_LT(value, 0x80000000U);
    EXPECT_TRUE(handles.insert(event).second);
  }
  for (const HANDLE event : handles) EXPECT_TRUE(CloseHandle(event));
}

TEST(KernelHandles, CallsRefuseHandlesThatAreNotOpenOrOfAnotherKind) {
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
  const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  // Closed last: its value is free for the next handle that is made.
  const HANDLE closed = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  EXPECT_TRUE(CloseHandle(closed));
  struct {
    const char* what;
    BOOL result;
    DWORD error;
  } calls[] = {
      {"close again", CloseHandle(closed), GetLastError()},
      {"close null", CloseHandle(nullptr), GetLastError()},
      {"set closed", SetEvent(closed), GetLastError()},
      {"set a mutex", SetEvent(mutex), GetLastError()},
      {"reset null", ResetEvent(nullptr), GetLastError()},
      {"release an event", ReleaseMutex(event), GetLastError()},
  };
  for (const auto& call : calls) {
    SCOPED_TRACE(call.what);
    EXPECT_FALSE(call.result);
    EXPECT_EQ(6U, call.error);
  }
  EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(closed, 0));
  EXPECT_EQ(6U, GetLastError());
  CloseHandle(mutex);
  CloseHandle(event);
}

TEST(KernelEvents, AutoResetEventLetsOneWaitThroughForEachSet) {
  const HANDLE event = CreateEventW(nullptr, FALSE, TRUE, nullptr);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, 0));
  EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(event, 0));
  SetEvent(event);
  SetEvent(event);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, INFINITE));
  EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(event, 1));
  CloseHandle(event);
}

TEST(KernelEvents, ManualResetEventStaysSetUntilItIsReset) {
  const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(event, 0));
  SetEvent(event);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, INFINITE));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, INFINITE));
  ResetEvent(event);
  EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(event, 0));
  CloseHandle(event);
}

// Two threads hand a turn to and fro: a lost wake-up stops them.
TEST(KernelEvents, NoWakeUpIsLostBetweenTwoThreads) {
  constexpr int kTurns = 5000;
  const HANDLE ping = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  const HANDLE pong = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  std::thread other([&] {
    for (int i = 0; i < kTurns; ++i) {
      if (WaitForSingleObject(ping, kPatienceMs) != WAIT_OBJECT_0) return;
      SetEvent(pong);
    }
  });
  int turns = 0;
  for (; turns < kTurns; ++turns) {
    SetEvent(ping);
    if (WaitForSingleObject(pong, kPatienceMs) != WAIT_OBJECT_0) break;
  }
  EXPECT_EQ(kTurns, turns);
  other.join();
  CloseHandle(ping);
  CloseHandle(pong);
}

TEST(KernelEvents, ManualResetEventReleasesEveryThreadThatWaits) {
  const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  DWORD results[4] = {};
  std::thread threads[4];
  for (int i = 0; i < 4; ++i) {
    threads[i] = std::thread([&, i] { results[i] = WaitForSingleObject(event, kPatienceMs); });
  }
  SetEvent(event);
  for (std::thread& thread : threads) thread.join();
  for (const DWORD result : results) EXPECT_EQ(WAIT_OBJECT_0, result);
  CloseHandle(event);
}

TEST(KernelEvents, NamedEventIsOneObjectAsLongAsItHasHandles) {
  SetLastError(1);
  const HANDLE first = CreateEventW(nullptr, FALSE, FALSE, L"WirefoxContractEvent");
  EXPECT_EQ(0U, GetLastError());
  const HANDLE second = CreateEventW(nullptr, TRUE, TRUE, L"WirefoxContractEvent");
  EXPECT_EQ(183U, GetLastError());
  ASSERT_NE(nullptr, second);
  EXPECT_NE(first, second);
  SetEvent(first);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(second, 0));
  // Still the first one's: auto-reset.
  EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(second, 0));
  CloseHandle(first);
  CloseHandle(CreateEventW(nullptr, FALSE, FALSE, L"WirefoxContractEvent"));
  EXPECT_EQ(183U, GetLastError());
  CloseHandle(second);
  const HANDLE anew = CreateEventW(nullptr, FALSE, FALSE, L"WirefoxContractEvent");
  EXPECT_EQ(0U, GetLastError());
  CloseHandle(anew);
}

TEST(KernelEvents, NameThatAnotherKindOfObjectHasIsRefused) {
  const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, L"WirefoxContractName");
  EXPECT_EQ(nullptr, CreateMutexW(nullptr, FALSE, L"WirefoxContractName"));
  EXPECT_EQ(6U, GetLastError());
  EXPECT_EQ(nullptr, OpenMutexW(SYNCHRONIZE, FALSE, L"WirefoxContractName"));
  EXPECT_EQ(6U, GetLastError());
  CloseHandle(event);
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, L"WirefoxContractName");
  ASSERT_NE(nullptr, mutex);
  EXPECT_EQ(nullptr, CreateEventW(nullptr, FALSE, FALSE, L"WirefoxContractName"));
  EXPECT_EQ(6U, GetLastError());
  CloseHandle(mutex);
}

TEST(KernelWaits, WaitForOneOfSeveralTellsTheFirstThatIsSet) {
  HANDLE events[3];
  for (HANDLE& event : events) event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForMultipleObjects(3, events, FALSE, 0));
  SetEvent(events[2]);
  SetEvent(events[1]);
  EXPECT_EQ(WAIT_OBJECT_0 + 1, WaitForMultipleObjects(3, events, FALSE, INFINITE));
  EXPECT_EQ(WAIT_OBJECT_0 + 2, WaitForMultipleObjects(3, events, FALSE, INFINITE));
  std::thread setter([&] { SetEvent(events[0]); });
  EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(3, events, FALSE, kPatienceMs));
  setter.join();
  // Nothing of the waits is left behind.
  for (const HANDLE event : events) {
    EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(event, 0));
  }
  events[1] = nullptr;
  EXPECT_EQ(WAIT_FAILED, WaitForMultipleObjects(3, events, FALSE, 0));
  EXPECT_EQ(6U, GetLastError());
  EXPECT_EQ(WAIT_FAILED, WaitForMultipleObjects(0, events, FALSE, 0));
  EXPECT_EQ(87U, GetLastError());
  CloseHandle(events[0]);
  CloseHandle(events[2]);
}

TEST(KernelWaits, TimeOutLetsTheClockAdvanceByItsLength) {
  const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  const DWORD before = GetTickCount();
  EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(event, 60));
  Sleep(60);
  // Tick counts may be as coarse as 16 ms.
  EXPECT_GE(GetTickCount() - before, 100U);
  CloseHandle(event);
}

}  // namespace
