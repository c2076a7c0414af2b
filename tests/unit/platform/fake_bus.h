// A USB bus in the test's hands: devices come, go and answer as the test says.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/probe_driver/usb_bus.h"

namespace unit {

// What a device on the bus does and has seen; shared by all its openings.
class FakeProbe {
 public:
  // Answers a transfer: returns true after filling in status and bytes, or false to leave it in
  // flight. Runs with no lock held.
  std::function<bool(probe_driver::UsbTransfer&)> answer = [](auto&) { return false; };
  probe_driver::DriverFacts facts;

  std::vector<std::string> TakeLog() {
    const std::lock_guard lock(mutex_);
    return std::exchange(log_, {});
  }

  std::size_t InFlight() {
    const std::lock_guard lock(mutex_);
    return in_flight_.size();
  }

  // Completes what is in flight, in order, with `status` and `data`.
  void CompleteAll(probe_driver::UsbStatus status, const std::vector<std::uint8_t>& data = {}) {
    while (probe_driver::UsbTransfer* transfer = TakeFirst([](auto&) { return true; })) {
      Finish(*transfer, status, data);
    }
  }

  void Leave() {
    {
      const std::lock_guard lock(mutex_);
      gone_ = true;
    }
    CompleteAll(probe_driver::UsbStatus::kDisconnected);
  }

  static void Finish(probe_driver::UsbTransfer& transfer, probe_driver::UsbStatus status,
                     const std::vector<std::uint8_t>& data = {}) {
    transfer.status = status;
    transfer.actual =
        static_cast<std::uint32_t>(std::min<std::size_t>(data.size(), transfer.length));
    if (transfer.actual > 0) std::memcpy(transfer.data, data.data(), transfer.actual);
    transfer.complete(transfer);
  }

 private:
  friend class FakeOpening;

  void Log(std::string line) {
    const std::lock_guard lock(mutex_);
    log_.push_back(std::move(line));
  }

  template <typename Predicate>
  probe_driver::UsbTransfer* TakeFirst(Predicate predicate) {
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(in_flight_.begin(), in_flight_.end(),
                                    [&](auto* transfer) { return predicate(*transfer); });
    if (found == in_flight_.end()) return nullptr;
    probe_driver::UsbTransfer* const transfer = *found;
    in_flight_.erase(found);
    return transfer;
  }

  std::mutex mutex_;
  std::vector<std::string> log_;
  std::vector<probe_driver::UsbTransfer*> in_flight_;
  bool gone_ = false;
};

class FakeOpening : public probe_driver::UsbDevice {
 public:
  explicit FakeOpening(std::shared_ptr<FakeProbe> probe) : probe_(std::move(probe)) {}
  ~FakeOpening() override { probe_->CompleteAll(probe_driver::UsbStatus::kAborted); }

  probe_driver::DriverFacts Facts() override { return probe_->facts; }

  void Submit(probe_driver::UsbTransfer& transfer) override {
    probe_->Log(Describe(transfer));
    bool gone;
    {
      const std::lock_guard lock(probe_->mutex_);
      gone = probe_->gone_;
      if (!gone) probe_->in_flight_.push_back(&transfer);
    }
    // From here on another thread may complete it.
    if (gone) {
      FakeProbe::Finish(transfer, probe_driver::UsbStatus::kDisconnected);
    } else if (probe_->answer(transfer)) {
      probe_->TakeFirst([&](auto& other) { return &other == &transfer; });
      transfer.complete(transfer);
    }
  }

  void Cancel(probe_driver::UsbTransfer& transfer) override {
    probe_->Log("cancel");
    if (probe_->TakeFirst([&](auto& other) { return &other == &transfer; })) {
      FakeProbe::Finish(transfer, probe_driver::UsbStatus::kAborted);
    }
  }

  void AbortPipe(std::uint8_t endpoint) override {
    probe_->Log("abort " + std::to_string(endpoint));
    const auto on_pipe = [&](auto& transfer) { return transfer.endpoint == endpoint; };
    while (auto* transfer = probe_->TakeFirst(on_pipe)) {
      FakeProbe::Finish(*transfer, probe_driver::UsbStatus::kAborted);
    }
  }

  bool ResetPipe(std::uint8_t endpoint) override {
    probe_->Log("reset " + std::to_string(endpoint));
    return endpoint != 0x0F;  // the one endpoint that the device does not have
  }

 private:
  // Endpoint, setup packet and outgoing bytes.
  static std::string Describe(const probe_driver::UsbTransfer& transfer) {
    const auto& setup = transfer.setup;
    std::string text;
    const auto add = [&](unsigned value, int digits) {
      constexpr char kDigits[] = "0123456789ABCDEF";
      text += text.empty() ? "" : " ";
      for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        text += kDigits[(value >> shift) & 0xF];
      }
    };
    add(transfer.endpoint, 2);
    const bool control = transfer.endpoint == 0;
    if (control) {
      text += " setup";
      add(setup.request_type, 2);
      add(setup.request, 2);
      add(setup.value, 4);
      add(setup.index, 4);
      add(setup.length, 4);
    }
    const bool in = (control ? setup.request_type : transfer.endpoint) & 0x80;
    text += (in ? " in " : " out ") + std::to_string(transfer.length);
    for (std::uint32_t i = 0; !in && i < transfer.length && i < 16; ++i) add(transfer.data[i], 2);
    return text;
  }

  const std::shared_ptr<FakeProbe> probe_;
};

class FakeBus : public probe_driver::UsbBus {
 public:
  std::shared_ptr<FakeProbe> Plug(const std::string& path) {
    auto probe = std::make_shared<FakeProbe>();
    {
      const std::lock_guard lock(mutex_);
      probes_[path] = probe;
    }
    if (auto* listener = Listener()) listener->OnDeviceArrived(path);
    return probe;
  }

  void Unplug(const std::string& path) {
    std::shared_ptr<FakeProbe> probe;
    {
      const std::lock_guard lock(mutex_);
      probe = probes_.extract(path).mapped();
    }
    probe->Leave();
    if (auto* listener = Listener()) listener->OnDeviceRemoved(path);
  }

  std::vector<std::string> ListDevices() override {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> paths;
    for (const auto& [path, probe] : probes_) paths.push_back(path);
    return paths;
  }

  std::unique_ptr<probe_driver::UsbDevice> OpenDevice(const std::string& path) override {
    const std::lock_guard lock(mutex_);
    const auto found = probes_.find(path);
    return found == probes_.end() ? nullptr : std::make_unique<FakeOpening>(found->second);
  }

  void SetListener(probe_driver::UsbBusListener* listener) override {
    const std::lock_guard lock(mutex_);
    listener_ = listener;
  }

 private:
  probe_driver::UsbBusListener* Listener() {
    const std::lock_guard lock(mutex_);
    return listener_;
  }

  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<FakeProbe>> probes_;
  probe_driver::UsbBusListener* listener_ = nullptr;
};

}  // namespace unit
