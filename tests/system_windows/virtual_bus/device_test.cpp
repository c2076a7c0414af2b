// The product's USB classes on probes of a simulator in another process, through the system's own
// device files: listed and opened under the driver's class, with every kind of request and of end.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "device/evk_device.h"
#include "device/probe_protocol.h"
#include "support/handle.h"
#include "tests/system_windows/virtual_bus/driver.h"
#include "tests/unit/scratch_folder.h"
#include "usb/usb_device.h"

namespace {

using system_windows::DevicesBecome;
using system_windows::Program;
using system_windows::RunToEnd;
using system_windows::Words;

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kStatusStalled = 0xC0000004;
constexpr std::size_t kPacketBytes = 512;  // of a bulk endpoint at high speed

std::string OneBoard(const std::string& driver_version) {
  return R"({"driver": {"version": ")" + driver_version +
         R"("}, "probes": [{"name": "BOARD", "kind": "evk"}]})";
}

constexpr char kDirect[] = "0x01050500";
constexpr char kBuffered[] = "0x01050400";  // a driver without the direct form

// The simulator as a process of its own, which is ready; empty: with the default bench.
class Simulator {
 public:
  explicit Simulator(const std::string& bench = "") {
    Words command = {Program("wfxsim")};
    if (!bench.empty()) {
      command.insert(command.end(), {"--bench", folder_.Write("bench.json", bench)});
    }
    process_ = std::make_unique<system_windows::Process>(command);
    EXPECT_EQ(process_->ReadLine(), R"(wfxsim: listening on \\.\pipe\wfxsim)");
  }

  system_windows::Process& process() { return *process_; }

  // Runs a command that controls it; the exit status.
  int Control(Words command) {
    command.insert(command.begin(), {Program("wfxsim"), "ctl"});
    return RunToEnd(command).exit_status;
  }

 private:
  const unit::ScratchFolder folder_;
  std::unique_ptr<system_windows::Process> process_;
};

class VirtualBus : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(system_windows::DriverIsInstalled());
    ASSERT_TRUE(DevicesBecome(0));
  }
};

// The board of OneBoard, in the mode in which it sends the bytes of 0x01 back on 0x81.
class Loopback {
 public:
  Loopback() : board_(0, true) {
    EXPECT_EQ(board_.SetMode(probe::kModeVser, false), 0U);
    out_ = board_.GetEndPoint(probe::kEndpointSerialOut);
    in_ = board_.GetEndPoint(probe::kEndpointSerialIn);
  }

  CTzUSBEndPoint& out() { return *out_; }
  CTzUSBEndPoint& in() { return *in_; }
  CTzUSBDevice& usb() { return *board_.GetUSBDevice(); }

  void ExpectBytesComeBack(const Bytes& sent) {
    Bytes there = sent;
    std::uint32_t length = static_cast<std::uint32_t>(there.size());
    EXPECT_TRUE(out().Transfer(there.data(), length));
    EXPECT_EQ(length, sent.size());
    // More room than bytes: what follows them stays. A short packet ends the transfer, otherwise
    // that it is full.
    Bytes back(sent.size() + 16, 0xA5);
    const bool ends_short = sent.size() % kPacketBytes != 0;
    length = static_cast<std::uint32_t>(ends_short ? back.size() : sent.size());
    EXPECT_TRUE(in().Transfer(back.data(), length));
    EXPECT_EQ(length, sent.size());
    Bytes expected = sent;
    expected.resize(back.size(), 0xA5);
    EXPECT_TRUE(back == expected) << sent.size() << " bytes";
  }

 private:
  CTzEvkDevice board_;
  CTzUSBEndPoint* out_ = nullptr;
  CTzUSBEndPoint* in_ = nullptr;
};

