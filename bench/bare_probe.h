// A Wirefox probe used by libusb alone, without anything of ours between: what the service's way
// to a probe on the kernel's USB is compared with. It sends the requests that the service sends.
#pragma once

#include <libusb.h>

#include <cstdint>
#include <span>
#include <vector>

namespace bench {

// Ends the program with a message when a request fails.
class BareProbe {
 public:
  // The first device with these ids.
  BareProbe(std::uint16_t vendor, std::uint16_t product);
  ~BareProbe();
  BareProbe(const BareProbe&) = delete;
  BareProbe& operator=(const BareProbe&) = delete;

  void LoadFpga(std::span<std::uint8_t> image);
  void SetJtagMode();
  // `reply` has half as many bytes as `cycles`, which are an even number.
  void SendJtag(std::span<std::uint8_t> cycles, std::span<std::uint8_t> reply);

 private:
  void Command(std::uint8_t request, std::uint16_t value, std::uint16_t index,
               std::uint32_t length);
  void WriteRegister(std::uint8_t address, std::uint8_t value);
  void Exchange(std::span<std::uint8_t> out, std::span<std::uint8_t> in);

  libusb_context* context_ = nullptr;
  libusb_device_handle* handle_ = nullptr;
  libusb_transfer* out_;
  libusb_transfer* in_;
};

}  // namespace bench
