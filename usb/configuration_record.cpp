#include "usb/configuration_record.h"

#include <algorithm>

#include "base/little_endian.h"

namespace {

using Bytes = std::span<const std::uint8_t>;

// Offsets in every descriptor.
constexpr std::size_t kLength = 0;
constexpr std::size_t kType = 1;

// Descriptors of other types between an interface and its endpoints that are passed over.
constexpr int kMaxForeignDescriptors = 11;

std::unique_ptr<CTzUSBEndPoint> MakeEndPoint(DriverFile& driver, const std::uint8_t* descriptor) {
  // Compared whole: a descriptor with synchronisation or usage bits gives no object.
  switch (descriptor[3]) {
    case usb_standard::kControl:
      return std::make_unique<CTzControlEndPoint>(driver, descriptor);
    case usb_standard::kIsochronous:
      return std::make_unique<CTzIsocEndPoint>(driver, descriptor);
    case usb_standard::kBulk:
      return std::make_unique<CTzBulkEndPoint>(driver, descriptor);
    case usb_standard::kInterrupt:
      return std::make_unique<CTzInterruptEndPoint>(driver, descriptor);
    default:
      return nullptr;
  }
}

// Whether a whole descriptor of `least` bytes begins at `offset`.
bool HoldsDescriptor(Bytes bytes, std::size_t offset, std::uint32_t least) {
  return offset + 2 <= bytes.size() && bytes[offset + kLength] >= least &&
         offset + least <= bytes.size();
}

void AddEndPoint(InterfaceRecord& record, std::size_t slot, std::unique_ptr<CTzUSBEndPoint> made) {
  if (!made || slot >= InterfaceRecord::kSlots) return;
  record.endpoints[slot] = made.get();
  record.owned_endpoints.push_back(std::move(made));
}

// Fills the record's slots from the descriptors at `offset`, and returns how many bytes belong to
// the interface. That sum also counts a descriptor at which the walk stands still, once per slot:
// it decides which interface descriptors behind it are found.
std::size_t BuildEndPoints(InterfaceRecord& record, std::uint8_t endpoint_count, Bytes bytes,
                           std::size_t offset, DriverFile& driver) {
  std::size_t total = 0;
  int foreign = 0;
  std::size_t slot = 1;
  while (slot <= endpoint_count && HoldsDescriptor(bytes, offset, 1)) {
    const std::uint8_t length = bytes[offset + kLength];
    total += length;
    if (bytes[offset + kType] == usb_standard::kEndpointDescriptor) {
      if (HoldsDescriptor(bytes, offset, usb_standard::kEndpointDescriptorBytes)) {
        AddEndPoint(record, slot, MakeEndPoint(driver, bytes.data() + offset));
      }
      ++slot;
    } else if (++foreign > kMaxForeignDescriptors) {
      ++slot;
      continue;
    }
    offset += length;
  }
  return total;
}

// The record of the interface descriptor at `offset`, of which 9 bytes are there, and its size with
// all that belongs to it.
std::size_t BuildInterface(InterfaceRecord& record, Bytes bytes, std::size_t offset,
                           DriverFile& driver) {
  const std::uint8_t* const descriptor = bytes.data() + offset;
  record.length = descriptor[0];
  record.descriptor_type = descriptor[1];
  record.interface_number = descriptor[2];
  record.alternate_setting = descriptor[3];
  record.endpoint_count =
      std::min<std::uint8_t>(descriptor[4], static_cast<std::uint8_t>(InterfaceRecord::kSlots - 1));
  record.interface_class = descriptor[5];
  record.interface_subclass = descriptor[6];
  record.interface_protocol = descriptor[7];
  record.name_index = descriptor[8];
  const std::size_t total =
      record.length + BuildEndPoints(record, descriptor[4], bytes, offset + record.length, driver);
  record.total_length = static_cast<std::uint16_t>(total);
  return total;
}

void CountSettings(std::vector<InterfaceRecord>& interfaces) {
  for (InterfaceRecord& record : interfaces) {
    record.settings_of_interface = static_cast<std::uint8_t>(std::ranges::count(
        interfaces, record.interface_number, &InterfaceRecord::interface_number));
  }
}

}  // namespace

std::unique_ptr<ConfigurationRecord> BuildConfiguration(Bytes bytes, DriverFile& driver) {
  auto record = std::make_unique<ConfigurationRecord>();
  record->length = bytes[0];
  record->descriptor_type = bytes[1];
  record->total_length = LoadLe16(bytes.data() + 2);
  record->interface_count = bytes[4];
  record->configuration_value = bytes[5];
  record->name_index = bytes[6];
  record->attributes = bytes[7];
  record->max_power = bytes[8];

  record->interfaces.reserve(ConfigurationRecord::kMaxInterfaces);
  std::size_t offset = record->length;
  while (record->interfaces.size() < ConfigurationRecord::kMaxInterfaces &&
         HoldsDescriptor(bytes, offset, 1)) {
    if (bytes[offset + kType] == usb_standard::kInterfaceDescriptor &&
        HoldsDescriptor(bytes, offset, usb_standard::kInterfaceDescriptorBytes)) {
      InterfaceRecord& added = record->interfaces.emplace_back();
      offset += BuildInterface(added, bytes, offset, driver);
    } else {
      offset += bytes[offset + kLength];
    }
  }
  CountSettings(record->interfaces);
  return record;
}
