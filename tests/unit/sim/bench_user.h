// What the tests of the bench share: time that they move, transfers and their ends, and what a
// listener is told.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "sim/bench.h"
#include "tests/unit/awaited.h"

namespace sim {

// Time that moves when a test moves it.
class ManualTime {
 public:
  Scheduler scheduler() {
    return [this](std::uint64_t delay_ms, std::function<void()> action) {
      actions_.emplace(now_ + delay_ms, std::move(action));
    };
  }
  void Advance(std::uint64_t ms) {
    const std::uint64_t end = now_ + ms;
    while (!actions_.empty() && actions_.begin()->first <= end) {
      now_ = actions_.begin()->first;
      const std::function<void()> action = std::move(actions_.begin()->second);
      actions_.erase(actions_.begin());
      action();
    }
    now_ = end;
  }

 private:
  std::uint64_t now_ = 0;
  std::multimap<std::uint64_t, std::function<void()>> actions_;
};

using unit::Awaited;
using unit::kBound;

// Listens to a bus while one lives: "+path" for each arrival, "-path" for each removal.
class Events : public probe_driver::UsbBusListener {
 public:
  explicit Events(probe_driver::UsbBus& bus) : bus_(bus) { bus.SetListener(this); }
  ~Events() { bus_.SetListener(nullptr); }
  void OnDeviceArrived(const std::string& path) override { Note("+", path); }
  void OnDeviceRemoved(const std::string& path) override { Note("-", path); }

  // All so far, once there are `count`.
  std::vector<std::string> Wait(std::size_t count) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, kBound, [&] { return told_.size() >= count; }));
    return told_;
  }

 private:
  void Note(const std::string& what, const std::string& path) {
    const std::lock_guard lock(mutex_);
    const auto present = bus_.ListDevices();
    EXPECT_EQ(std::count(present.begin(), present.end(), path), what == "+" ? 1 : 0)
        << "listed before its arrival is told, gone before its removal is";
    told_.push_back(what + path);
    changed_.notify_all();
  }

  probe_driver::UsbBus& bus_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> told_;
};

// Transfers to the first probe, if any, that end in every way there is.
inline void UseFirstProbe(probe_driver::UsbBus& bus) {
  const auto paths = bus.ListDevices();
  auto device = paths.empty() ? nullptr : bus.OpenDevice(paths[0]);
  if (!device) return;
  Awaited mode({0xC0, 0x41, 0x010C, 0, 3}, Bytes(3)), out(0x02, Bytes(2000, 0xA5));
  Awaited cancelled(0x86, Bytes(512)), aborted(0x84, Bytes(16)), closed(0x81, Bytes(16));
  Awaited* const all[] = {&mode, &out, &cancelled, &aborted, &closed};
  for (Awaited* transfer : all) device->Submit(transfer->transfer());
  device->Cancel(cancelled.transfer());
  for (const std::uint8_t endpoint : {0x02, 0x84}) device->AbortPipe(endpoint);
  device.reset();
  for (Awaited* transfer : all) transfer->Wait();
}

// A thread for each of `buses` uses the probe "P", of the kind below, while it comes and goes.
inline constexpr char kTracingBench[] =
    R"({"probes": [{"name": "P", "kind": "evk", "swv": {"bytes_per_ms": 200}}]})";

inline void UseAProbeThatComesAndGoes(Bench& bench, const std::vector<probe_driver::UsbBus*>& buses,
                                      int rounds) {
  std::atomic<bool> ending{false};
  std::vector<std::jthread> threads;
  for (probe_driver::UsbBus* bus : buses) {
    threads.emplace_back([&ending, bus] {
      while (!ending) UseFirstProbe(*bus);
    });
  }
  for (int i = 0; i < rounds; ++i) {
    bench.Unplug("P");
    bench.Plug("P");
    UseFirstProbe(*buses.front());
  }
  ending = true;
}

}  // namespace sim
