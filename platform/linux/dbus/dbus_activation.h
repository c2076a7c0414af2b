// Having a message bus start the service that serves a class.
#pragma once

#include <cstdint>

#include "platform/linux/automation/interface_plan.h"

namespace linux_host {

enum class DBusAnswer {
  kRunning,  // the service has its name on the bus
  kLate,     // it may still be starting
  kRefused,  // no bus knows it, or it could not be started
};

// Asks the system bus for root; for others the session's bus, and then the system bus, on which the
// machine's service is. Waits for the answer, for at most that long.
DBusAnswer StartServiceOverDBus(const ClassPlan& plan, std::uint64_t limit_us);

}  // namespace linux_host
