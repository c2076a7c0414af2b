// A transfer of a test's own to a device on a bus.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "platform/probe_driver/usb_bus.h"
#include "tests/unit/hex_bytes.h"

namespace unit {

// Bounds a wait for something that must come; a test that meets it has failed.
inline constexpr std::chrono::seconds kBound(20);

// One transfer and its end.
class Awaited {
 public:
  Awaited(std::uint8_t endpoint, Bytes data) : data_(std::move(data)) {
    transfer_.endpoint = endpoint;
    transfer_.data = data_.data();
    transfer_.length = static_cast<std::uint32_t>(data_.size());
    transfer_.complete = [this](probe_driver::UsbTransfer&) {
      const std::lock_guard lock(mutex_);
      ++completions_;
      changed_.notify_all();
    };
  }
  Awaited(const probe_driver::SetupPacket& setup, Bytes data) : Awaited(0, std::move(data)) {
    transfer_.setup = setup;
  }

  probe_driver::UsbTransfer& transfer() { return transfer_; }
  const Bytes& data() const { return data_; }
  std::uint32_t actual() const { return transfer_.actual; }

  // The status once it has ended.
  probe_driver::UsbStatus Wait() {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, kBound, [&] { return completions_ != 0; }));
    EXPECT_EQ(completions_, 1);
    return transfer_.status;
  }
  // Gives an answer that is under way no time: only tells whether it has come.
  bool ended() {
    const std::lock_guard lock(mutex_);
    return completions_ != 0;
  }

 private:
  Bytes data_;
  probe_driver::UsbTransfer transfer_;
  std::mutex mutex_;
  std::condition_variable changed_;
  int completions_ = 0;
};

}  // namespace unit
