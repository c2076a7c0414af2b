// One USB device of the probe driver: counting, opening, its descriptors, identity and endpoints.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "usb/configuration_record.h"
#include "usb/driver_file.h"
#include "usb/request_record.h"
#include "usb/usb_endpoint.h"

// Not locked: one thread at a time. Several objects may have the same device open. The object does
// not notice that its device has left; transfers then fail with system errors.
class CTzUSBDevice {
 public:
  // For the devices of the interface class `interface_class`; `open_now` opens device 0, and a
  // failure of that is seen by IsOpen().
  CTzUSBDevice(const GUID& interface_class, bool open_now);
  // Closes. A handle that the system refuses to close is left behind: nothing could handle it here.
  ~CTzUSBDevice();
  CTzUSBDevice(const CTzUSBDevice&) = delete;
  CTzUSBDevice& operator=(const CTzUSBDevice&) = delete;

  // The number of present devices of the class, by its low 8 bits.
  std::uint8_t DeviceCount();

  // The paths of the present devices of the class, as DevicePath would tell each, in the system's
  // order. No device is opened.
  std::vector<std::string> PresentPaths() const;

  // Opens the device at `index` (0-based, in the system's order), reads its descriptors and builds
  // its endpoints, after closing the one that is open. False when there is no such device, it
  // cannot be opened or its path has more than 255 characters: the object is then closed. False
  // also when it reports no usable configuration: the handle then stays open until the next Open or
  // Close, without endpoints. Throws what Close throws.
  bool Open(std::uint8_t index);

  // Closes the driver handle and releases all endpoints. Throws std::runtime_error "Failed to close
  // handle to driver." when the system refuses to close the handle; the object is closed all the
  // same. Closing a closed device only clears.
  void Close();

  // Asks the device itself for its descriptor. False when it does not answer: one that has left
  // does not, even when the same device has come back under the same path.
  bool Answers();

  bool IsOpen() const { return driver_.IsOpen(); }

  // Of this object's endpoints, as DriverFile counts them.
  std::uint64_t BytesMoved() const { return driver_.BytesMoved(); }
  void ShowBytesMoved(std::uint64_t* place) { driver_.ShowBytesMoved(place); }

  // The control endpoint and the data endpoints of the current setting: 0 when closed or without a
  // setting, at most 16.
  std::uint8_t EndPointCount() const;

  // The endpoint at a place below EndPointCount(): 0 is the control endpoint, then those of the
  // descriptors in their order. Null for an empty place. Owned by the device, until it is closed.
  CTzUSBEndPoint* EndPoint(std::uint8_t place) const;

  // Null when closed.
  CTzControlEndPoint* ControlEndPoint() const { return control_endpoint_.get(); }

  // The first endpoint of its kind in the current setting, or null.
  CTzUSBEndPoint* FirstIsocIn() const { return first_isoc_in_; }
  CTzUSBEndPoint* FirstIsocOut() const { return first_isoc_out_; }
  CTzUSBEndPoint* FirstBulkIn() const { return first_bulk_in_; }
  CTzUSBEndPoint* FirstBulkOut() const { return first_bulk_out_; }
  CTzUSBEndPoint* FirstInterruptIn() const { return first_interrupt_in_; }
  CTzUSBEndPoint* FirstInterruptOut() const { return first_interrupt_out_; }

  // Texts are NUL-terminated and live in this object, in place; what could not be read is empty.
  const wchar_t* Manufacturer() const { return manufacturer_.data(); }
  const wchar_t* Product() const { return product_.data(); }
  const wchar_t* SerialNumber() const { return serial_number_.data(); }
  // The device-interface path; after a failed open that of the device that could not be opened. An
  // index at which there is no device leaves the path that was there.
  const char* DevicePath() const { return device_path_.data(); }

  // Numbers are 0 when they could not be read.
  std::uint16_t VendorId() const { return vendor_id_; }
  std::uint16_t ProductId() const { return product_id_; }
  std::uint16_t LanguageId() const { return language_id_; }
  std::uint16_t UsbVersion() const { return bcd_usb_; }
  std::uint16_t DeviceVersion() const { return bcd_device_; }
  std::uint32_t DriverVersion() const { return driver_version_; }
  std::uint32_t InterfaceVersion() const { return interface_version_; }
  std::uint8_t UsbAddress() const { return usb_address_; }
  bool IsHighSpeed() const { return high_speed_; }
  const char* DriverText() const { return driver_text_.data(); }
  const char* SecondDriverText() const { return second_driver_text_.data(); }
  // Status words of the last descriptor request.
  std::uint32_t BusStatus() const { return bus_status_; }
  std::uint32_t DriverStatus() const { return driver_status_; }

