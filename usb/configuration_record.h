// What a configuration descriptor says: its interface settings and their endpoints, as objects.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "usb/usb_endpoint.h"

// One interface descriptor, alternate settings included.
struct InterfaceRecord {
  static constexpr std::uint32_t kSlots = 16;

  // Slot 0 is lent the control endpoint while this is the current setting; slots 1 to 15 are those
  // of the endpoint descriptors in their order, null where a descriptor gave no object.
  std::array<CTzUSBEndPoint*, kSlots> endpoints{};
  std::vector<std::unique_ptr<CTzUSBEndPoint>> owned_endpoints;

  std::uint8_t length = 0;
  std::uint8_t descriptor_type = 0;
  std::uint8_t interface_number = 0;
  std::uint8_t alternate_setting = 0;
  std::uint8_t endpoint_count = 0;  // bNumEndpoints, at most 15: further endpoints are ignored
  std::uint8_t interface_class = 0;
  std::uint8_t interface_subclass = 0;
  std::uint8_t interface_protocol = 0;
  std::uint8_t name_index = 0;
  std::uint8_t settings_of_interface = 0;  // records with this interface number
  std::uint16_t total_length = 0;  // of the interface descriptor and those that belong to it
};

struct ConfigurationRecord {
  static constexpr std::size_t kMaxInterfaces = 8;

  std::vector<InterfaceRecord> interfaces;  // in descriptor order, at most kMaxInterfaces
  std::uint8_t length = 0;
  std::uint8_t descriptor_type = 0;
  std::uint16_t total_length = 0;
  std::uint8_t interface_count = 0;  // bNumInterfaces
  std::uint8_t configuration_value = 0;
  std::uint8_t name_index = 0;
  std::uint8_t attributes = 0;
  std::uint8_t max_power = 0;
};

// Builds the record of the configuration descriptor in `bytes`: what the device sent, at least 9
// bytes of it, and nothing of it trusted. Descriptors beyond the limits and cut-off ones are left
// out. The endpoints use `driver`, which outlives them.
std::unique_ptr<ConfigurationRecord> BuildConfiguration(std::span<const std::uint8_t> bytes,
                                                        DriverFile& driver);
