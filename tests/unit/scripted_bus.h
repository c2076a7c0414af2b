// A USB bus whose devices answer from a script, and which keeps a transcript of what reached it;
// and the fixture of tests that use one.
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
//   size 02 512                                # transfers of up to so many bytes are announced
//   pause 50                                   # ms since the exchange before
//
// The last two only after ShowAll.
//
// Instead of a reply may stand: ok (nothing moves in, everything moves out), stall, error, silent
// (the transfer stays in flight until it is aborted or cancelled), slow (until it is aborted or
// cancelled twice), deaf (until it is aborted), kept (until the device is closed, and then still
// brings bytes), or flagged and marked (as ok, with a
// bus or a driver status word).
//
// For the tests' own thread. Exchanges are played in order. One that does not fit the script's next
// line is answered with a stall and put into the transcript as it came, so that comparing the two
// shows it. Standard descriptors are answered from the device's own, outside the script.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <source_location>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/test_host.h"
#include "platform/probe_driver/usb_bus.h"
#include "tests/unit/hex_bytes.h"

namespace unit {

// What a device on the bus says of itself. Endpoints are bulk endpoints of 512 bytes.
struct ScriptedDevice {
  std::string name = "WFX0001";  // serial-number string
  std::uint16_t vendor_id = 0x0F0F;
  std::uint16_t product_id = 0x1002;
  Bytes endpoints = HexBytes("01 81 02 84 86");
  probe_driver::DriverFacts facts{};
  // By wValue. Those that are not given are made from the above; an empty one stalls.
  std::map<std::uint16_t, Bytes> descriptors{};
  // What the device descriptor's request is answered with instead; a word as in scripts.
  std::string instead{};

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
    switch (value) {
      case 0x0100: {
        char text[64];
        std::snprintf(text, sizeof text,
                      "12 01 00 02 FF 00 00 40 %02X %02X %02X %02X 00 00 01 02 03 01",
                      vendor_id & 0xFF, vendor_id >> 8, product_id & 0xFF, product_id >> 8);
        return HexBytes(text);
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
    Bytes bytes = HexBytes("09 02 00 00 01 01 00 80 FA 09 04 00 00 00 FF 00 00 00");
    for (const std::uint8_t address : endpoints) {
      bytes.insert(bytes.end(), {7, 5, address, 2, 0x00, 0x02, 0});
    }
    bytes[2] = static_cast<std::uint8_t>(bytes.size());
    bytes[13] = static_cast<std::uint8_t>(endpoints.size());
    return bytes;
  }
};

class ScriptedBus : public probe_driver::UsbBus {
 public:
  explicit ScriptedBus(std::vector<ScriptedDevice> devices = {ScriptedDevice()})
      : devices_(std::move(devices)) {}

  // What has come so far was what was played before; what comes next is to be `script`.
  void Play(const std::string& script,
            std::source_location where = std::source_location::current()) {
    ExpectPlayed();
    played_at_ = where;
    std::istringstream lines(script);
    for (std::string text; std::getline(lines, text);) {
      if (const Line line = Parse(text); !line.request.empty()) {
        script_.push_back(line);
        expected_ += line.Text();
      }
    }
  }

  // Compares everything that was played with everything that came, and begins anew.
  void ExpectPlayed() {
    const testing::ScopedTrace trace(played_at_.file_name(), static_cast<int>(played_at_.line()),
                                     "what was played last");
    NotePause();
    EXPECT_EQ(std::exchange(expected_, {}), std::exchange(transcript_, {}));
    script_.clear();
  }

  // From now on the transcript has pauses and announced sizes, too.
  void ShowAll() { last_exchange_ms_ = GetTickCount64(); }

  // The descriptor requests since the last call, as setup packets.
  std::vector<std::string> TakeDescriptorRequests() {
    return std::exchange(descriptor_requests_, {});
  }

  void SetDevices(std::vector<ScriptedDevice> devices) { devices_ = std::move(devices); }

  // Refuses this many opens of devices from now on.
  void RefuseOpens(int count) { refused_opens_ = count; }
  // Called at the end of every open, with its number from here on, the first being 1.
  void OnOpen(std::function<void(int)> action) {
    on_open_ = [first = opens_, action = std::move(action), this] { action(opens_ - first); };
  }
  int OpensSoFar() const { return opens_; }

  std::vector<std::string> ListDevices() override {
    std::vector<std::string> paths;
    for (const ScriptedDevice& device : devices_) paths.push_back(device.Path());
    std::sort(paths.begin(), paths.end());
    return paths;
  }

