#include "tests/kernel_usb/gadget.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kernel_usb {
namespace fs = std::filesystem;
namespace {

const fs::path kGadget = "/sys/kernel/config/usb_gadget/wirefox";

constexpr char kSerialNumber[] = "KERNEL1";

// A vendor's reports of 8 bytes in and out.
constexpr unsigned char kReports[] = {0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x15, 0x00,
                                      0x26, 0xFF, 0x00, 0x75, 0x08, 0x95, 0x08, 0x09, 0x01,
                                      0x81, 0x02, 0x09, 0x01, 0x91, 0x02, 0xC0};

}  // namespace

std::string ReadFile(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text << std::flush;
  if (!file) throw std::runtime_error(path + ": refused");
}

Gadget::Gadget(const std::string& product_id, const std::vector<std::string>& functions)
    : product_id_(product_id) {
  fs::create_directory(kGadget);
  WriteFile(kGadget / "idVendor", "0x0f0f");
  WriteFile(kGadget / "idProduct", "0x" + product_id);
  for (const char* folder : {"strings/0x409", "configs/c.1"})
    fs::create_directory(kGadget / folder);
  WriteFile(kGadget / "strings/0x409/serialnumber", kSerialNumber);
  for (const std::string& function : functions) {
    const std::string name = function + ".0";
    const fs::path folder = kGadget / "functions" / name;
    fs::create_directory(folder);
    if (function == "hid") {
      WriteFile(folder / "report_length", "8");
      WriteFile(folder / "report_desc", std::string(std::begin(kReports), std::end(kReports)));
    }
    fs::create_directory_symlink(folder, kGadget / "configs/c.1" / name);
    functions_.push_back(name);
  }
  Plug();
}

Gadget::~Gadget() {
  std::ofstream(kGadget / "UDC") << "\n";
  std::error_code ignored;
  for (const std::string& name : functions_) fs::remove(kGadget / "configs/c.1" / name, ignored);
  for (const std::string& name : functions_) fs::remove(kGadget / "functions" / name, ignored);
  for (const char* folder : {"configs/c.1", "strings/0x409", ""}) {
    fs::remove(kGadget / folder, ignored);
  }
}

void Gadget::Plug() { WriteFile(kGadget / "UDC", "dummy_udc.0"); }
void Gadget::Unplug() { WriteFile(kGadget / "UDC", "\n"); }

std::string Gadget::SystemFolder() const {
  for (const auto& device : fs::directory_iterator("/sys/bus/usb/devices")) {
    if (ReadFile(device.path() / "serial") != std::string(kSerialNumber) + "\n") continue;
    if (ReadFile(device.path() / "idProduct") == product_id_ + "\n") return device.path() / "";
  }
  return {};
}

std::string Gadget::Node() const {
  const std::string event = ReadFile(SystemFolder() + "uevent");
  const std::size_t name = event.find("DEVNAME=") + 8;
  return "/dev/" + event.substr(name, event.find('\n', name) - name);
}

bool Gadget::IsConfigured() const {
  const std::string folder = SystemFolder();
  return !folder.empty() && ReadFile(folder + "bConfigurationValue") == "1\n";
}

}  // namespace kernel_usb
