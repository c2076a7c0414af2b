// The time-outs of the probe driver's requests, in real time.
#pragma once

#include "platform/probe_driver/probe_driver.h"

namespace windows_host {

class SystemTimers : public probe_driver::DriverTimers {
 public:
  std::uint64_t Start(std::uint32_t ms, std::function<void()> fire) override;
  void Stop(std::uint64_t id) override;
};

}  // namespace windows_host
