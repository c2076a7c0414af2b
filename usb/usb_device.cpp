#include "usb/usb_device.h"

#include <algorithm>
#include <stdexcept>

#include "support/paths.h"
#include "usb/device_enumeration.h"

namespace {

// Alternate setting that no interface has, so that nothing is selected.
constexpr std::uint8_t kUnknownSetting = 0xFF;

}  // namespace

CTzUSBDevice::CTzUSBDevice(const GUID& interface_class, bool open_now)
    : interface_guid_(interface_class) {
  if (open_now) Open(0);
}

CTzUSBDevice::~CTzUSBDevice() {
  try {
    Close();
  } catch (const std::runtime_error&) {  // NOLINT: see the declaration
  }
}

std::uint8_t CTzUSBDevice::DeviceCount() {
  device_count_ = static_cast<std::uint8_t>(CountDevices(interface_guid_));
  return device_count_;
}

std::vector<std::string> CTzUSBDevice::PresentPaths() const {
  std::vector<std::string> paths;
  for (const std::wstring& path : DevicePaths(interface_guid_)) {
    paths.push_back(NarrowText(path).substr(0, kPathBytes - 1));
  }
  return paths;
}

bool CTzUSBDevice::Open(std::uint8_t index) {
  if (IsOpen()) Close();
  ClearIdentity();
  if (!OpenDriver(index)) {
    device_index_ = 0;
    return false;
  }
  device_index_ = index;
  ReadDeviceDescriptor();
  ReadLanguage();
  ReadString(device_descriptor_[kManufacturerIndex], manufacturer_);
  ReadString(device_descriptor_[kProductIndex], product_);
  ReadString(device_descriptor_[kSerialNumberIndex], serial_number_);
  ReadDriverFacts();
  for (std::uint8_t i = 0; i < configuration_count_ && i < kMaxConfigurations; ++i) {
    ReadConfiguration(i);
  }
  CreateControlEndPoint();
  return UseFirstConfiguration();
}

bool CTzUSBDevice::OpenDriver(std::uint8_t index) {
  if (index >= DeviceCount()) return false;
  const std::optional<std::wstring> path = DevicePathAt(interface_guid_, index);
  if (!path) return false;
  const std::string narrow = NarrowText(*path);
  device_path_ = {};
  narrow.copy(device_path_.data(), kPathBytes - 1);
  // The path tells attachments apart: a device whose path does not fit is shown, but not opened.
  if (narrow.size() >= kPathBytes) return false;
  driver_.Open(
      CreateFileW(path->c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr),
      device_path_.data());
  return IsOpen();
}

void CTzUSBDevice::Close() {
  // The handle first: that ends what is in flight, and the records that the driver writes into go
  // with the endpoints.
  const bool closed = driver_.Close();
  ClearEndPointReferences();
  control_endpoint_.reset();
  for (auto& configuration : configurations_) configuration.reset();
  for (auto& descriptor : configuration_descriptors_) descriptor.clear();
  device_descriptor_ = {};
  device_count_ = 0;
  interface_count_ = 0;
  setting_count_ = 0;
  configuration_count_ = 0;
  if (!closed) throw std::runtime_error("Failed to close handle to driver.");
}

// What the last device told must not pass for the next one's, which may tell less.
void CTzUSBDevice::ClearIdentity() {
  language_id_ = 0;
  bus_status_ = 0;
  driver_status_ = 0;
  manufacturer_ = {};
  product_ = {};
  serial_number_ = {};
  bcd_usb_ = 0;
  vendor_id_ = 0;
  product_id_ = 0;
  device_class_ = 0;
  device_subclass_ = 0;
  device_protocol_ = 0;
  control_packet_size_ = 0;
  bcd_device_ = 0;
}

void CTzUSBDevice::CreateControlEndPoint() {
  control_endpoint_ = std::make_unique<CTzControlEndPoint>(driver_, nullptr);
  control_endpoint_->DescribeEndpointZero(control_packet_size_);
}

bool CTzUSBDevice::UseFirstConfiguration() {
  configuration_index_ = 0;
  const ConfigurationRecord* const configuration = configurations_[0].get();
  if (!configuration || configuration->interfaces.empty()) return false;
  configuration_value_ = configuration->configuration_value;
  configuration_attributes_ = configuration->attributes;
  max_power_ = configuration->max_power;
  interface_count_ = configuration->interface_count;
  setting_count_ = static_cast<std::uint8_t>(configuration->interfaces.size());
  interface_number_ = configuration->interfaces.front().interface_number;
  SelectAlternateSetting(static_cast<std::uint8_t>(
      QueryNumber(driver_request::kAlternateSetting, sizeof(std::uint8_t), kUnknownSetting)));
  return true;
}

void CTzUSBDevice::SelectAlternateSetting(std::uint8_t alternate_setting) {
  std::vector<InterfaceRecord>& settings = configurations_[configuration_index_]->interfaces;
  const auto found =
      std::ranges::find(settings, alternate_setting, &InterfaceRecord::alternate_setting);
  if (found == settings.end()) return;
  setting_index_ = static_cast<std::uint8_t>(found - settings.begin());
  interface_class_ = found->interface_class;
  interface_subclass_ = found->interface_subclass;
  interface_protocol_ = found->interface_protocol;
  if (configuration_count_ > 0 && interface_count_ > 0) RebuildEndPointList(*found);
}

void CTzUSBDevice::RebuildEndPointList(InterfaceRecord& setting) {
  ClearEndPointReferences();
  current_setting_ = &setting;
  setting.endpoints[0] = control_endpoint_.get();
  for (std::size_t slot = 1; slot <= setting.endpoint_count; ++slot) {
    CTzUSBEndPoint* const endpoint = setting.endpoints[slot];
    if (!endpoint) continue;
    if (driver_version_ < driver_request::kFirstDirectVersion) endpoint->SetDirect(false);
    NoteFirstOfKind(endpoint);
  }
}

void CTzUSBDevice::ClearEndPointReferences() {
  current_setting_ = nullptr;
  first_isoc_in_ = nullptr;
  first_isoc_out_ = nullptr;
  first_bulk_in_ = nullptr;
  first_bulk_out_ = nullptr;
  first_interrupt_in_ = nullptr;
  first_interrupt_out_ = nullptr;
}

void CTzUSBDevice::NoteFirstOfKind(CTzUSBEndPoint* endpoint) {
  CTzUSBEndPoint** first = nullptr;
  switch (endpoint->Attributes()) {
    case usb_standard::kIsochronous:
      first = endpoint->IsIn() ? &first_isoc_in_ : &first_isoc_out_;
      break;
    case usb_standard::kBulk:
      first = endpoint->IsIn() ? &first_bulk_in_ : &first_bulk_out_;
      break;
    case usb_standard::kInterrupt:
      first = endpoint->IsIn() ? &first_interrupt_in_ : &first_interrupt_out_;
      break;
    default:
      return;
  }
  if (!*first) *first = endpoint;
}

std::uint8_t CTzUSBDevice::EndPointCount() const {
  if (!IsOpen() || !current_setting_) return 0;
  return static_cast<std::uint8_t>(current_setting_->endpoint_count + 1);
}

CTzUSBEndPoint* CTzUSBDevice::EndPoint(std::uint8_t place) const {
  return place < EndPointCount() ? current_setting_->endpoints[place] : nullptr;
}
