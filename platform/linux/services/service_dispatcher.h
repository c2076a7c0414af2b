// Whether this process runs as a service that systemd has started.
#pragma once

namespace linux_host {

// Since the dispatcher was called. Any thread.
bool RunsAsService();

}  // namespace linux_host
