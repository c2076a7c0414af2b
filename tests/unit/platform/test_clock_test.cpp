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

}  // namespace
