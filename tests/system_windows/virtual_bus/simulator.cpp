#include "tests/system_windows/virtual_bus/simulator.h"

#include "usb/device_enumeration.h"
#include "usb/driver_interface.h"

namespace system_windows {

bool DriverIsInstalled() {
  static const bool installed = Program("wfxvbus.exe", "install").Wait() == 0;
  return installed;
}

Simulator::Simulator(const std::string& bench) {
  std::string arguments;
  if (!bench.empty()) arguments = "--bench \"" + folder_.Write("bench.json", bench) + "\"";
  program_ = std::make_unique<Program>("wfxsim.exe", arguments);
  ready_ = program_->ReadLine() == R"(wfxsim: listening on \\.\pipe\wfxsim)";
}

int Simulator::Control(const std::string& command) {
  return Program("wfxsim.exe", "ctl " + command).Wait();
}

bool DevicesBecome(unsigned count) {
  return WaitUntil([&] { return CountDevices(kProbeDriverInterface) == count; });
}

}  // namespace system_windows
