// Writes USB traffic as a capture file: pcap, link type 220 (Linux usbmon records with 64-byte
// headers), as Wireshark and tshark read it.
#pragma once

#include <cstdint>
#include <fstream>
#include <span>
#include <string>

#include "platform/probe_driver/usb_bus.h"

namespace sim {

// Not thread-safe: the bench writes with its lock held, so that records are in the order of events.
class Capture {
 public:
  // False when the file cannot be created.
  bool Open(const std::string& path);
  bool is_open() const { return file_.is_open(); }

  // Writes the submission of a transfer and returns the id that its completion carries.
  std::uint64_t Submitted(std::uint8_t usb_address, const probe_driver::UsbTransfer& transfer);
  // `transfer` holds the outcome.
  void Completed(std::uint8_t usb_address, std::uint64_t id,
                 const probe_driver::UsbTransfer& transfer);

 private:
  struct Event {
    char type;  // 'S' submission, 'C' completion
    std::uint64_t id;
    std::uint8_t usb_address;
    std::int32_t status;   // 0 or a negative errno of the host
    std::uint32_t length;  // bytes asked for, or moved
    bool with_setup;
    char no_data;  // why there is no data: '<' an IN submission, '>' an OUT completion
    std::span<const std::uint8_t> data;
  };

  void Put(std::span<const std::uint8_t> bytes);
  void Write(const probe_driver::UsbTransfer& transfer, const Event& event);

  std::ofstream file_;
  std::uint64_t last_id_ = 0;
};

}  // namespace sim
