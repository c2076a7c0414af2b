// The time-outs of the probe driver's requests, on the clock of the layer.
#pragma once

#include "platform/probe_driver/probe_driver.h"

namespace linux_host {

// One thread, started with the first timer, serves all. Timers that are stopped in time cost no
// system call. A timer that is pending when a test clock begins or ends may fire early or late.
probe_driver::DriverTimers& Timers();

}  // namespace linux_host
