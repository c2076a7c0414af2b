// A USB bus whose devices answer from a script, and which keeps a transcript of what reached it.
//
// A script is one exchange a line, in hexadecimal, `#` begins a comment:
//
//   C0 41 04 01 00 00 03 00 -> 00 00 00        # control IN: setup packet -> reply
//   40 A0 00 E6 00 00 01 00 : 01 -> ok         # control OUT: setup packet : data
//   out 02 : F0*13 C0 30 -> ok                 # bulk OUT; F0*13 is thirteen times F0
//   in 84 15 -> 00*15                          # bulk IN of at most 15 bytes
//   abort 84                                   # a pipe is aborted
//   reset 84                                   # a pipe is reset
//   cancel 84                                  # one transfer in flight is cancelled
//
// Instead of a reply may stand: ok (nothing moves in, everything moves out), stall, error, gone,
// silent (the transfer stays in flight until it is aborted or cancelled), or flagged (as ok, with a
// bus status word).
//
// Exchanges are played in order. One that does not fit the script's next line is answered with a
// stall and put into the transcript as it came, so that comparing the two shows it.
// Standard descriptors are answered from the device's own, outside the script.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/probe_driver/usb_bus.h"

namespace unit {

using Bytes = std::vector<std::uint8_t>;

// Bytes as in a script: two digits each, runs of eight or more as F0*13.
inline std::string HexText(const Bytes& bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size();) {
    std::size_t run = 1;
    while (i + run < bytes.size() && bytes[i + run] == bytes[i]) ++run;
    if (run < 8) run = 1;
    char digits[32];
    std::snprintf(digits, sizeof digits, run > 1 ? "%02X*%zu" : "%02X", bytes[i], run);
    text.append(text.empty() ? "" : " ").append(digits);
    i += run;
  }
  return text;
}

inline Bytes HexBytes(const std::string& text) {
  Bytes bytes;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const std::size_t star = word.find('*');
    const std::size_t count = star == std::string::npos ? 1 : std::stoul(word.substr(star + 1));
    bytes.insert(bytes.end(), count,
                 static_cast<std::uint8_t>(std::stoul(word.substr(0, star), nullptr, 16)));
  }
  return bytes;
}

inline Bytes ProbeEndpoints() {
  static constexpr std::uint8_t kAddresses[] = {0x01, 0x81, 0x02, 0x84, 0x86};
  return Bytes(std::begin(kAddresses), std::end(kAddresses));
}

// What a device on the bus says of itself. Endpoints are bulk endpoints of 512 bytes.
struct ScriptedDevice {
  std::string name = "WFX0001";  // serial-number string
  std::uint16_t vendor_id = 0x0F0F;
  std::uint16_t product_id = 0x1002;
  Bytes endpoints = ProbeEndpoints();
  probe_driver::DriverFacts facts;
  // By wValue. Those that are not given are made from the above; an empty one stalls.
  std::map<std::uint16_t, Bytes> descriptors;

  std::string Path() const {
    char ids[64];
    std::snprintf(ids, sizeof ids, "\\\\?\\usb#vid_%04x&pid_%04x#", vendor_id, product_id);
    return ids + name;
  }

  // The descriptor for `value`, or an empty one.
  Bytes Descriptor(std::uint16_t value) const {
    if (const auto given = descriptors.find(value); given != descriptors.end()) {
      return given->second;
    }
    const auto low = [](std::uint16_t v) { return static_cast<std::uint8_t>(v); };
    const auto high = [](std::uint16_t v) { return static_cast<std::uint8_t>(v >> 8); };
    switch (value) {
      case 0x0100: {
        Bytes bytes = HexBytes("12 01 00 02 FF 00 00 40 00 00 00 00 01 00 01 02 03 01");
        const std::uint8_t ids[] = {low(vendor_id), high(vendor_id), low(product_id),
                                    high(product_id)};
        std::copy(std::begin(ids), std::end(ids), bytes.begin() + 8);
        return bytes;
      }
      case 0x0200:
        return Configuration();
      case 0x0300:
        return {4, 3, 0x09, 0x04};
      case 0x0301:
        return String("Wirefox");
      case 0x0302:
        return String("Probe");
      case 0x0303:
        return String(name);
      default:
        return {};
    }
  }

  static Bytes String(const std::string& text) {
    Bytes bytes = {static_cast<std::uint8_t>(2 + 2 * text.size()), 3};
    for (const char c : text) bytes.insert(bytes.end(), {static_cast<std::uint8_t>(c), 0});
    return bytes;
  }

  // One interface with one setting and the endpoints.
  Bytes Configuration() const {
    Bytes bytes = {9, 2, 0, 0, 1, 1, 0, 0x80, 250};
    bytes.insert(bytes.end(),
                 {9, 4, 0, 0, static_cast<std::uint8_t>(endpoints.size()), 0xFF, 0, 0, 0});
    for (const std::uint8_t address : endpoints) {
      bytes.insert(bytes.end(), {7, 5, address, 2, 0x00, 0x02, 0});
    }
    bytes[2] = static_cast<std::uint8_t>(bytes.size());
    return bytes;
  }
};