// An IN transfer that the board does not answer, since nothing was sent to it.
class PendingTransfer {
 public:
  explicit PendingTransfer(CTzUSBEndPoint& endpoint)
      : endpoint_(endpoint), event_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
    overlapped_.hEvent = event_.Get();
    record_ = endpoint_.StartTransfer(buffer_.data(), 64, &overlapped_);
    EXPECT_EQ(endpoint_.LastError(), static_cast<std::uint32_t>(ERROR_IO_PENDING));
  }

  bool Ends() { return endpoint_.WaitTransfer(&overlapped_, system_windows::kPatienceMs); }
  bool Complete() {
    std::uint32_t length = 64;
    const bool done =
        endpoint_.CompleteTransfer(buffer_.data(), length, &overlapped_, record_, nullptr);
    EXPECT_EQ(length, 0U);
    return done;
  }

 private:
  CTzUSBEndPoint& endpoint_;
  const KernelHandle event_;
  OVERLAPPED overlapped_{};
  Bytes buffer_ = Bytes(64);
  RequestRecord* record_ = nullptr;
};

Bytes Pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 13 + (i >> 8));
  return bytes;
}

TEST_F(VirtualBus, ProbesAreListedAndDescribeThemselves) {
  Simulator simulator;
  ASSERT_TRUE(DevicesBecome(3));
  struct Expected {
    const wchar_t* serial;
    std::uint16_t product;
    const char* path;
    std::uint8_t endpoints;
  };
  const Expected all[] = {
      {L"WFX0001", 0x1001, R"(\\?\usb#vid_0f0f&pid_1001#wfx0001&1#)", 1},
      {L"WFX0002", 0x1002, R"(\\?\usb#vid_0f0f&pid_1002#wfx0002&2#)", 6},
      {L"EVK0001", 0x2002, R"(\\?\usb#vid_0f0f&pid_2002#evk0001&3#)", 6},
  };
  CTzUSBDevice device(kProbeDriverInterface, false);
  for (std::uint8_t i = 0; i < 3; ++i) {
    ASSERT_TRUE(device.Open(i)) << int{i};
    EXPECT_STREQ(device.SerialNumber(), all[i].serial);
    EXPECT_EQ(device.VendorId(), 0x0F0F);
    EXPECT_EQ(device.ProductId(), all[i].product);
    EXPECT_EQ(std::string(device.DevicePath()).rfind(all[i].path, 0), 0U) << device.DevicePath();
    EXPECT_EQ(device.EndPointCount(), all[i].endpoints);
    EXPECT_EQ(device.DriverVersion(), 0x01050500U);
    EXPECT_EQ(device.UsbAddress(), i + 1);
    EXPECT_TRUE(device.IsHighSpeed());
  }
  EXPECT_FALSE(device.Open(3));
}

TEST_F(VirtualBus, TransfersOfAnySizeArriveWholeInBothForms) {
  for (const char* version : {kDirect, kBuffered}) {
    Simulator simulator(OneBoard(version));
    ASSERT_TRUE(DevicesBecome(1));
    Loopback loopback;
    EXPECT_EQ(loopback.out().IsDirect(), version == kDirect);
    for (const std::size_t size : {1U, 64U, 4096U, 65536U, 70000U, 1U << 20}) {
      loopback.ExpectBytesComeBack(Pattern(size));
    }
  }
}

TEST_F(VirtualBus, StatusWordsComeBackInTheRecord) {
  for (const char* version : {kDirect, kBuffered}) {
    Simulator simulator(OneBoard(version));
    ASSERT_TRUE(DevicesBecome(1));
    Loopback loopback;
    for (const std::uint8_t endpoint : {probe::kEndpointSerialOut, probe::kEndpointSerialIn}) {
      SCOPED_TRACE(std::string(version) + " " + std::to_string(endpoint));
      ASSERT_EQ(
          simulator.Control({"fault", "BOARD", "stall", "--endpoint", std::to_string(endpoint)}),
          0);
      CTzUSBEndPoint& pipe = endpoint == probe::kEndpointSerialOut ? loopback.out() : loopback.in();
      Bytes bytes(8);
      std::uint32_t length = 8;
      EXPECT_FALSE(pipe.Transfer(bytes.data(), length));
      EXPECT_EQ(pipe.BusStatus(), kStatusStalled);
      EXPECT_EQ(length, 0U);
      EXPECT_TRUE(pipe.ResetPipe());
    }
    loopback.ExpectBytesComeBack(Pattern(100));
    EXPECT_EQ(loopback.in().BusStatus(), 0U);
  }
}

