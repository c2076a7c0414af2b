// One attachment of a probe to the machine, and the system's handle on it while it is in use.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/usb/probe_ids.h"
#include "platform/probe_driver/usb_bus.h"

struct libusb_context;
struct libusb_device;
struct libusb_device_handle;

namespace linux_host {

// Any thread. The system lets one handle claim an interface, so all users of an attachment share
// one: it is opened for the first and closed after the last of them.
class Attachment {
 public:
  // Where the system has the device. `count` tells this attachment from an earlier one that had the
  // same place.
  struct Place {
    std::uint8_t bus = 0;
    std::uint8_t address = 0;
    UsbIds ids;
    std::uint64_t count = 0;
  };

  // `device` is kept alive; it is null when `context`, which outlives the attachment, does not list
  // the devices of the machine.
  Attachment(libusb_context* context, libusb_device* device, const Place& place);
  ~Attachment();
  Attachment(const Attachment&) = delete;
  Attachment& operator=(const Attachment&) = delete;

  // "/dev/bus/usb/BBB/DDD#COUNT": the system's node for as long as it is attached, and never the
  // same again.
  const std::string& path() const { return path_; }
  const std::string& node() const { return node_; }
  libusb_device* device() const { return device_; }
  const Place& place() const { return place_; }

  // 0, or the errno with which this account may not open the node (yet).
  int AccessError() const;

  // Opens the device for one more user: claims its interfaces, takes them from kernel drivers. Says
  // in the journal why it cannot, once as long as the reason is the same. Every true is followed by
  // one Close.
  bool Open();
  void Close();

  // While open.
  libusb_device_handle* handle() const { return handle_; }
  const probe_driver::DriverFacts& facts() const { return facts_; }

  // The system's copy of a device or configuration descriptor, from the time of the first Open;
  // empty when it has none of that type and index.
  std::span<const std::uint8_t> DescriptorCopy(std::uint8_t type, std::uint8_t index) const;

  // Of an endpoint of the configuration's first settings.
  bool IsInterrupt(std::uint8_t endpoint) const;

  // The device has left.
  void MarkGone() { gone_.store(true, std::memory_order_release); }
  bool gone() const { return gone_.load(std::memory_order_acquire); }

 private:
  // Of libusb's: 0, or an error.
  int OpenHandle();
  int ReadDescriptors();
  void TakeStock(std::span<const std::uint8_t> configuration);
  int Configure();
  int ClaimInterfaces();
  void ReadFacts();
  void CloseHandle();
  void Explain(int error);

  libusb_context* const context_;
  libusb_device* const device_;
  const Place place_;
  const std::string node_;
  const std::string path_;
  std::atomic<bool> gone_ = false;

  std::mutex mutex_;  // of opening and closing
  int users_ = 0;
  libusb_device_handle* handle_ = nullptr;
  int node_fd_ = -1;  // open beside the handle
  std::vector<int> claimed_;
  std::string told_;  // the last reason given in the journal
  probe_driver::DriverFacts facts_;
  std::vector<std::uint8_t> device_descriptor_;
  std::vector<std::vector<std::uint8_t>> configurations_;
  std::set<int> interfaces_;
  std::set<std::uint8_t> interrupt_endpoints_;
};

}  // namespace linux_host
