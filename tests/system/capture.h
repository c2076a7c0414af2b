// The wire as the simulator recorded it, read without the help of any code of the simulator: a pcap
// file of link type 220 (Linux usbmon, 64-byte headers).
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace system_test {

// A submission of a control transfer.
struct ControlRequest {
  int device;
  std::string setup;  // the eight bytes of the setup packet, "C0 41 00 …"
  std::string data;   // sent with it
};

// In the order of the file. Throws std::runtime_error when the file is not what it should be.
std::vector<ControlRequest> ReadControlRequests(const std::filesystem::path& path);

// What each device was sent through an OUT endpoint, in one piece; by the devices' numbers.
std::vector<std::string> ReadBulkOut(const std::filesystem::path& path, std::uint8_t endpoint);

}  // namespace system_test
