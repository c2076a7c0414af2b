// What a test of product classes controls of the host: the USB bus behind the probe driver, the
// clock, and what the host would show or record.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/probe_driver/usb_bus.h"

namespace test_host {

// Makes `bus` the bus that device files, enumeration and device notifications work on; null: no
// devices. The bus outlives its use. Device files opened before keep their old bus.
void UseBus(probe_driver::UsbBus* bus);

// While one lives, sleeps, tick counts, timers and time-outs of this process run on a clock that
// stands still, except that it moves to the nearest deadline when every thread that uses it waits
// on it, and when Advance is called. The thread that creates it takes part; threads started with
// CreateThread do too. Begins at 1,000,000 ms.
class TestClock {
 public:
  TestClock();
  ~TestClock();
  TestClock(const TestClock&) = delete;
  TestClock& operator=(const TestClock&) = delete;

  void Advance(std::uint32_t ms);
  std::uint64_t NowMs() const;

  // Runs `action` at a time of the clock, on the thread that moves the clock. A bench of probes
  // takes its delays from here.
  void CallAt(std::uint64_t time_ms, std::function<void()> action);
};

// The wall-clock time that log lines show while set, in seconds since the epoch, UTC being local
// time; a negative value goes back to the real time.
void FixWallClock(std::int64_t seconds);

// Texts of message boxes and events since the last call, in order: "box|TITLE|TEXT",
// "event|SOURCE|TYPE|CATEGORY|ID|TEXT". The boxes are answered with OK at once.
std::vector<std::wstring> TakeNotices();

}  // namespace test_host
