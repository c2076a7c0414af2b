#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <set>
#include <thread>

#include "tests/contract/kernel_handles.h"

namespace {

using contract::AutoResetEvent;
using contract::ErrorOf;
using contract::Handle;
using contract::kPatienceMs;
using contract::ManualResetEvent;

TEST(KernelHandles, AreSmallMultiplesOfFourAndDistinctWhileOpen) {
  std::set<HANDLE> handles;
  for (int i = 0; i < 2000; ++i) {
    const HANDLE event = AutoResetEvent();
    const auto value = reinterpret_cast<UINT_PTR>(event);
    ASSERT_NE(0U, value);
    EXPECT_EQ(0U, value % 4);
    EXPECT_LT(value, 0x80000000U);
    EXPECT_TRUE(handles.insert(event).second);
  }
  for (const HANDLE event : handles) EXPECT_TRUE(CloseHandle(event));
}

TEST(KernelHandles, CallsRefuseHandlesThatAreNotOpenOrOfAnotherKind) {
  const Handle mutex = CreateMutexW(nullptr, FALSE, nullptr);
  const Handle event = AutoResetEvent();
  // Closed last: its value is free for the next handle that is made.
  const HANDLE closed = AutoResetEvent();
  EXPECT_TRUE(CloseHandle(closed));
  const struct {
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
      {"wait for closed", WaitForSingleObject(closed, 0) != WAIT_FAILED, GetLastError()},
  };
  for (const auto& call : calls) {
    EXPECT_FALSE(call.result) << call.what;
    EXPECT_EQ(6U, call.error) << call.what;
  }
}

TEST(KernelEvents, AutoResetEventLetsOneWaitThroughForEachSet) {
  const Handle event = CreateEventW(nullptr, FALSE, TRUE, nullptr);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, 0));
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(event, 0));
  SetEvent(event);
  SetEvent(event);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, INFINITE));
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(event, 1));
}

TEST(KernelEvents, ManualResetEventStaysSetUntilItIsReset) {
  const Handle event = ManualResetEvent();
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(event, 0));
  SetEvent(event);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, INFINITE));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, INFINITE));
  ResetEvent(event);
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(event, 0));
}

// Two threads hand a turn to and fro: a lost wake-up stops them.
TEST(KernelEvents, NoWakeUpIsLostBetweenTwoThreads) {
  constexpr int kTurns = 5000;
  const Handle ping = AutoResetEvent();
  const Handle pong = AutoResetEvent();
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
}

TEST(KernelEvents, ManualResetEventReleasesEveryThreadThatWaits) {
  const Handle event = ManualResetEvent();
  std::thread threads[4];
  for (std::thread& thread : threads) {
    thread =
        std::thread([&] { EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, kPatienceMs)); });
  }
  SetEvent(event);
  for (std::thread& thread : threads) thread.join();
}

TEST(KernelEvents, NamedEventIsOneObjectAsLongAsItHasHandles) {
  constexpr wchar_t kName[] = L"WirefoxContractEvent";
  SetLastError(1);
  Handle first = AutoResetEvent(kName);
  EXPECT_EQ(0U, GetLastError());
  Handle second = CreateEventW(nullptr, TRUE, TRUE, kName);
  EXPECT_EQ(183U, GetLastError());
  EXPECT_NE(HANDLE{first}, HANDLE{second});
  SetEvent(first);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(second, 0));
  // Still the first one's: auto-reset.
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(second, 0));
  first.Close();
  CloseHandle(AutoResetEvent(kName));
  EXPECT_EQ(183U, GetLastError());
  second.Close();
  const Handle anew = AutoResetEvent(kName);
  EXPECT_EQ(0U, GetLastError());
}

TEST(KernelEvents, NameThatAnotherKindOfObjectHasIsRefused) {
  constexpr wchar_t kName[] = L"WirefoxContractName";
  Handle event = AutoResetEvent(kName);
  EXPECT_EQ(6U, ErrorOf(CreateMutexW(nullptr, FALSE, kName)));
  EXPECT_EQ(6U, ErrorOf(OpenMutexW(SYNCHRONIZE, FALSE, kName)));
  event.Close();
  const Handle mutex = CreateMutexW(nullptr, FALSE, kName);
  EXPECT_EQ(6U, ErrorOf(AutoResetEvent(kName)));
}

TEST(KernelWaits, WaitForOneOfSeveralTellsTheFirstThatIsSet) {
  const Handle first = AutoResetEvent(), second = AutoResetEvent(), third = AutoResetEvent();
  const HANDLE events[] = {first, second, third};
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForMultipleObjects(3, events, FALSE, 0));
  SetEvent(third);
  SetEvent(second);
  EXPECT_EQ(WAIT_OBJECT_0 + 1, WaitForMultipleObjects(3, events, FALSE, INFINITE));
  EXPECT_EQ(WAIT_OBJECT_0 + 2, WaitForMultipleObjects(3, events, FALSE, INFINITE));
  std::thread setter([&] { SetEvent(first); });
  EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(3, events, FALSE, kPatienceMs));
  setter.join();
  // Nothing of the waits is left behind.
  for (const HANDLE event : events) {
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(event, 0));
  }
  const HANDLE with_null[] = {first, nullptr, third};
  EXPECT_EQ(WAIT_FAILED, WaitForMultipleObjects(3, with_null, FALSE, 0));
  EXPECT_EQ(6U, GetLastError());
  EXPECT_EQ(WAIT_FAILED, WaitForMultipleObjects(0, events, FALSE, 0));
  EXPECT_EQ(87U, GetLastError());
}

TEST(KernelWaits, TimeOutLetsTheClockAdvanceByItsLength) {
  const Handle event = AutoResetEvent();
  const DWORD before = GetTickCount();
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(event, 60));
  Sleep(60);
  // Tick counts may be as coarse as 16 ms.
  EXPECT_GE(GetTickCount() - before, 100U);
}

struct Seen {
  const Handle go = AutoResetEvent();
  std::atomic<DWORD> thread_id = 0;
};

DWORD WINAPI WaitForGo(LPVOID parameter) {
  auto& seen = *static_cast<Seen*>(parameter);
  seen.thread_id = GetCurrentThreadId();
  WaitForSingleObject(seen.go, kPatienceMs);
  SetLastError(1);
  return 0;
}

TEST(KernelThreads, HandleIsSignalledAtTheEnd) {
  Seen seen;
  DWORD id = 0;
  const Handle thread = CreateThread(nullptr, 0, WaitForGo, &seen, 0, &id);
  EXPECT_NE(GetCurrentThreadId(), id);
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(thread, 0));
  SetLastError(4711);
  SetEvent(seen.go);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, kPatienceMs));
  EXPECT_EQ(4711U, GetLastError()) << "each thread has its own";
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 0));
  EXPECT_EQ(id, seen.thread_id.load());
}

DWORD WINAPI CountDown(LPVOID parameter) {
  --*static_cast<std::atomic<int>*>(parameter);
  return 0;
}

TEST(KernelThreads, RunOnWhenTheirHandleIsClosed) {
  std::atomic<int> left = 8;
  for (int i = 0; i < 8; ++i) {
    EXPECT_TRUE(CloseHandle(CreateThread(nullptr, 0, CountDown, &left, 0, nullptr)));
  }
  for (const DWORD start = GetTickCount(); left > 0 && GetTickCount() - start < kPatienceMs;) {
    Sleep(1);
  }
  EXPECT_EQ(0, left.load());
}

}  // namespace
