// One connection that speaks the message bus protocol, as a thread's message loop serves it.
#pragma once

#include <poll.h>

#include <cstdint>
#include <vector>

#include "platform/linux/services/dbus_handle.h"

namespace linux_host {

// Now, on the clock of deadlines.
std::uint64_t MonotonicMicroseconds();

class DBusLink {
 public:
  explicit DBusLink(DBusHandle bus) : bus_(std::move(bus)) {}

  sd_bus* bus() const { return bus_.get(); }

  // What to wait for. While replies are queued nothing more is read: who does not take its replies
  // is not heard.
  void AppendDescriptor(std::vector<pollfd>& descriptors) const;

  // When Process wants to run although the descriptor is not ready; UINT64_MAX: never.
  std::uint64_t Deadline() const;

  // Serves at most one message. False when the connection has ended.
  bool Process();

  // Whether a message has been received that Process did not come to.
  bool HasQueued() const;

 private:
  DBusHandle bus_;
};

}  // namespace linux_host