  std::unique_ptr<probe_driver::UsbDevice> OpenDevice(const std::string& path) override {
    ++opens_;
    std::unique_ptr<probe_driver::UsbDevice> opened;
    for (const ScriptedDevice& device : devices_) {
      if (refused_opens_ > 0 || device.Path() != path) continue;
      opened = std::make_unique<OpenedDevice>(*this, device);
    }
    if (refused_opens_ > 0) --refused_opens_;
    if (on_open_) on_open_();
    return opened;
  }

  // Nobody is told of changes: they are for those who look.
  void SetListener(probe_driver::UsbBusListener*) override {}

 private:
  using Transfer = probe_driver::UsbTransfer;
  using Status = probe_driver::UsbStatus;

  struct Line {
    std::string request;   // data as HexText has it
    std::string answer{};  // a word in lower case, or bytes as HexText has them
    bool answers = false;

    std::string Text() const { return request + (answers ? " -> " + answer : "") + "\n"; }
    bool IsWord() const { return !answer.empty() && std::islower(answer.front()) != 0; }
  };

  class OpenedDevice : public probe_driver::UsbDevice {
   public:
    OpenedDevice(ScriptedBus& bus, ScriptedDevice device) : bus_(bus), device_(std::move(device)) {}
    ~OpenedDevice() override {
      for (const Transfer* kept : kept_) std::memset(kept->data, 0x77, kept->length);
      pending_.insert(pending_.end(), kept_.begin(), kept_.end());
      End([](const Transfer*) { return true; });
    }
    probe_driver::DriverFacts Facts() override { return device_.facts; }
    void Submit(Transfer& transfer) override {
      transfer.actual = 0;
      const Line line = bus_.AnswerTo(transfer, device_);
      constexpr int kNever = 1000;
      if (line.answer == "silent" || line.answer == "slow" || line.answer == "deaf") {
        pending_.push_back(&transfer);
        cancels_[&transfer] = line.answer == "silent" ? 1 : line.answer == "slow" ? 2 : kNever;
      } else if (line.answer == "kept") {
        kept_.push_back(&transfer);
      } else {
        Finish(transfer, line);
      }
    }
    void Cancel(Transfer& transfer) override {
      bus_.Note("cancel", transfer.endpoint);
      End([&](const Transfer* pending) {
        return pending == &transfer && --cancels_[pending] == 0;
      });
    }
    void AbortPipe(std::uint8_t endpoint) override {
      bus_.Note("abort", endpoint);
      End([&](const Transfer* pending) { return pending->endpoint == endpoint; });
    }
    bool ResetPipe(std::uint8_t endpoint) override {
      bus_.Note("reset", endpoint);
      return true;
    }
    void SetTransferSize(std::uint8_t endpoint, std::uint32_t bytes) override {
      if (bus_.last_exchange_ms_ == 0) return;
      bus_.Note("size", endpoint, std::string(" ").append(std::to_string(bytes)));
    }

   private:
    template <typename Condition>
    void End(Condition condition) {
      const auto found = std::ranges::stable_partition(pending_, std::not_fn(condition));
      const std::vector<Transfer*> ended(found.begin(), found.end());
      pending_.erase(found.begin(), found.end());
      for (Transfer* transfer : ended) {
        cancels_.erase(transfer);
        transfer->status = Status::kAborted;
        transfer->complete(*transfer);
      }
    }

    ScriptedBus& bus_;
    ScriptedDevice device_;
    std::vector<Transfer*> pending_;          // in flight until they are ended
    std::map<const Transfer*, int> cancels_;  // that end each of them
    std::vector<Transfer*> kept_;
  };

  static std::string Trim(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
  }

  static Line Parse(const std::string& text) {
    const std::string bare = Trim(text.substr(0, text.find('#')));
    const std::size_t arrow = bare.find("->");
    Line line{.request = Trim(bare.substr(0, arrow)), .answers = arrow != std::string::npos};
    if (const std::size_t colon = line.request.find(':'); colon != std::string::npos) {
      line.request = Trim(line.request.substr(0, colon)) + " : " +
                     HexText(HexBytes(line.request.substr(colon + 1)));
    }
    if (line.answers) line.answer = Trim(bare.substr(arrow + 2));
    if (!line.IsWord()) line.answer = HexText(HexBytes(line.answer));
    return line;
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
    if (IsIn(transfer) || (transfer.endpoint == 0 && transfer.length == 0)) return head;
    return head + " : " + HexText(Bytes(transfer.data, transfer.data + transfer.length));
  }

