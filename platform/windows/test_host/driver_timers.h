// The time-outs of the probe driver's requests: on the test clock while one lives, else real.
#pragma once

#include "platform/probe_driver/probe_driver.h"

namespace test_host {

probe_driver::DriverTimers& Timers();

}  // namespace test_host
