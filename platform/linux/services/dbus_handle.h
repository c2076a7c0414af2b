// The owners of what the message bus library hands out.
#pragma once

#include <systemd/sd-bus.h>

#include <memory>

namespace linux_host {

// Ends the connection too; what is still queued for the other end is dropped.
struct DBusCloser {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using DBusHandle = std::unique_ptr<sd_bus, DBusCloser>;

struct MessageReleaser {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using MessageHandle = std::unique_ptr<sd_bus_message, MessageReleaser>;

// A connection by one of the library's calls that open one. Null when there is no such bus.
using DBusOpener = int (*)(sd_bus**);
inline DBusHandle OpenDBus(DBusOpener open) {
  sd_bus* bus = nullptr;
  return DBusHandle(open(&bus) < 0 ? nullptr : bus);
}

}  // namespace linux_host
