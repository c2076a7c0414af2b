// What the tests of the bench share: time that they move, and a user of one probe.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sim/bench.h"

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

struct Outcome {
  probe_driver::UsbStatus status = probe_driver::UsbStatus::kOk;
  Bytes data;  // received
  std::uint32_t actual = 0;
};

// Transfers to one attachment. The bench answers within Submit or not at all until something
// happens, so a transfer that is not answered is cancelled and reported as kAborted.
class User {
 public:
  User(probe_driver::UsbBus& bus, const std::string& path) : device_(bus.OpenDevice(path)) {}
  static User Of(Bench& bench, const std::string& name) { return {bench, bench.PathOf(name)}; }

  probe_driver::UsbDevice& device() { return *device_; }

  Outcome Control(std::uint8_t type, std::uint8_t request, std::uint16_t value, std::uint16_t index,
                  std::uint16_t length, const Bytes& data = {}) {
    probe_driver::UsbTransfer transfer;
    transfer.setup = {type, request, value, index, length};
    return Run(transfer, (type & 0x80) != 0, length, data);
  }
  // A command of the probe: the reply, or nothing when it was not answered well.
  Bytes Command(std::uint8_t request, std::uint16_t value, std::uint16_t length,
                std::uint16_t index = 0) {
    return Control(0xC0, request, value, index, length).data;
  }
  Outcome Out(std::uint8_t endpoint, const Bytes& data) {
    probe_driver::UsbTransfer transfer;
    transfer.endpoint = endpoint;
    return Run(transfer, false, 0, data);
  }
  Outcome In(std::uint8_t endpoint, std::uint32_t length) {
    probe_driver::UsbTransfer transfer;
    transfer.endpoint = endpoint;
    return Run(transfer, true, length, {});
  }

  std::uint8_t ReadRegister(std::uint8_t address) {
    const Bytes reply = Command(0x43, address, 8);
    return reply.size() == 8 ? reply[3] : 0xEE;
  }
  void WriteRegister(std::uint8_t address, std::uint8_t value) {
    Command(0x43, static_cast<std::uint16_t>(value << 8 | 0x80 | address), 16);
  }
  void LoadFpga(const Bytes& image) {
    const auto last = static_cast<std::uint32_t>(image.size() - 1);
    Command(0x47, 0, 16);
    Command(0x45, static_cast<std::uint16_t>(last), 16, static_cast<std::uint16_t>(last >> 16));
    Out(0x02, image);
    Command(0x46, 0, 16);
  }
  // A whole JTAG exchange of one chunk.
  Bytes Jtag(const Bytes& stream, std::uint32_t cycles) {
    WriteRegister(1, static_cast<std::uint8_t>(cycles));
    WriteRegister(2, static_cast<std::uint8_t>(0x80 | cycles >> 8));
    Out(0x02, stream);
    return In(0x84, (cycles + 7) / 8).data;
  }
  // Line reset and switch to serial wire, in the probe's own way.
  void ResetSwdLine() {
    Command(0x41, 0x101, 3);
    const std::uint8_t control = ReadRegister(0x11);
    WriteRegister(0x11, control & 0x3F);
    Bytes sequence(13, 0xF0);
    for (const std::uint8_t byte : {0xE0, 0x90, 0x70, 0xE0}) sequence.push_back(byte);
    sequence.insert(sequence.end(), 13, 0xF0);
    Jtag(sequence, 120);
    WriteRegister(0x11, control);
    Command(0x41, 0x104, 3);
  }
  Bytes Swd(const Bytes& requests) {
    Out(0x02, requests);
    return In(0x84, 512).data;
  }

 private:
  Outcome Run(probe_driver::UsbTransfer& transfer, bool in, std::uint32_t length, Bytes data) {
    if (in) data.assign(length, 0xCC);
    transfer.data = data.data();
    transfer.length = in ? length : static_cast<std::uint32_t>(data.size());
    int completions = 0;
    transfer.complete = [&](probe_driver::UsbTransfer&) { ++completions; };
    device_->Submit(transfer);
    if (completions == 0) device_->Cancel(transfer);
    EXPECT_EQ(completions, 1);
    data.resize(in ? transfer.actual : 0);
    return {transfer.status, std::move(data), transfer.actual};
  }

  std::unique_ptr<probe_driver::UsbDevice> device_;
};

}  // namespace sim
