// A USB device that answers and is replaced as the test says, and the bus that it is alone on.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/scripted_bus.h"

namespace unit {

// Outlives all its openings.
class FakeProbe : public probe_driver::UsbBus {
 public:
  using Transfer = probe_driver::UsbTransfer;
  using Status = probe_driver::UsbStatus;

  static constexpr char kPath[] = R"(\\?\usb#vid_0f0f&pid_1002#wfx0001)";

  // Answers a transfer: returns true after filling in status and bytes, or false to leave it in
  // flight. Runs with no lock held.
  std::function<bool(Transfer&)> answer = [](auto&) { return false; };
  probe_driver::DriverFacts facts;
  bool isochronous = false;
  WaitingWork* work = nullptr;

  // What has reached the probe since the last call, a line each.
  std::vector<std::string> TakeLog() {
    const std::lock_guard lock(mutex_);
    return std::exchange(log_, {});
  }

  // Completes what is in flight, in order.
  void CompleteAll(Status status, const Bytes& data = {}) {
    End([](auto&) { return true; }, status, data);
  }

  std::unique_ptr<probe_driver::UsbDevice> Open() { return std::make_unique<Opening>(*this); }

  std::vector<std::string> ListDevices() override { return {kPath}; }
  std::unique_ptr<probe_driver::UsbDevice> OpenDevice(const std::string& path) override {
    return path == kPath ? Open() : nullptr;
  }
  void SetListener(probe_driver::UsbBusListener*) override {}

 private:
  class Opening : public probe_driver::UsbDevice {
   public:
    explicit Opening(FakeProbe& probe) : probe_(probe) {}
    ~Opening() override { probe_.CompleteAll(Status::kAborted); }

    probe_driver::DriverFacts Facts() override { return probe_.facts; }
    bool HasIsochronous() const override { return probe_.isochronous; }
    WaitingWork* Work() override { return probe_.work; }
    void Submit(Transfer& transfer) override { probe_.Submit(transfer); }
    void Cancel(Transfer& transfer) override {
      probe_.Log("cancel");
      // The device and its probe may be gone when the completion returns.
      const auto is_this = [&](auto& other) { return &other == &transfer; };
      if (probe_.Take(is_this)) Finish(transfer, Status::kAborted, {});
    }
    void AbortPipe(std::uint8_t endpoint) override {
      probe_.Log("abort " + std::to_string(endpoint));
      probe_.End([&](auto& other) { return other.endpoint == endpoint; }, Status::kAborted);
    }
    bool ResetPipe(std::uint8_t endpoint) override {
      probe_.Log("reset " + std::to_string(endpoint));
      return endpoint != 0x0F;  // the one endpoint that the device does not have
    }

   private:
    FakeProbe& probe_;
  };

  void Submit(Transfer& transfer) {
    Log(Describe(transfer));
    const auto is_this = [&](auto& other) { return &other == &transfer; };
    {
      const std::lock_guard lock(mutex_);
      in_flight_.push_back(&transfer);
    }
    // From here on another thread may complete it.
    if (answer(transfer)) {
      Take(is_this);
      transfer.complete(transfer);
    }
  }

  void End(const std::function<bool(const Transfer&)>& ends, Status status,
           const Bytes& data = {}) {
    while (Transfer* const transfer = Take(ends)) Finish(*transfer, status, data);
  }

  static void Finish(Transfer& transfer, Status status, const Bytes& data) {
    transfer.status = status;
    transfer.actual =
        static_cast<std::uint32_t>(std::min<std::size_t>(data.size(), transfer.length));
    if (transfer.actual > 0) std::memcpy(transfer.data, data.data(), transfer.actual);
    transfer.complete(transfer);
  }

  // The first in flight that is wanted, which is so no longer; null: none.
  Transfer* Take(const std::function<bool(const Transfer&)>& wanted) {
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(in_flight_.begin(), in_flight_.end(),
                                    [&](const Transfer* transfer) { return wanted(*transfer); });
    if (found == in_flight_.end()) return nullptr;
    Transfer* const transfer = *found;
    in_flight_.erase(found);
    return transfer;
  }

  void Log(std::string line) {
    const std::lock_guard lock(mutex_);
    log_.push_back(std::move(line));
  }

  // Endpoint, setup packet, and what goes out or how much may come in.
  static std::string Describe(const Transfer& transfer) {
    const probe_driver::SetupPacket& setup = transfer.setup;
    char text[64];
    std::snprintf(text, sizeof text, "%02X setup %02X %02X %04X %04X %04X", transfer.endpoint,
                  setup.request_type, setup.request, setup.value, setup.index, setup.length);
    const bool control = transfer.endpoint == 0;
    const std::string head(text, control ? std::strlen(text) : 2);
    const bool in = (control ? setup.request_type : transfer.endpoint) & 0x80;
    if (in) return head + " in " + std::to_string(transfer.length);
    return head + " out " + HexText(Bytes(transfer.data, transfer.data + transfer.length));
  }

  std::mutex mutex_;
  std::vector<std::string> log_;
  std::vector<Transfer*> in_flight_;
};

}  // namespace unit