TEST_F(VirtualBus, TransferWithoutAnAnswerIsAbortedOrCancelled) {
  Simulator simulator(OneBoard(kDirect));
  ASSERT_TRUE(DevicesBecome(1));
  Loopback loopback;
  loopback.in().SetTimeoutMs(50);
  Bytes bytes(64);
  std::uint32_t length = 64;
  EXPECT_FALSE(loopback.in().Transfer(bytes.data(), length));
  EXPECT_EQ(loopback.in().LastError(), static_cast<std::uint32_t>(ERROR_IO_PENDING));
  EXPECT_EQ(length, 0U);
  EXPECT_FALSE(PendingTransfer(loopback.in()).Complete());
  // Neither of the two takes the next bytes.
  loopback.in().SetTimeoutMs(30000);
  loopback.ExpectBytesComeBack(Pattern(64));
}

TEST_F(VirtualBus, HandleClosedWithATransferInFlightLeavesTheProbeUsable) {
  Simulator simulator(OneBoard(kDirect));
  ASSERT_TRUE(DevicesBecome(1));
  Loopback other;
  {
    Loopback loopback;
    auto pending = std::make_unique<PendingTransfer>(loopback.in());
    loopback.usb().Close();
    EXPECT_TRUE(pending->Ends());
  }
  other.ExpectBytesComeBack(Pattern(64));
}

TEST_F(VirtualBus, ProbeThatLeavesEndsItsTransfersAndCanComeBack) {
  auto simulator = std::make_unique<Simulator>(OneBoard(kDirect));
  for (const bool killed : {false, true}) {
    SCOPED_TRACE(killed ? "the simulator was killed" : "unplugged");
    ASSERT_TRUE(DevicesBecome(1));
    Loopback loopback;
    PendingTransfer pending(loopback.in());
    if (killed) {
      simulator->process().Kill();
    } else {
      ASSERT_EQ(simulator->Control({"unplug", "BOARD"}), 0);
    }
    EXPECT_TRUE(pending.Ends());
    EXPECT_FALSE(pending.Complete());
    EXPECT_TRUE(DevicesBecome(0));
    Bytes bytes(8);
    std::uint32_t length = 8;
    EXPECT_FALSE(loopback.out().Transfer(bytes.data(), length));
    if (killed) {
      simulator = std::make_unique<Simulator>(OneBoard(kDirect));
    } else {
      ASSERT_EQ(simulator->Control({"plug", "BOARD"}), 0);
    }
    ASSERT_TRUE(DevicesBecome(1));
    Loopback().ExpectBytesComeBack(Pattern(64));
  }
}

TEST_F(VirtualBus, ServesOneSimulatorAtATime) {
  Simulator simulator(OneBoard(kDirect));
  ASSERT_TRUE(DevicesBecome(1));
  const auto second = RunToEnd({Program("wfxsim"), "--socket", "another"});
  EXPECT_EQ(second.out, "wfxsim: another simulator uses the virtual bus driver\n");
  EXPECT_EQ(second.exit_status, 2);
  Loopback().ExpectBytesComeBack(Pattern(64));
}

TEST_F(VirtualBus, SimulatorEndsOnRequest) {
  Simulator simulator(OneBoard(kDirect));
  ASSERT_TRUE(DevicesBecome(1));
  EXPECT_EQ(simulator.Control({"stop"}), 0);
  EXPECT_EQ(simulator.process().Wait(), 0);
  EXPECT_TRUE(DevicesBecome(0));
  EXPECT_EQ(simulator.Control({"list"}), 3);
}

TEST_F(VirtualBus, DriverThatWasRemovedLeavesNothingAndCanBeInstalledAgain) {
  EXPECT_EQ(system_windows::RunDriverCommand("remove"), 0);
  for (const wchar_t* key : {L"Services\\wfxvbus", L"Enum\\ROOT\\WFXVBUS"}) {
    const std::wstring path = std::wstring(L"System\\CurrentControlSet\\") + key;
    HKEY opened = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &opened),
              ERROR_FILE_NOT_FOUND);
    RegCloseKey(opened);
  }
  ASSERT_EQ(system_windows::RunDriverCommand("install"), 0);
  Simulator simulator(OneBoard(kDirect));
  ASSERT_TRUE(DevicesBecome(1));
  Loopback().ExpectBytesComeBack(Pattern(64));
}

}  // namespace
