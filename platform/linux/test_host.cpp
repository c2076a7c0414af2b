#include "platform/linux/test_host.h"

#include <utility>

#include "platform/linux/devices/bus_selection.h"
#include "platform/linux/kernel/clock.h"
#include "platform/linux/kernel/dispatcher.h"
#include "platform/linux/kernel/notices.h"

namespace test_host {
namespace {

using linux_host::DispatcherLock;
using linux_host::kNsPerMs;

constexpr linux_host::Deadline kStart = 1'000'000 * kNsPerMs;

// Whether the thread that made the clock took part before, as those of CreateThread do.
bool g_maker_took_part = false;
linux_host::ThreadRecord* g_maker = nullptr;

}  // namespace

void UseBus(probe_driver::UsbBus* bus) { linux_host::UseBus(bus); }

TestClock::TestClock() {
  g_maker = &linux_host::CurrentThread();
  DispatcherLock lock;
  g_maker_took_part = g_maker->takes_part;
  linux_host::BeginTestClock(lock, kStart);
  lock.SetTakesPart(*g_maker, true);
}

TestClock::~TestClock() {
  DispatcherLock lock;
  linux_host::EndTestClock(lock);
  lock.SetTakesPart(*g_maker, g_maker_took_part);
}

void TestClock::Advance(std::uint32_t ms) {
  linux_host::ThreadRecord& self = linux_host::CurrentThread();
  DispatcherLock lock;
  linux_host::AdvanceTestClock(lock, self, linux_host::Now() + ms * kNsPerMs);
}

std::uint64_t TestClock::NowMs() const { return GetTickCount64(); }

void TestClock::CallAt(std::uint64_t time_ms, std::function<void()> action) {
  const DispatcherLock lock;
  linux_host::AddTestClockAction(static_cast<linux_host::Deadline>(time_ms) * kNsPerMs,
                                 std::move(action));
}

void FixWallClock(std::int64_t seconds) { linux_host::SetFixedWallClock(seconds); }

std::vector<std::wstring> TakeNotices() { return linux_host::TakeNotices(); }

}  // namespace test_host
