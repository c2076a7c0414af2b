#include "sim/descriptors.h"

#include <array>
#include <string>

#include "sim/protocol.h"

namespace sim {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kDevice = 1;
constexpr std::uint8_t kConfiguration = 2;
constexpr std::uint8_t kString = 3;
constexpr std::uint8_t kInterface = 4;
constexpr std::uint8_t kEndpoint = 5;

constexpr std::uint8_t kManufacturerIndex = 1;
constexpr std::uint8_t kProductIndex = 2;
constexpr std::uint8_t kSerialIndex = 3;

constexpr std::uint8_t kVendorClass = 0xFF;
constexpr std::uint8_t kBulk = 2;

std::uint8_t Low(std::size_t value) { return static_cast<std::uint8_t>(value); }
std::uint8_t High(std::size_t value) { return static_cast<std::uint8_t>(value >> 8); }

Bytes DeviceDescriptor(const ProbeDescription& probe, bool configured) {
  const std::uint16_t product = configured ? probe.configured_product_id : probe.fresh_product_id;
  const std::uint16_t release = configured ? probe.firmware_version : 0;
  return {18,
          kDevice,
          0x00,
          0x02,  // USB 2.0
          kVendorClass,
          kVendorClass,
          kVendorClass,
          64,  // bMaxPacketSize0
          Low(probe.vendor_id),
          High(probe.vendor_id),
          Low(product),
          High(product),
          Low(release),
          High(release),
          kManufacturerIndex,
          kProductIndex,
          kSerialIndex,
          1};
}

Bytes ConfigurationDescriptor(bool configured) {
  using namespace protocol;
  static constexpr std::array<std::uint8_t, 5> kEndpoints = {kSerialOut, kSerialIn, kDataOut,
                                                             kDataIn, kTraceIn};
  const std::size_t count = configured ? kEndpoints.size() : 0;
  const std::size_t total = 9 + 9 + 7 * count;
  Bytes bytes = {9,          kConfiguration,
                 Low(total), High(total),
                 1,          1,
                 0,          0x80,
                 250,  // 500 mA
                 9,          kInterface,
                 0,          0,
                 Low(count), kVendorClass,
                 0,          0,
                 0};
  for (std::size_t i = 0; i < count; ++i) {
    const Bytes endpoint = {7, kEndpoint, kEndpoints[i], kBulk, Low(kBulkPacket), High(kBulkPacket),
                            0};
    bytes.insert(bytes.end(), endpoint.begin(), endpoint.end());
  }
  return bytes;
}

Bytes LanguageDescriptor(const ProbeDescription& probe) {
  Bytes bytes = {Low(2 + 2 * probe.languages.size()), kString};
  for (const std::uint16_t language : probe.languages) {
    bytes.push_back(Low(language));
    bytes.push_back(High(language));
  }
  return bytes;
}

Bytes StringDescriptor(const std::string& text) {
  Bytes bytes = {Low(2 + 2 * text.size()), kString};
  for (const char c : text) {
    bytes.push_back(static_cast<std::uint8_t>(c));
    bytes.push_back(0);
  }
  return bytes;
}

}  // namespace

std::optional<Bytes> FindDescriptor(const ProbeDescription& probe, bool configured,
                                    std::uint16_t value) {
  const std::uint8_t type = High(value);
  const std::uint8_t number = Low(value);
  if (type == kDevice && number == 0) return DeviceDescriptor(probe, configured);
  if (type == kConfiguration && number == 0) return ConfigurationDescriptor(configured);
  if (type != kString) return std::nullopt;
  switch (number) {
    case 0:
      return LanguageDescriptor(probe);
    case kManufacturerIndex:
      return StringDescriptor(probe.manufacturer);
    case kProductIndex:
      return StringDescriptor(probe.product);
    case kSerialIndex:
      return StringDescriptor(probe.name);
    default:
      return std::nullopt;
  }
}

}  // namespace sim
