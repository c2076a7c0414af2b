// CTzUSBDevice: what a device and its driver tell of themselves. Nothing that a device sends is
// trusted: a reply counts by the bytes that came, not by the lengths that it names.
#include <algorithm>

#include "base/little_endian.h"
#include "usb/driver_call.h"
#include "usb/timeouts.h"
#include "usb/usb_device.h"

namespace {

constexpr std::uint32_t kStringHeaderBytes = 2;
// First bytes of every descriptor: bLength and bDescriptorType.
constexpr std::uint16_t kDescriptorHeaderBytes = 2;

}  // namespace

std::vector<std::uint8_t> CTzUSBDevice::ReadDescriptor(std::uint8_t type, std::uint8_t index,
                                                       std::uint16_t language,
                                                       std::uint16_t length) {
  std::vector<std::uint8_t> record(request_record::kHeaderBytes + length);
  std::uint8_t* const bytes = record.data();
  bytes[request_record::kRequestType] = usb_standard::kDeviceToHost;
  bytes[request_record::kRequest] = usb_standard::kGetDescriptor;
  StoreLe16(bytes + request_record::kValue, static_cast<std::uint16_t>(type << 8 | index));
  StoreLe16(bytes + request_record::kIndex, language);
  StoreLe16(bytes + request_record::kLength, length);
  StoreLe32(bytes + request_record::kTimeout, kDescriptorTimeoutSeconds);
  StoreLe32(bytes + request_record::kPayloadOffset, request_record::kHeaderBytes);
  StoreLe32(bytes + request_record::kPayloadLength, length);

  const bool read =
      CallDriver(driver_, driver_request::kControlTransfer, record, record, bytes_returned_);
  bus_status_ = LoadLe32(bytes + request_record::kBusStatus);
  driver_status_ = LoadLe32(bytes + request_record::kDriverStatus);
  if (!read || bytes_returned_ <= request_record::kHeaderBytes) return {};
  record.resize(std::min<std::size_t>(bytes_returned_, record.size()));
  record.erase(record.begin(), record.begin() + request_record::kHeaderBytes);
  return record;
}

bool CTzUSBDevice::Answers() {
  return !ReadDescriptor(usb_standard::kDeviceDescriptor, 0, 0,
                         usb_standard::kDeviceDescriptorBytes)
              .empty();
}

void CTzUSBDevice::ReadDeviceDescriptor() {
  const std::vector<std::uint8_t> bytes =
      ReadDescriptor(usb_standard::kDeviceDescriptor, 0, 0, usb_standard::kDeviceDescriptorBytes);
  if (bytes.size() < usb_standard::kDeviceDescriptorBytes) return;
  std::ranges::copy(bytes, device_descriptor_.begin());
  bcd_usb_ = LoadLe16(&device_descriptor_[2]);
  device_class_ = device_descriptor_[4];
  device_subclass_ = device_descriptor_[5];
  device_protocol_ = device_descriptor_[6];
  control_packet_size_ = device_descriptor_[7];
  vendor_id_ = LoadLe16(&device_descriptor_[8]);
  product_id_ = LoadLe16(&device_descriptor_[10]);
  bcd_device_ = LoadLe16(&device_descriptor_[12]);
  configuration_count_ = device_descriptor_[17];
}

void CTzUSBDevice::ReadLanguage() {
  const std::vector<std::uint8_t> header =
      ReadDescriptor(usb_standard::kStringDescriptor, 0, 0, kDescriptorHeaderBytes);
  if (header.empty() || header[0] < kDescriptorHeaderBytes) return;
  const std::vector<std::uint8_t> list =
      ReadDescriptor(usb_standard::kStringDescriptor, 0, 0, header[0]);
  for (std::size_t at = kStringHeaderBytes; at + 2 <= list.size(); at += 2) {
    const std::uint16_t language = LoadLe16(&list[at]);
    if (at == kStringHeaderBytes || language == usb_standard::kEnglishUs) language_id_ = language;
  }
}

void CTzUSBDevice::ReadString(std::uint8_t string_index, DeviceString& text) {
  // Index 0 means that there is no such string (USB 2.0 section 9.6.1); as a descriptor it would be
  // the language list.
  if (string_index == 0) return;
  const std::vector<std::uint8_t> header = ReadDescriptor(
      usb_standard::kStringDescriptor, string_index, language_id_, kDescriptorHeaderBytes);
  if (header.empty() || header[0] < kDescriptorHeaderBytes) return;
  std::vector<std::uint8_t> bytes =
      ReadDescriptor(usb_standard::kStringDescriptor, string_index, language_id_, header[0]);
  if (bytes.size() <= kStringHeaderBytes || bytes[1] != usb_standard::kStringDescriptor) return;
  // Half a character at the end has its low byte only.
  bytes.push_back(0);
  text = {};
  for (std::size_t at = kStringHeaderBytes; at + 2 <= bytes.size(); at += 2) {
    text[(at - kStringHeaderBytes) / 2] = LoadLe16(&bytes[at]);
  }
}

void CTzUSBDevice::ReadDriverFacts() {
  usb_address_ =
      static_cast<std::uint8_t>(QueryNumber(driver_request::kUsbAddress, sizeof(std::uint8_t), 0));
  const auto read_text = [this](std::uint32_t code, DriverTextField& field) {
    std::array<std::uint8_t, driver_request::kTextBytes> answer{};
    field = {};
    if (Query(code, answer)) std::ranges::copy(answer, field.begin());
  };
  read_text(driver_request::kText, driver_text_);
  read_text(driver_request::kSecondText, second_driver_text_);
  driver_version_ = QueryNumber(driver_request::kDriverVersion, sizeof(std::uint32_t), 0);
  interface_version_ = QueryNumber(driver_request::kInterfaceVersion, sizeof(std::uint32_t), 0);
  high_speed_ = QueryNumber(driver_request::kBusSpeed, sizeof(std::uint32_t), 0) ==
                driver_request::kHighSpeed;
}

void CTzUSBDevice::ReadConfiguration(std::uint8_t index) {
  const std::vector<std::uint8_t> header =
      ReadDescriptor(usb_standard::kConfigurationDescriptor, index, 0,
                     usb_standard::kConfigurationDescriptorBytes);
  if (header.size() < usb_standard::kConfigurationDescriptorBytes) return;
  const std::uint16_t total_length = LoadLe16(&header[2]);
  std::vector<std::uint8_t> bytes =
      ReadDescriptor(usb_standard::kConfigurationDescriptor, index, 0, total_length);
  if (bytes.size() < usb_standard::kConfigurationDescriptorBytes) return;
  configurations_[index] = BuildConfiguration(bytes, driver_);
  configuration_descriptors_[index] = std::move(bytes);
}

bool CTzUSBDevice::Query(std::uint32_t code, std::span<std::uint8_t> answer) {
  return CallDriver(driver_, code, answer, answer, bytes_returned_) &&
         bytes_returned_ == answer.size();
}

std::uint32_t CTzUSBDevice::QueryNumber(std::uint32_t code, std::uint32_t bytes,
                                        std::uint32_t otherwise) {
  std::array<std::uint8_t, sizeof(std::uint32_t)> answer{};
  if (!Query(code, std::span(answer).first(bytes))) return otherwise;
  return LoadLe32(answer.data());
}
