#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/test_host.h"

namespace {

constexpr std::uint64_t kStart = 1'000'000;

// A thread of the layer, which takes part in the clock.
class Worker {
 public:
  explicit Worker(std::function<void()> body) : body_(std::move(body)) {
    thread_ = CreateThread(nullptr, 0, Run, this, 0, nullptr);
  }
  ~Worker() {
    WaitForSingleObject(thread_, INFINITE);
    CloseHandle(thread_);
  }
  HANDLE handle() const { return thread_; }

 private:
  static DWORD WINAPI Run(LPVOID self) {
    static_cast<Worker*>(self)->body_();
    return 0;
  }
  std::function<void()> body_;
  HANDLE thread_;
};

TEST(TestClock, StandsStillAndSleepsCostNothing) {
  const test_host::TestClock clock;
  EXPECT_EQ(kStart, clock.NowMs());
  EXPECT_EQ(kStart, GetTickCount());
  Sleep(24 * 3600 * 1000);
  EXPECT_EQ(kStart + 24 * 3600 * 1000, clock.NowMs());
}

TEST(TestClock, TimeOutOfAWaitMovesIt) {
  const test_host::TestClock clock;
  const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(event, 2000));
  EXPECT_EQ(kStart + 2000, clock.NowMs());
  SetEvent(event);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, 2000));
  EXPECT_EQ(kStart + 2000, clock.NowMs());
  CloseHandle(event);
}

TEST(TestClock, ThreadsWakeInTheOrderOfTheirDeadlines) {
  test_host::TestClock clock;
  std::mutex mutex;
  std::vector<std::string> seen;
  const auto note = [&](const char* who) {
    const std::lock_guard lock(mutex);
    seen.push_back(std::to_string(clock.NowMs() - kStart) + who);
  };
  {
    const Worker first([&] {
      for (int i = 0; i < 3; ++i) {
        Sleep(30);
        note("a");
      }
    });
    const Worker second([&] {
      Sleep(50);
      note("b");
      Sleep(50);
      note("b");
    });
    Sleep(70);
    note("main");
  }
  EXPECT_EQ((std::vector<std::string>{"30a", "50b", "60a", "70main", "90a", "100b"}), seen);
}

TEST(TestClock, ActionsRunAtTheirTimesBeforeDeadlinesOfTheSameMoment) {
  test_host::TestClock clock;
  const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  clock.CallAt(kStart + 100, [&] { SetEvent(event); });
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, 100));
  EXPECT_EQ(kStart + 100, clock.NowMs());

  std::vector<int> order;
  clock.CallAt(kStart + 300, [&] { order.push_back(3); });
  clock.CallAt(kStart + 200, [&] {
    order.push_back(1);
    clock.CallAt(kStart + 200, [&] { order.push_back(2); });
  });
  clock.CallAt(kStart + 300, [&] { order.push_back(4); });
  Sleep(150);
  EXPECT_EQ((std::vector<int>{1, 2}), order);
  Sleep(50);
  EXPECT_EQ((std::vector<int>{1, 2, 3, 4}), order);
  CloseHandle(event);
}

TEST(TestClock, AdvanceWakesEveryDeadlineOnTheWay) {
  test_host::TestClock clock;
  std::atomic<int> ticks = 0;
  std::atomic<bool> stop = false;
  const Worker poller([&] {
    while (!stop) {
      Sleep(1);
      ++ticks;
    }
  });
  clock.Advance(1000);
  EXPECT_EQ(1000, ticks.load());
  EXPECT_EQ(kStart + 1000, clock.NowMs());
  stop = true;
}

TEST(TestClock, DoesNotMoveWhileAThreadRunsOrBlocksElsewhere) {
  test_host::TestClock clock;
  std::mutex elsewhere;
  std::atomic<bool> woke = false;
  elsewhere.lock();
  const Worker blocked([&] { const std::lock_guard lock(elsewhere); });
  const Worker sleeper([&] {
    Sleep(10);
    woke = true;
  });
  std::thread([&] {
    // Real time goes by, and the sleeper's does not.
    for (int i = 0; i < 20; ++i) std::this_thread::yield();
    EXPECT_FALSE(woke);
  }).join();
  EXPECT_EQ(kStart, clock.NowMs());
  elsewhere.unlock();
  WaitForSingleObject(sleeper.handle(), INFINITE);
  EXPECT_EQ(kStart + 10, clock.NowMs());
}

TEST(TestClock, WaitingForANamedMutexCountsAsWaiting) {
  const test_host::TestClock clock;
  const HANDLE mutex = CreateMutexW(nullptr, TRUE, L"TestClockMutex");
  std::atomic<std::uint64_t> got_it_at = 0;
  {
    const Worker waiter([&] {
      const HANDLE same = CreateMutexW(nullptr, FALSE, L"TestClockMutex");
      EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(same, INFINITE));
      got_it_at = clock.NowMs();
      ReleaseMutex(same);
      CloseHandle(same);
    });
    Sleep(500);
    ReleaseMutex(mutex);
    Sleep(1);
  }
  EXPECT_EQ(kStart + 500, got_it_at.load());
  CloseHandle(mutex);
}

TEST(TestClock, LoopThatWaitsForAMessageGetsItsTimers) {
  const test_host::TestClock clock;
  MSG message;
  PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);
  const DWORD loop = GetCurrentThreadId();
  const UINT_PTR timer = SetTimer(nullptr, 0, 5000, nullptr);
  for (std::uint64_t tick = 1; tick <= 3; ++tick) {
    ASSERT_TRUE(GetMessageW(&message, nullptr, 0, 0));
    EXPECT_EQ(static_cast<UINT>(WM_TIMER), message.message);
    EXPECT_EQ(kStart + tick * 5000, clock.NowMs());
  }
  KillTimer(nullptr, timer);
  const Worker poster([&] {
    Sleep(70);
    PostThreadMessageW(loop, WM_APP, 0, 0);
  });
  ASSERT_TRUE(GetMessageW(&message, nullptr, 0, 0));
  EXPECT_EQ(static_cast<UINT>(WM_APP), message.message);
  EXPECT_EQ(kStart + 15070, clock.NowMs());
}

TEST(TestClock, BlocksInProgressAreCarriedOverWhenItBeginsAndWhenItEnds) {
  const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  std::atomic<bool> waiting = false;
  std::atomic<DWORD> result = 0;
  const Worker waiter([&] {
    waiting = true;
    result = WaitForSingleObject(event, 3600 * 1000);
  });
  while (!waiting) std::this_thread::yield();
  {
    test_host::TestClock clock;
    clock.Advance(3599 * 1000);
    EXPECT_EQ(0U, result.load());
  }
  SetEvent(event);
  WaitForSingleObject(waiter.handle(), INFINITE);
  EXPECT_EQ(WAIT_OBJECT_0, result.load());
  CloseHandle(event);
}

TEST(WallClock, FixedTimeIsShownAsLocalTime) {
  test_host::FixWallClock(1388962805);  // Sunday, 5 January 2014, 23:00:05
  SYSTEMTIME time;
  GetLocalTime(&time);
  EXPECT_EQ(2014, time.wYear);
  EXPECT_EQ(1, time.wMonth);
  EXPECT_EQ(0, time.wDayOfWeek);
  EXPECT_EQ(5, time.wDay);
  EXPECT_EQ(23, time.wHour);
  EXPECT_EQ(0, time.wMinute);
  EXPECT_EQ(5, time.wSecond);
  test_host::FixWallClock(-1);
  GetLocalTime(&time);
  EXPECT_GT(time.wYear, 2014);
}

}  // namespace