class ScriptedBus : public probe_driver::UsbBus {
 public:
  explicit ScriptedBus(std::vector<ScriptedDevice> devices = {ScriptedDevice()})
      : devices_(std::move(devices)) {}

  // Adds lines to what is still to be played.
  void Play(const std::string& script) {
    const std::lock_guard lock(mutex_);
    std::istringstream lines(script);
    for (std::string text; std::getline(lines, text);) {
      if (const Line line = Parse(text); !line.request.empty()) {
        script_.push_back(line);
        expected_.push_back(line.request + line.answer);
      }
    }
  }

  // Compares everything that was played with everything that came, and begins anew.
  void ExpectPlayed() {
    const std::lock_guard lock(mutex_);
    EXPECT_EQ(Join(expected_), Join(transcript_));
    expected_.clear();
    transcript_.clear();
    script_.clear();
  }

  // The descriptor requests so far, as setup packets, and forgets them.
  std::vector<std::string> TakeDescriptorRequests() {
    const std::lock_guard lock(mutex_);
    return std::exchange(descriptor_requests_, {});
  }

  // Changes what is attached, and tells the listener: of removals first, then of arrivals.
  void SetDevices(std::vector<ScriptedDevice> devices) {
    std::vector<ScriptedDevice> old;
    probe_driver::UsbBusListener* listener = nullptr;
    {
      const std::lock_guard lock(mutex_);
      old = std::exchange(devices_, devices);
      listener = listener_;
    }
    if (listener == nullptr) return;
    for (const ScriptedDevice& device : old) {
      if (!Holds(devices, device.Path())) listener->OnDeviceRemoved(device.Path());
    }
    for (const ScriptedDevice& device : devices) {
      if (!Holds(old, device.Path())) listener->OnDeviceArrived(device.Path());
    }
  }

  // Refuses this many opens of devices from now on.
  void RefuseOpens(int count) {
    const std::lock_guard lock(mutex_);
    refused_opens_ = count;
  }
  int OpensSoFar() const {
    const std::lock_guard lock(mutex_);
    return opens_;
  }

  std::vector<std::string> ListDevices() override {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> paths;
    for (const ScriptedDevice& device : devices_) paths.push_back(device.Path());
    std::sort(paths.begin(), paths.end());
    return paths;
  }

  std::unique_ptr<probe_driver::UsbDevice> OpenDevice(const std::string& path) override {
    const std::lock_guard lock(mutex_);
    ++opens_;
    if (refused_opens_ > 0) {
      --refused_opens_;
      return nullptr;
    }
    for (const ScriptedDevice& device : devices_) {
      if (device.Path() == path) return std::make_unique<OpenedDevice>(*this, device);
    }
    return nullptr;
  }

  void SetListener(probe_driver::UsbBusListener* listener) override {
    const std::lock_guard lock(mutex_);
    listener_ = listener;
  }

 private:
  using Transfer = probe_driver::UsbTransfer;
  using Status = probe_driver::UsbStatus;

  struct Line {
    std::string request;  // normalised
    std::string answer;   // normalised, with its arrow; empty for pipe operations
    std::string word;     // ok, stall, ...; empty when `data` is the reply
    Bytes data;
  };

  // A transfer in flight until it is aborted.
  struct Pending {
    const void* device = nullptr;
    Transfer* transfer = nullptr;
  };

  class OpenedDevice : public probe_driver::UsbDevice {
   public:
    OpenedDevice(ScriptedBus& bus, ScriptedDevice device) : bus_(bus), device_(std::move(device)) {}
    ~OpenedDevice() override {
      bus_.End(this, [](const Transfer&) { return true; });
    }
    probe_driver::DriverFacts Facts() override { return device_.facts; }
    void Submit(Transfer& transfer) override { bus_.Submit(this, device_, transfer); }
    void Cancel(Transfer& transfer) override {
      bus_.Note("cancel", transfer.endpoint);
      bus_.End(this, [&](const Transfer& pending) { return &pending == &transfer; });
    }
    void AbortPipe(std::uint8_t endpoint) override {
      bus_.Note("abort", endpoint);
      bus_.End(this, [&](const Transfer& pending) { return pending.endpoint == endpoint; });
    }
    bool ResetPipe(std::uint8_t endpoint) override {
      bus_.Note("reset", endpoint);
      return true;
    }

   private:
    ScriptedBus& bus_;
    ScriptedDevice device_;
  };

  static bool Holds(const std::vector<ScriptedDevice>& devices, const std::string& path) {
    return std::any_of(devices.begin(), devices.end(),
                       [&](const ScriptedDevice& device) { return device.Path() == path; });
  }

  static std::string Join(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
  }

  static std::string Trim(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
  }

  static Line Parse(const std::string& text) {
    const std::string bare = Trim(text.substr(0, text.find('#')));
    const std::size_t arrow = bare.find("->");
    Line line;
    line.request = NormalRequest(Trim(bare.substr(0, arrow)));
    if (arrow == std::string::npos) return line;
    const std::string answer = Trim(bare.substr(arrow + 2));
    for (const char* word : {"ok", "stall", "error", "gone", "silent", "flagged"}) {
      if (answer == word) line.word = word;
    }
    if (line.word.empty()) line.data = HexBytes(answer);
    line.answer = " -> " + (line.word.empty() ? HexText(line.data) : line.word);
    return line;
  }

