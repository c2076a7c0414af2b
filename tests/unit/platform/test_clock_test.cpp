#include <gmock/gmock.h>
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
    Await();
    CloseHandle(thread_);
  }
  void Await() { WaitForSingleObject(thread_, INFINITE); }

 private:
  static DWORD WINAPI Run(LPVOID self) {
    static_cast<Worker*>(self)->body_();
    return 0;
  }
  std::function<void()> body_;
  HANDLE thread_;
};

class TestClock : public testing::Test {
 protected:
  ~TestClock() override { CloseHandle(event_); }

  const HANDLE event_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

TEST_F(TestClock, ThreadsWakeInTheOrderOfTheirDeadlines) {
  test_host::TestClock clock;
  std::mutex mutex;
  std::vector<std::string> seen;
  const auto sleep = [&](DWORD ms, const char* who) {
    Sleep(ms);
    const std::lock_guard lock(mutex);
    seen.push_back(std::to_string(clock.NowMs() - kStart) + who);
  };
  {
    const Worker first([&] {
      for (int i = 0; i < 3; ++i) sleep(30, "a");
    });
    const Worker second([&] {
      for (int i = 0; i < 2; ++i) sleep(50, "b");
    });
    sleep(70, "main");
  }
  EXPECT_EQ((std::vector<std::string>{"30a", "50b", "60a", "70main", "90a", "100b"}), seen);
}

TEST_F(TestClock, ActionsRunAtTheirTimesBeforeDeadlinesOfTheSameMoment) {
  test_host::TestClock clock;
  clock.CallAt(kStart + 100, [&] { SetEvent(event_); });
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event_, 100));
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
}

TEST_F(TestClock, AdvanceWakesEveryDeadlineOnTheWay) {
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

TEST_F(TestClock, DoesNotMoveWhileAThreadRunsOrBlocksElsewhere) {
  test_host::TestClock clock;
  std::mutex elsewhere;
  std::atomic<bool> woke = false;
  elsewhere.lock();
  const Worker blocked([&] { const std::lock_guard lock(elsewhere); });
  Worker sleeper([&] {
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
  sleeper.Await();
  EXPECT_EQ(kStart + 10, clock.NowMs());
}

TEST_F(TestClock, WaitingForANamedMutexCountsAsWaiting) {
  const test_host::TestClock clock;
  const HANDLE mutex = CreateMutexW(nullptr, TRUE, L"TestClockMutex");
  std::atomic<std::uint64_t> got_it_at = 0;
  Worker waiter([&] {
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex, INFINITE));
    got_it_at = clock.NowMs();
    ReleaseMutex(mutex);
  });
  Sleep(500);
  ReleaseMutex(mutex);
  waiter.Await();
  EXPECT_EQ(kStart + 500, got_it_at.load());
  CloseHandle(mutex);
}

TEST_F(TestClock, LoopThatWaitsForAMessageGetsItsTimers) {
  const test_host::TestClock clock;
  MSG message;
  PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);
  const DWORD loop = GetCurrentThreadId();
  const UINT_PTR timer = SetTimer(nullptr, 0, 5000, nullptr);
  for (std::uint64_t tick = 1; tick <= 3; ++tick) {
    ASSERT_TRUE(GetMessageW(&message, nullptr, 0, 0));
    EXPECT_EQ(UINT{WM_TIMER}, message.message);
    EXPECT_EQ(kStart + tick * 5000, clock.NowMs());
  }
  KillTimer(nullptr, timer);
  const Worker poster([&] {
    Sleep(70);
    PostThreadMessageW(loop, WM_APP, 0, 0);
  });
  ASSERT_TRUE(GetMessageW(&message, nullptr, 0, 0));
  EXPECT_EQ(UINT{WM_APP}, message.message);
  EXPECT_EQ(kStart + 15070, clock.NowMs());
}

TEST_F(TestClock, BlocksInProgressAreCarriedOverWhenItBeginsAndWhenItEnds) {
  std::atomic<bool> waiting = false;
  std::atomic<DWORD> result = 1;
  Worker waiter([&] {
    waiting = true;
    result = WaitForSingleObject(event_, 3600 * 1000);
  });
  while (!waiting) std::this_thread::yield();
  {
    test_host::TestClock clock;
    clock.Advance(3599 * 1000);
    EXPECT_EQ(1U, result.load());
  }
  SetEvent(event_);
  waiter.Await();
  EXPECT_EQ(WAIT_OBJECT_0, result.load());
}

TEST(WallClock, FixedTimeIsShownAsLocalTime) {
  test_host::FixWallClock(1388962805);
  SYSTEMTIME time;
  GetLocalTime(&time);
  const WORD shown[] = {time.wYear,   time.wMonth,  time.wDay,      time.wHour,
                        time.wMinute, time.wSecond, time.wDayOfWeek};
  EXPECT_THAT(shown, testing::ElementsAre(2014, 1, 5, 23, 0, 5, 0)) << "a Sunday";
  test_host::FixWallClock(-1);
  GetLocalTime(&time);
  EXPECT_GT(time.wYear, 2014);
}

}  // namespace
