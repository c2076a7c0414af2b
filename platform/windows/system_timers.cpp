#include "platform/windows/system_timers.h"

#include <windows.h>

#include <atomic>
#include <memory>
#include <utility>

namespace windows_host {
namespace {

struct Timer {
  HANDLE handle = nullptr;
  std::function<void()> fire;
  std::atomic<DWORD> firing_thread = 0;
  bool stopped_within = false;
};

void CALLBACK Fire(PVOID parameter, BOOLEAN) {
  auto* timer = static_cast<Timer*>(parameter);
  timer->firing_thread = GetCurrentThreadId();
  timer->fire();
  if (timer->stopped_within) delete timer;
}

}  // namespace

// An id is the timer's address.
std::uint64_t SystemTimers::Start(std::uint32_t ms, std::function<void()> fire) {
  auto timer = std::make_unique<Timer>();
  timer->fire = std::move(fire);
  CreateTimerQueueTimer(&timer->handle, nullptr, Fire, timer.get(), ms, 0, WT_EXECUTEONLYONCE);
  return reinterpret_cast<std::uintptr_t>(timer.release());
}

void SystemTimers::Stop(std::uint64_t id) {
  auto* timer = reinterpret_cast<Timer*>(id);
  // From within `fire` there is no waiting for its end; what runs is freed when it returns.
  const bool within = timer->firing_thread == GetCurrentThreadId();
  timer->stopped_within = within;
  DeleteTimerQueueTimer(nullptr, timer->handle, within ? nullptr : INVALID_HANDLE_VALUE);
  if (!within) delete timer;
}

}  // namespace windows_host