 private:
  static constexpr std::size_t kMaxConfigurations = 2;
  static constexpr std::size_t kStringUnits = 256;
  static constexpr std::size_t kPathBytes = 256;  // with the terminator

  // Offsets of the string indexes in the device descriptor.
  static constexpr std::size_t kManufacturerIndex = 14;
  static constexpr std::size_t kProductIndex = 15;
  static constexpr std::size_t kSerialNumberIndex = 16;

  using DeviceString = std::array<wchar_t, kStringUnits>;
  // One more than the driver's text, so that a full one is terminated.
  using DriverTextField = std::array<char, driver_request::kTextBytes + 1>;

  bool OpenDriver(std::uint8_t index);
  void ClearIdentity();
  void ReadDeviceDescriptor();
  void ReadLanguage();
  void ReadString(std::uint8_t string_index, DeviceString& text);
  void ReadDriverFacts();
  void ReadConfiguration(std::uint8_t index);
  void CreateControlEndPoint();
  bool UseFirstConfiguration();
  void SelectAlternateSetting(std::uint8_t alternate_setting);
  void RebuildEndPointList(InterfaceRecord& setting);
  void ClearEndPointReferences();
  void NoteFirstOfKind(CTzUSBEndPoint* endpoint);

  // The bytes that the device sent of a descriptor, at most `length`; empty on failure.
  std::vector<std::uint8_t> ReadDescriptor(std::uint8_t type, std::uint8_t index,
                                           std::uint16_t language, std::uint16_t length);
  // False unless the driver answers exactly the bytes asked for.
  bool Query(std::uint32_t code, std::span<std::uint8_t> answer);
  std::uint32_t QueryNumber(std::uint32_t code, std::uint32_t bytes, std::uint32_t otherwise);

  InterfaceRecord* current_setting_ = nullptr;  // its endpoint table is the endpoint list
  std::unique_ptr<CTzControlEndPoint> control_endpoint_;
  CTzUSBEndPoint* first_isoc_in_ = nullptr;
  CTzUSBEndPoint* first_isoc_out_ = nullptr;
  CTzUSBEndPoint* first_bulk_in_ = nullptr;
  CTzUSBEndPoint* first_bulk_out_ = nullptr;
  CTzUSBEndPoint* first_interrupt_in_ = nullptr;
  CTzUSBEndPoint* first_interrupt_out_ = nullptr;
  std::uint16_t language_id_ = 0;
  std::uint32_t bus_status_ = 0;
  std::uint32_t driver_status_ = 0;
  std::uint32_t driver_version_ = 0;
  std::uint32_t interface_version_ = 0;
  DriverTextField driver_text_{};
  DriverTextField second_driver_text_{};
  DeviceString manufacturer_{};
  DeviceString product_{};
  DeviceString serial_number_{};
  std::array<char, kPathBytes> device_path_{};
  std::uint16_t bcd_usb_ = 0;
  std::uint16_t vendor_id_ = 0;
  std::uint16_t product_id_ = 0;
  std::uint8_t usb_address_ = 0;
  std::uint8_t device_class_ = 0;
  std::uint8_t device_subclass_ = 0;
  std::uint8_t device_protocol_ = 0;
  std::uint8_t control_packet_size_ = 0;  // bytes
  std::uint16_t bcd_device_ = 0;
  std::uint8_t configuration_value_ = 0;
  std::uint8_t configuration_attributes_ = 0;
  std::uint8_t max_power_ = 0;
  std::uint8_t interface_class_ = 0;
  std::uint8_t interface_subclass_ = 0;
  std::uint8_t interface_protocol_ = 0;
  bool high_speed_ = false;
  std::uint32_t bytes_returned_ = 0;  // by the last driver query
  std::array<std::uint8_t, usb_standard::kDeviceDescriptorBytes> device_descriptor_{};
  std::array<std::vector<std::uint8_t>, kMaxConfigurations> configuration_descriptors_;
  std::array<std::unique_ptr<ConfigurationRecord>, kMaxConfigurations> configurations_;
  DriverFile driver_;
  GUID interface_guid_;
  std::uint8_t device_count_ = 0;
  std::uint8_t interface_count_ = 0;
  std::uint8_t setting_count_ = 0;
  std::uint8_t configuration_count_ = 0;
  std::uint8_t device_index_ = 0;
  std::uint8_t configuration_index_ = 0;
  std::uint8_t interface_number_ = 0;
  std::uint8_t setting_index_ = 0;
};
