#include "platform/linux/usb/attachment.h"

#include <fcntl.h>
#include <libusb.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <utility>

#include "base/little_endian.h"
#include "platform/linux/kernel/file_descriptor.h"
#include "platform/linux/kernel/notices.h"
#include "platform/linux/usb/node_holders.h"
#include "platform/linux/usb/usb_errors.h"

namespace linux_host {
namespace {

constexpr std::size_t kDeviceDescriptorSize = 18;
constexpr std::size_t kConfigurationHeaderSize = 9;
constexpr std::size_t kConfigurationCount = 17;  // bNumConfigurations, in the device descriptor
constexpr std::size_t kTotalLength = 2;          // wTotalLength and
constexpr std::size_t kConfigurationValue = 5;   // bConfigurationValue, in a configuration's
constexpr std::size_t kInterfaceNumber = 2;      // bInterfaceNumber and
constexpr std::size_t kAlternateSetting = 3;     // bAlternateSetting, in an interface's
constexpr int kMaxInterfaces = 32;               // of a configuration, for the system
constexpr std::size_t kEndpointAddress = 2;      // bEndpointAddress and
constexpr std::size_t kEndpointAttributes = 3;   // bmAttributes, in an endpoint's

// A node begins with the system's copy of the device descriptor, in the byte order of the host.
static_assert(std::endian::native == std::endian::little);

std::vector<std::uint8_t> ReadAt(int fd, std::size_t at, std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  const ssize_t got = pread(fd, bytes.data(), size, static_cast<off_t>(at));
  if (got != static_cast<ssize_t>(size)) bytes.clear();
  return bytes;
}

std::string Hex4(std::uint16_t value) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (int shift = 12; shift >= 0; shift -= 4) text += kDigits[value >> shift & 15];
  return text;
}

std::string Decimal3(std::uint8_t value) {
  const std::string text = std::to_string(value);
  return std::string(3 - text.size(), '0') + text;
}

}  // namespace

Attachment::Attachment(libusb_context* context, libusb_device* device, const Place& place)
    : context_(context),
      device_(device ? libusb_ref_device(device) : nullptr),
      place_(place),
      node_("/dev/bus/usb/" + Decimal3(place.bus) + "/" + Decimal3(place.address)),
      path_(node_ + "#" + std::to_string(place.count)) {}

Attachment::~Attachment() {
  if (handle_) CloseHandle();
  if (device_) libusb_unref_device(device_);
}

int Attachment::AccessError() const {
  return faccessat(AT_FDCWD, node_.c_str(), R_OK | W_OK, AT_EACCESS) == 0 ? 0 : errno;
}

bool Attachment::Open() {
  const std::lock_guard lock(mutex_);
  if (gone()) return false;
  if (users_ == 0) {
    int error = OpenHandle();
    if (error == 0 && device_descriptor_.empty()) error = ReadDescriptors();
    if (error == 0) error = Configure();
    if (error == 0) error = ClaimInterfaces();
    if (error != 0) {
      Explain(error);
      CloseHandle();
      return false;
    }
    ReadFacts();
    told_.clear();
  }
  ++users_;
  return true;
}

void Attachment::Close() {
  const std::lock_guard lock(mutex_);
  if (--users_ == 0) CloseHandle();
}

int Attachment::OpenHandle() {
  if (device_) return libusb_open(device_, &handle_);
  node_fd_ = open(node_.c_str(), O_RDWR | O_CLOEXEC);
  if (node_fd_ >= 0) return libusb_wrap_sys_device(context_, node_fd_, &handle_);
  return errno == EACCES || errno == EPERM ? LIBUSB_ERROR_ACCESS : LIBUSB_ERROR_NO_DEVICE;
}

int Attachment::ReadDescriptors() {
  const FileDescriptor node(open(node_.c_str(), O_RDONLY | O_CLOEXEC));
  device_descriptor_ = ReadAt(node.get(), 0, kDeviceDescriptorSize);
  if (device_descriptor_.empty()) return LIBUSB_ERROR_IO;
  std::size_t at = kDeviceDescriptorSize;
  for (int i = 0; i < device_descriptor_[kConfigurationCount]; ++i) {
    const auto header = ReadAt(node.get(), at, kConfigurationHeaderSize);
    const std::size_t total = header.empty() ? 0 : LoadLe16(&header[kTotalLength]);
    auto configuration = ReadAt(node.get(), at, total);
    if (configuration.size() < kConfigurationHeaderSize) break;
    configurations_.push_back(std::move(configuration));
    at += total;
  }
  if (!configurations_.empty()) TakeStock(configurations_.front());
  return 0;
}

