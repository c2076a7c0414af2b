#include "platform/windows/test_host/driver_timers.h"

#include <windows.h>

#include <atomic>
#include <memory>
#include <utility>

#include "platform/windows/test_host/clock.h"

namespace test_host {
namespace {

struct RealTimer {
  HANDLE timer = nullptr;
  std::function<void()> fire;
  std::atomic<DWORD> firing_thread = 0;
  bool stopped_within = false;
};

void CALLBACK FireRealTimer(PVOID parameter, BOOLEAN) {
  auto* timer = static_cast<RealTimer*>(parameter);
  timer->firing_thread = GetCurrentThreadId();
  timer->fire();
  if (timer->stopped_within) delete timer;
}

// An id is that of a call on the test clock, doubled, or the odd address beside a real timer's.
class TestTimers : public probe_driver::DriverTimers {
 public:
  std::uint64_t Start(std::uint32_t ms, std::function<void()> fire) override {
    if (clock::Lives()) return clock::CallAt(clock::NowMs() + ms, std::move(fire)) * 2;
    auto timer = std::make_unique<RealTimer>();
    timer->fire = std::move(fire);
    CreateTimerQueueTimer(&timer->timer, nullptr, FireRealTimer, timer.get(), ms, 0,
                          WT_EXECUTEONLYONCE);
    return reinterpret_cast<std::uintptr_t>(timer.release()) + 1;
  }

  void Stop(std::uint64_t id) override {
    if (id % 2 == 0) return clock::CancelCall(id / 2);
    auto* timer = reinterpret_cast<RealTimer*>(id - 1);
    // From within `fire` there is no waiting for its end; what runs is freed when it returns.
    timer->stopped_within = timer->firing_thread == GetCurrentThreadId();
    const bool within = timer->stopped_within;
    DeleteTimerQueueTimer(nullptr, timer->timer, within ? nullptr : INVALID_HANDLE_VALUE);
    if (!within) delete timer;
  }
};

}  // namespace

probe_driver::DriverTimers& Timers() {
  static auto& timers = *new TestTimers;
  return timers;
}

}  // namespace test_host
