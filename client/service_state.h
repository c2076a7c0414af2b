// Whether the service runs, found out without starting it, as every call would.
#pragma once

#include "client/installation.h"

namespace client {

enum class ServiceState { kStopped, kStarting, kRunning, kRunningElsewhere, kStopping };

// kRunningElsewhere: a process of another account serves, which may not be this one's to use.
// A plain server that another account has started may be taken for none.
ServiceState FindServiceState(const Installation& installation);

}  // namespace client