  // Rewrites the data of a request as HexText does.
  static std::string NormalRequest(const std::string& request) {
    const std::size_t colon = request.find(':');
    if (colon == std::string::npos) return request;
    return Trim(request.substr(0, colon)) + " : " + HexText(HexBytes(request.substr(colon + 1)));
  }

  static bool IsIn(const Transfer& transfer) {
    return ((transfer.endpoint == 0 ? transfer.setup.request_type : transfer.endpoint) & 0x80) != 0;
  }

  static std::string SetupText(const probe_driver::SetupPacket& setup) {
    char text[32];
    std::snprintf(text, sizeof text, "%02X %02X %02X %02X %02X %02X %02X %02X", setup.request_type,
                  setup.request, setup.value & 0xFF, setup.value >> 8, setup.index & 0xFF,
                  setup.index >> 8, setup.length & 0xFF, setup.length >> 8);
    return text;
  }

  static std::string RequestText(const Transfer& transfer) {
    char text[32];
    std::snprintf(text, sizeof text, IsIn(transfer) ? "in %02X %u" : "out %02X", transfer.endpoint,
                  transfer.length);
    const std::string head = transfer.endpoint == 0 ? SetupText(transfer.setup) : text;
    if (IsIn(transfer)) return head;
    if (transfer.endpoint == 0 && transfer.length == 0) return head;
    return head + " : " + HexText(Bytes(transfer.data, transfer.data + transfer.length));
  }

  static void Finish(Transfer& transfer, const Line& line) {
    transfer.status = line.word == "stall"   ? Status::kStall
                      : line.word == "error" ? Status::kError
                      : line.word == "gone"  ? Status::kDisconnected
                                             : Status::kOk;
    if (transfer.status == Status::kOk) {
      if (!IsIn(transfer)) transfer.actual = transfer.length;
      if (line.word == "flagged") transfer.bus_status = 0xC0000011;
      if (line.data.size() > transfer.length) transfer.status = Status::kOverrun;
      const std::size_t moved = std::min<std::size_t>(line.data.size(), transfer.length);
      if (IsIn(transfer) && moved > 0) {
        std::memcpy(transfer.data, line.data.data(), moved);
        transfer.actual = static_cast<std::uint32_t>(moved);
      }
    }
    transfer.complete(transfer);
  }

  void Submit(const void* device, const ScriptedDevice& described, Transfer& transfer) {
    transfer.actual = 0;
    Line line;
    {
      const std::lock_guard lock(mutex_);
      if (transfer.endpoint == 0 && transfer.setup.request_type == 0x80 &&
          transfer.setup.request == 6) {
        descriptor_requests_.push_back(SetupText(transfer.setup));
        line.data = described.Descriptor(transfer.setup.value);
        line.data.resize(std::min<std::size_t>(line.data.size(), transfer.length));
        if (line.data.empty()) line.word = "stall";
      } else {
        line = NextLine(RequestText(transfer));
        if (line.word == "silent") {
          pending_.push_back({device, &transfer});
          return;
        }
      }
    }
    Finish(transfer, line);
  }

  // With the lock held: the script's answer to a request, entered into the transcript.
  Line NextLine(const std::string& request) {
    Line line;
    line.word = "stall";
    if (!script_.empty() && script_.front().request == request) {
      line = script_.front();
      script_.pop_front();
    }
    transcript_.push_back(request + (line.answer.empty() ? " -> unexpected" : line.answer));
    return line;
  }

  void Note(const char* operation, std::uint8_t endpoint) {
    char text[32];
    std::snprintf(text, sizeof text, "%s %02X", operation, endpoint);
    const std::lock_guard lock(mutex_);
    if (!script_.empty() && script_.front().request == text) script_.pop_front();
    transcript_.push_back(text);
  }

  template <typename Condition>
  void End(const void* device, Condition condition) {
    std::vector<Pending> ended;
    {
      const std::lock_guard lock(mutex_);
      const auto ends = [&](const Pending& pending) {
        return pending.device == device && condition(*pending.transfer);
      };
      std::copy_if(pending_.begin(), pending_.end(), std::back_inserter(ended), ends);
      std::erase_if(pending_, ends);
    }
    for (const Pending& pending : ended) {
      pending.transfer->status = Status::kAborted;
      pending.transfer->complete(*pending.transfer);
    }
  }

  mutable std::mutex mutex_;
  std::vector<ScriptedDevice> devices_;
  std::deque<Line> script_;
  std::vector<std::string> expected_;
  std::vector<std::string> transcript_;
  std::vector<std::string> descriptor_requests_;
  std::vector<Pending> pending_;
  probe_driver::UsbBusListener* listener_ = nullptr;
  int refused_opens_ = 0;
  int opens_ = 0;
};

}  // namespace unit