  static void Finish(Transfer& transfer, const Line& line) {
    transfer.status = line.answer == "stall"   ? Status::kStall
                      : line.answer == "error" ? Status::kError
                                               : Status::kOk;
    if (transfer.status == Status::kOk && !IsIn(transfer)) transfer.actual = transfer.length;
    if (line.answer == "flagged") transfer.bus_status = 0xC0000011;
    if (line.answer == "marked") transfer.driver_status = 0x11;
    const Bytes data = line.IsWord() ? Bytes() : HexBytes(line.answer);
    if (data.size() > transfer.length) transfer.status = Status::kOverrun;
    if (IsIn(transfer) && !data.empty()) {
      transfer.actual = std::min(static_cast<std::uint32_t>(data.size()), transfer.length);
      std::memcpy(transfer.data, data.data(), transfer.actual);
    }
    transfer.complete(transfer);
  }

  // What the script or the device's descriptors say to a transfer.
  Line AnswerTo(const Transfer& transfer, const ScriptedDevice& device) {
    Line line{.request = RequestText(transfer), .answer = "stall", .answers = true};
    if (transfer.endpoint == 0 && transfer.setup.request_type == 0x80 &&
        transfer.setup.request == 6) {
      descriptor_requests_.push_back(SetupText(transfer.setup));
      Bytes descriptor = device.Descriptor(transfer.setup.value);
      descriptor.resize(std::min<std::size_t>(descriptor.size(), transfer.length));
      if (!descriptor.empty()) line.answer = HexText(descriptor);
      if (transfer.setup.value == 0x0100 && !device.instead.empty()) line.answer = device.instead;
      return line;
    }
    NotePause();
    if (script_.empty() || script_.front().request != line.request) {
      transcript_ += line.request + " -> unexpected\n";
      return line;
    }
    line = script_.front();
    script_.pop_front();
    transcript_ += line.Text();
    return line;
  }

  void Note(const char* operation, std::uint8_t endpoint, const std::string& more = {}) {
    char text[32];
    std::snprintf(text, sizeof text, "%s %02X", operation, endpoint);
    NotePause();
    NoteLine(text + more);
  }

  void NotePause() {
    if (last_exchange_ms_ == 0) return;
    const std::uint64_t before = std::exchange(last_exchange_ms_, GetTickCount64());
    if (last_exchange_ms_ != before) {
      NoteLine("pause " + std::to_string(last_exchange_ms_ - before));
    }
  }

  void NoteLine(const std::string& text) {
    if (!script_.empty() && script_.front().request == text) script_.pop_front();
    transcript_.append(text).append("\n");
  }

  std::vector<ScriptedDevice> devices_;
  std::deque<Line> script_;
  std::source_location played_at_;
  std::string expected_;
  std::string transcript_;
  std::vector<std::string> descriptor_requests_;
  std::uint64_t last_exchange_ms_ = 0;  // 0: not everything is shown
  int refused_opens_ = 0;
  int opens_ = 0;
  std::function<void()> on_open_;
};

// Product classes on a scripted bus, with the test clock. At its end a test has made every exchange
// of its last script.
class ScriptedBusTest : public testing::Test {
 protected:
  explicit ScriptedBusTest(std::vector<ScriptedDevice> devices = {ScriptedDevice()})
      : bus_(std::move(devices)) {
    test_host::UseBus(&bus_);
  }
  ~ScriptedBusTest() override { test_host::UseBus(nullptr); }

  void TearDown() override { bus_.ExpectPlayed(); }

  // For each control request of `script`: lets it fail, and calls `operation`, which is to ask for
  // nothing more.
  void PlayUpToEachFailure(const std::string& script, const std::function<void()>& operation) {
    std::istringstream lines(script);
    std::string before;
    for (std::string line; std::getline(lines, line); before += line + "\n") {
      const std::size_t begin = line.find_first_not_of(' ');
      if (begin == std::string::npos || (line[begin] != 'C' && line[begin] != '4')) continue;
      SCOPED_TRACE("fails: " + line);
      bus_.Play(before + line.substr(0, line.find("->")) + "-> stall");
      operation();
      bus_.ExpectPlayed();
    }
  }

  std::uint64_t ElapsedMs(const std::function<void()>& action) {
    const std::uint64_t begin = clock_.NowMs();
    action();
    return clock_.NowMs() - begin;
  }

  test_host::TestClock clock_;
  ScriptedBus bus_;
};

}  // namespace unit
