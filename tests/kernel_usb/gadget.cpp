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

Gadget::Gadget(const std::string& product_id, const std::vector<std::string>& functions,
               const std::vector<std::string>& of_second)
    : product_id_(product_id) {
  fs::create_directory(kGadget);
  WriteFile(kGadget / "idVendor", "0x0f0f");
  WriteFile(kGadget / "idProduct", "0x" + product_id);
  fs::create_directory(kGadget / "strings/0x409");
  WriteFile(kGadget / "strings/0x409/serialnumber", kSerialNumber);
  for (const std::string& function : functions) Add(function, "configs/c.1");
  for (const std::string& function : of_second) Add(function, "configs/c.2");
  Plug();
}

void Gadget::Add(const std::string& function, const std::string& configuration) {
  const fs::path folder = kGadget / "functions" / (function + ".0");
  fs::create_directory(kGadget / configuration);
  fs::create_directory(folder);
  if (function == "hid") {
    WriteFile(folder / "report_length", "8");
    WriteFile(folder / "report_desc", std::string(std::begin(kReports), std::end(kReports)));
  }
  links_.push_back(configuration + "/" + function + ".0");
  fs::create_directory_symlink(folder, kGadget / links_.back());
}

Gadget::~Gadget() {
  std::ofstream(kGadget / "UDC") << "\n";
  std::error_code ignored;
  for (const std::string& link : links_) fs::remove(kGadget / link, ignored);
  for (const std::string& link : links_) {
    fs::remove(kGadget / "functions" / fs::path(link).filename(), ignored);
  }
  for (const char* folder : {"configs/c.1", "configs/c.2", "strings/0x409", ""}) {
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

std::string Gadget::Configuration() const {
  const std::string folder = SystemFolder();
  const std::string value = folder.empty() ? "" : ReadFile(folder + "bConfigurationValue");
  return value.substr(0, value.find('\n'));
}

}  // namespace kernel_usb
