#include <windows.h>

#include <utility>

#include "platform/test_host.h"
#include "platform/windows/test_host/clock.h"

namespace test_host {
namespace {

constexpr std::uint64_t kStartMs = 1'000'000;

// Whether the thread that made the clock took part before, as those of CreateThread do.
bool maker_took_part = false;

}  // namespace

TestClock::TestClock() {
  maker_took_part = clock::TakesPart();
  clock::Join();
  clock::Begin(kStartMs);
}

TestClock::~TestClock() {
  clock::End();
  if (!maker_took_part) clock::Leave();
}

void TestClock::Advance(std::uint32_t ms) { clock::Advance(ms); }

std::uint64_t TestClock::NowMs() const { return clock::NowMs(); }

void TestClock::CallAt(std::uint64_t time_ms, std::function<void()> action) {
  clock::CallAt(time_ms, std::move(action));
}

}  // namespace test_host
