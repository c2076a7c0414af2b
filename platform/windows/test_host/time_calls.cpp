#include <atomic>
#include <cstdint>

#include "platform/test_host.h"
#include "platform/windows/test_host/clock.h"
#include "platform/windows/test_host/system_calls.h"
#include "platform/windows/test_host/taken_calls.h"

namespace test_host {
namespace {

constinit std::atomic<std::int64_t> wall_clock_s = -1;

}  // namespace

void FixWallClock(std::int64_t seconds) { wall_clock_s = seconds; }

namespace taken {

void WINAPI Sleep(DWORD ms) {
  // Giving way is no waiting.
  if (ms == 0 || !clock::GovernsThisThread()) return system_call::Sleep(ms);
  clock::Wait(nullptr, 0, ms);
}

DWORD WINAPI GetTickCount() {
  return clock::GovernsThisThread() ? static_cast<DWORD>(clock::NowMs())
                                    : system_call::GetTickCount();
}

ULONGLONG WINAPI GetTickCount64() {
  return clock::GovernsThisThread() ? clock::NowMs() : system_call::GetTickCount64();
}

void WINAPI GetLocalTime(LPSYSTEMTIME time) {
  const std::int64_t seconds = wall_clock_s;
  if (seconds < 0) return system_call::GetLocalTime(time);
  constexpr std::int64_t kEpochOffsetS = 11644473600;  // from 1601, where file times begin, to 1970
  const std::uint64_t ticks = static_cast<std::uint64_t>(seconds + kEpochOffsetS) * 10'000'000;
  const FILETIME file_time = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  FileTimeToSystemTime(&file_time, time);
}

}  // namespace taken
}  // namespace test_host
