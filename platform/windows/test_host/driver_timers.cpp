#include "platform/windows/test_host/driver_timers.h"

#include <utility>

#include "platform/windows/system_timers.h"
#include "platform/windows/test_host/clock.h"

namespace test_host {
namespace {

// An id is that of a call on the test clock, doubled, or the odd address beside a real timer's.
class TestTimers : public probe_driver::DriverTimers {
 public:
  std::uint64_t Start(std::uint32_t ms, std::function<void()> fire) override {
    if (clock::Lives()) return clock::CallAt(clock::NowMs() + ms, std::move(fire)) * 2;
    return real_.Start(ms, std::move(fire)) + 1;
  }

  void Stop(std::uint64_t id) override {
    if (id % 2 == 0) return clock::CancelCall(id / 2);
    real_.Stop(id - 1);
  }

 private:
  windows_host::SystemTimers real_;
};

}  // namespace

probe_driver::DriverTimers& Timers() {
  static auto& timers = *new TestTimers;
  return timers;
}

}  // namespace test_host