void Attachment::TakeStock(std::span<const std::uint8_t> configuration) {
  bool first_setting = true;
  for (; configuration.size() > 1 && configuration[0] > 1;
       configuration = configuration.subspan(configuration[0])) {
    if (configuration[0] > configuration.size()) return;
    const std::uint8_t type = configuration[1];
    if (type == LIBUSB_DT_INTERFACE && configuration[0] > kAlternateSetting) {
      interfaces_.insert(configuration[kInterfaceNumber]);
      first_setting = configuration[kAlternateSetting] == 0;
    } else if (type == LIBUSB_DT_ENDPOINT && configuration[0] > kEndpointAttributes &&
               first_setting) {
      const int kind = configuration[kEndpointAttributes] & LIBUSB_TRANSFER_TYPE_MASK;
      const std::uint8_t address = configuration[kEndpointAddress];
      if (kind == LIBUSB_ENDPOINT_TRANSFER_TYPE_INTERRUPT) interrupt_endpoints_.insert(address);
    }
  }
}

// Clients of the driver use a device's first configuration. The system may have chosen another one,
// or none when its power did not suffice.
int Attachment::Configure() {
  if (configurations_.empty()) return 0;
  int active = 0;
  const int error = libusb_get_configuration(handle_, &active);
  const int wanted = configurations_.front()[kConfigurationValue];
  if (error != 0 || active == wanted) return error;
  // Refused while a driver of the system holds an interface of the active one.
  for (int number = 0; number < kMaxInterfaces; ++number) {
    libusb_detach_kernel_driver(handle_, number);
  }
  return libusb_set_configuration(handle_, wanted);
}

int Attachment::ClaimInterfaces() {
  // A driver of the system that holds an interface gives way, and gets it back when it is released.
  libusb_set_auto_detach_kernel_driver(handle_, 1);
  for (const int number : interfaces_) {
    const int error = libusb_claim_interface(handle_, number);
    if (error != 0) return error;
    claimed_.push_back(number);
  }
  return 0;
}

void Attachment::ReadFacts() {
  const libusb_version& version = *libusb_get_version();
  facts_.text = "libusb " + std::to_string(version.major) + "." + std::to_string(version.minor) +
                "." + std::to_string(version.micro);
  facts_.usb_address = place_.address;
  // Claiming has set every interface to its first setting.
  facts_.alternate_setting = 0;
  const int speed = libusb_get_device_speed(libusb_get_device(handle_));
  facts_.speed = speed >= LIBUSB_SPEED_LOW ? static_cast<std::uint32_t>(speed - 1) : 0;
}

void Attachment::CloseHandle() {
  for (const int number : std::exchange(claimed_, {})) libusb_release_interface(handle_, number);
  if (handle_) libusb_close(std::exchange(handle_, nullptr));
  if (node_fd_ >= 0) close(std::exchange(node_fd_, -1));
}

void Attachment::Explain(int error) {
  if (error == LIBUSB_ERROR_NO_DEVICE) return;  // its removal is told
  std::string reason = ErrorOfCall(error).reason;
  if (error == LIBUSB_ERROR_BUSY) {
    const std::string holders = NodeHolders(node_);
    // A confined service does not see what programs of other accounts have open.
    reason += holders.empty() ? " (sudo fuser -v " + node_ + " names it)" : ": " + holders;
  }
  if (std::exchange(told_, reason) == reason) return;
  WriteJournal(LOG_WARNING, "TzWirefoxService",
               "Probe " + node_ + " (" + Hex4(place_.ids.first) + ":" + Hex4(place_.ids.second) +
                   ") cannot be opened: " + reason + ".");
}

std::span<const std::uint8_t> Attachment::DescriptorCopy(std::uint8_t type,
                                                         std::uint8_t index) const {
  if (type == LIBUSB_DT_DEVICE && index == 0) return device_descriptor_;
  if (type == LIBUSB_DT_CONFIG && index < configurations_.size()) return configurations_[index];
  return {};
}

bool Attachment::IsInterrupt(std::uint8_t endpoint) const {
  return interrupt_endpoints_.contains(endpoint);
}

}  // namespace linux_host
