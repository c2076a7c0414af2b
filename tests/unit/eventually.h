// Waiting for a thing that another thread does, with a bound that only a failing test meets. It
// never sleeps: where a test has the clock, a sleep may never end.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace unit {

// Whether `condition` came to hold.
inline bool Eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace unit
