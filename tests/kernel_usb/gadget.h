// A USB device that the kernel plays itself, through its gadget framework.
#pragma once

#include <string>
#include <vector>

namespace kernel_usb {

// Present while it is plugged; one at a time. Needs root, configfs, and the modules dummy_hcd and
// libcomposite; throws std::runtime_error when the kernel does not do as it is asked.
class Gadget {
 public:
  // "SourceSink", "Loopback" or "hid", an interface each, in this order; those of a second
  // configuration, which the host's side prefers to one of a vendor's own interfaces.
  Gadget(const std::string& product_id, const std::vector<std::string>& functions,
         const std::vector<std::string>& of_second = {});
  ~Gadget();
  Gadget(const Gadget&) = delete;
  Gadget& operator=(const Gadget&) = delete;

  void Plug();
  void Unplug();

  // The kernel's folder of the plugged device, with a slash at its end; empty until it has one.
  std::string SystemFolder() const;
  std::string Node() const;
  // The value of the configuration that the host's side has chosen, when it is done with it, too.
  std::string Configuration() const;

 private:
  void Add(const std::string& function, const std::string& configuration);

  std::vector<std::string> links_;
  std::string product_id_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);

}  // namespace kernel_usb
