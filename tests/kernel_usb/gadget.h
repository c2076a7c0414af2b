// A USB device that the kernel plays itself, through its gadget framework.
#pragma once

#include <string>
#include <vector>

namespace kernel_usb {

// Present while it is plugged; one at a time. Needs root, configfs, and the modules dummy_hcd and
// libcomposite; throws std::runtime_error when the kernel does not do as it is asked.
class Gadget {
 public:
  // "SourceSink", "Loopback" or "hid", an interface each, in this order.
  Gadget(const std::string& product_id, const std::vector<std::string>& functions);
  ~Gadget();
  Gadget(const Gadget&) = delete;
  Gadget& operator=(const Gadget&) = delete;

  void Plug();
  void Unplug();

  // The kernel's folder of the plugged device, with a slash at its end; empty until it has one.
  std::string SystemFolder() const;
  std::string Node() const;
  // The host's side is done with it, too.
  bool IsConfigured() const;

 private:
  std::vector<std::string> functions_;
  std::string product_id_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);

}  // namespace kernel_usb
