// Presents the devices of a USB bus in this process to the whole machine, through the virtual bus
// driver: they are listed under the probe driver's device-interface class, opened, and serve the
// probe driver's requests.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/probe_driver/probe_driver.h"
#include "platform/probe_driver/usb_bus.h"
#include "platform/windows/kernel_handle.h"
#include "platform/windows/system_timers.h"
#include "platform/windows/virtual_bus/bus_protocol.h"

namespace virtual_bus {

class VirtualBus : public probe_driver::UsbBusListener {
 public:
  // Becomes the listener of `bus`, which outlives it, and plugs in what is present. Throws
  // std::runtime_error when the driver is not installed or serves another process.
  explicit VirtualBus(probe_driver::UsbBus& bus);
  // Unplugs everything.
  ~VirtualBus() override;

  void OnDeviceArrived(const std::string& path) override { Plug(path); }
  void OnDeviceRemoved(const std::string& path) override { Unplug(path); }

 private:
  // A request of a client, as long as the driver waits for its completion.
  struct Request {
    std::uint64_t id = 0;
    std::uint64_t file = 0;
    std::vector<std::uint8_t> contents;
    probe_driver::DriverRequest driver_request;
  };

  // A place for the next message; several are pending at once.
  struct Reader {
    std::vector<std::uint8_t> bytes;
    windows_host::KernelHandle event;
    OVERLAPPED operation{};
  };

  void Plug(const std::string& path);
  void Unplug(const std::string& path);

  // The reading thread.
  void Run();
  bool Start(Reader& reader);
  void Handle(const Message& message, const std::uint8_t* contents, std::size_t carried);
  void Open(const Message& message);
  void Submit(const Message& message, const std::uint8_t* contents, std::size_t carried);
  bool Fetch(const Message& message, std::vector<std::uint8_t>& contents, std::size_t carried);
  void Cancel(std::uint64_t id);

  void OnCompleted(Request& request);
  void Complete(const Completion& completion, const std::uint8_t* output,
                const std::uint8_t* record);

  // One request to the driver, from any thread; false when it failed. `returned` receives the bytes
  // that it wrote to `output`.
  bool Call(std::uint32_t code, const std::vector<std::uint8_t>& input, void* output,
            std::size_t output_size, std::size_t& returned);

  probe_driver::UsbBus& bus_;
  windows_host::SystemTimers timers_;
  const windows_host::KernelHandle driver_;

  std::mutex
      devices_mutex_;  // held while devices are plugged and unplugged, so that all is in order
  std::map<std::string, std::uint32_t> numbers_;  // of the devices that are plugged in, by path
  std::uint32_t last_number_ = 0;

  std::mutex requests_mutex_;
  std::map<std::uint64_t, std::unique_ptr<Request>> in_flight_;
  // Let go by the reading thread: their functions may still run.
  std::vector<std::unique_ptr<Request>> completed_;

  // Only used by the reading thread. Null: the device had left when the client opened it.
  std::map<std::uint64_t, std::unique_ptr<probe_driver::ProbeDriver>> files_;
  std::vector<Reader> readers_;
  std::thread reading_thread_;
};

}  // namespace virtual_bus
