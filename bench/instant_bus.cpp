#include "bench/instant_bus.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

namespace bench {
namespace {

using probe_driver::DriverFacts;
using probe_driver::SetupPacket;
using probe_driver::UsbStatus;
using probe_driver::UsbTransfer;

constexpr char kPath[] = "\\\\?\\usb#vid_0f0f&pid_1002#instant#1";
constexpr std::size_t kScratchBytes = std::size_t{1} << 20;

constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kSetModeRequest = 0x41;
constexpr std::uint8_t kStatusRequest = 0x44;
constexpr std::size_t kStatusInterfaceOffset = 5;

constexpr std::array<std::uint8_t, 18> kDeviceDescriptor = {
    18, 1, 0x00, 0x02, 0xFF, 0, 0, 64, 0x0F, 0x0F, 0x02, 0x10, 0x00, 0x01, 0, 0, 1, 1};
constexpr std::array<std::uint8_t, 4> kLanguages = {4, 3, 0x09, 0x04};
constexpr std::array<std::uint8_t, 16> kSerialNumber = {16,  3, 'I', 0, 'N', 0, 'S', 0,
                                                        'T', 0, 'A', 0, 'N', 0, 'T', 0};
// Five bulk endpoints of 512 bytes: 0x01, 0x81, 0x02, 0x84, 0x86.
constexpr std::array<std::uint8_t, 53> kConfiguration = {
    9, 2, 53,   0, 1, 1,    0, 0x80, 50,  // configuration
    9, 4, 0,    0, 5, 0xFF, 0, 0,    0,   // interface
    7, 5, 0x01, 2, 0, 2,    0,            //
    7, 5, 0x81, 2, 0, 2,    0,            //
    7, 5, 0x02, 2, 0, 2,    0,            //
    7, 5, 0x84, 2, 0, 2,    0,            //
    7, 5, 0x86, 2, 0, 2,    0};

std::span<const std::uint8_t> Descriptor(std::uint16_t value) {
  switch (value) {
    case 0x0100:
      return kDeviceDescriptor;
    case 0x0200:
      return kConfiguration;
    case 0x0300:
      return kLanguages;
    case 0x0301:
      return kSerialNumber;
    default:
      return {};
  }
}

class InstantDevice : public probe_driver::UsbDevice {
 public:
  DriverFacts Facts() override { return {}; }

  void Submit(UsbTransfer& transfer) override {
    transfer.status = UsbStatus::kOk;
    transfer.actual = transfer.endpoint == 0 ? Control(transfer) : Bulk(transfer);
    transfer.complete(transfer);
  }

  void Cancel(UsbTransfer&) override {}
  void AbortPipe(std::uint8_t) override {}
  bool ResetPipe(std::uint8_t) override { return true; }

 private:
  static std::uint32_t Control(UsbTransfer& transfer) {
    const SetupPacket& setup = transfer.setup;
    if ((setup.request_type & 0x80) == 0) return transfer.length;
    if (setup.request_type == 0x80 && setup.request == kGetDescriptor) {
      const auto descriptor = Descriptor(setup.value);
      const auto count = std::min<std::size_t>(descriptor.size(), transfer.length);
      std::memcpy(transfer.data, descriptor.data(), count);
      return static_cast<std::uint32_t>(count);
    }
    std::memset(transfer.data, 0, transfer.length);
    if (setup.request == kSetModeRequest) mode_ = static_cast<std::uint8_t>(setup.value);
    if (setup.request == kStatusRequest && transfer.length > kStatusInterfaceOffset) {
      transfer.data[kStatusInterfaceOffset] = mode_;
    }
    return transfer.length;
  }

  std::uint32_t Bulk(UsbTransfer& transfer) {
    const auto count = std::min<std::size_t>(transfer.length, scratch_.size());
    if ((transfer.endpoint & 0x80) != 0) {
      std::memcpy(transfer.data, scratch_.data(), count);
    } else {
      std::memcpy(scratch_.data(), transfer.data, count);
    }
    return transfer.length;
  }

  static inline std::uint8_t mode_ = 0;  // the probe's, not the opened device's
  std::vector<std::uint8_t> scratch_ = std::vector<std::uint8_t>(kScratchBytes);
};

}  // namespace

std::vector<std::string> InstantBus::ListDevices() { return {kPath}; }

std::unique_ptr<probe_driver::UsbDevice> InstantBus::OpenDevice(const std::string& path) {
  return path == kPath ? std::make_unique<InstantDevice>() : nullptr;
}

void InstantBus::SetListener(probe_driver::UsbBusListener*) {}

}  // namespace bench
