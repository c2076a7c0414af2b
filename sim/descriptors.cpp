#include "sim/descriptors.h"

#include <string>

#include "base/little_endian.h"
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

Bytes DeviceDescriptor(const ProbeDescription& probe, bool configured) {
  Bytes bytes = {18,
                 kDevice,
                 0x00,
                 0x02,  // USB 2.0
                 kVendorClass,
                 kVendorClass,
                 kVendorClass,
                 64,  // bMaxPacketSize0
                 0,
                 0,
                 0,
                 0,
                 0,
                 0,
                 kManufacturerIndex,
                 kProductIndex,
                 kSerialIndex,
                 1};
  StoreLe16(&bytes[8], probe.vendor_id);
  StoreLe16(&bytes[10], configured ? probe.configured_product_id : probe.fresh_product_id);
  StoreLe16(&bytes[12], configured ? probe.firmware_version : 0);
  return bytes;
}

Bytes ConfigurationDescriptor(bool configured) {
  using namespace protocol;
  Bytes bytes = {9,   kConfiguration,
                 0,   0,
                 1,   1,
                 0,   0x80,
                 250,  // 500 mA
                 9,   kInterface,
                 0,   0,
                 0,   kVendorClass,
                 0,   0,
                 0};
  for (const std::uint8_t address : {kSerialOut, kSerialIn, kStreamOut, kStreamIn, kSwvIn}) {
    if (!configured) break;
    bytes.insert(bytes.end(), {7, kEndpoint, address, kBulk, 0, 0, 0});
    StoreLe16(&bytes.end()[-3], kBulkPacket);
    ++bytes[13];
  }
  StoreLe16(&bytes[2], static_cast<std::uint16_t>(bytes.size()));
  return bytes;
}

Bytes LanguageDescriptor(const ProbeDescription& probe) {
  Bytes bytes(2 + 2 * probe.languages.size());
  bytes[0] = static_cast<std::uint8_t>(bytes.size());
  bytes[1] = kString;
  for (std::size_t i = 0; i < probe.languages.size(); ++i) {
    StoreLe16(&bytes[2 + 2 * i], probe.languages[i]);
  }
  return bytes;
}

Bytes StringDescriptor(const std::string& text) {
  Bytes bytes = {static_cast<std::uint8_t>(2 + 2 * text.size()), kString};
  for (const char c : text) {
    bytes.push_back(static_cast<std::uint8_t>(c));
    bytes.push_back(0);
  }
  return bytes;
}

}  // namespace

std::optional<Bytes> FindDescriptor(const ProbeDescription& probe, bool configured,
                                    std::uint16_t value) {
  const auto type = static_cast<std::uint8_t>(value >> 8);
  const auto number = static_cast<std::uint8_t>(value);
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
