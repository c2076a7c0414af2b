// Plugs the probes of a bench into the kernel's virtual host controller (vhci_hcd) as they come,
// and out as they go.
#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "sim/bench.h"
#include "sim/server/host.h"
#include "sim/server/kernel_port.h"

namespace sim {

class KernelHub : public BenchServer, public probe_driver::UsbBusListener {
 public:
  // Plugs in what is there. `bench` outlives the hub, which is its listener. Throws
  // std::runtime_error when there is no such controller, or this account may not use it.
  explicit KernelHub(Bench& bench);
  ~KernelHub() override;

  void OnDeviceArrived(const std::string& path) override { Enqueue(true, path); }
  void OnDeviceRemoved(const std::string& path) override { Enqueue(false, path); }

 private:
  void Enqueue(bool arrived, const std::string& path);
  void Work();
  void Plug(const std::string& path);

  Bench& bench_;
  std::map<std::string, std::unique_ptr<KernelPort>> ports_;  // by path; of the working thread

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::pair<bool, std::string>> events_;
  bool ending_ = false;
  // A probe may leave within one of its own transfers, whose thread cannot take it off its port.
  std::thread thread_;
};

}  // namespace sim
