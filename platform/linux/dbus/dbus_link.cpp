#include "platform/linux/dbus/dbus_link.h"

#include "platform/linux/kernel/clock.h"

namespace linux_host {

std::uint64_t MonotonicMicroseconds() { return static_cast<std::uint64_t>(MonotonicNow()) / 1'000; }

void DBusLink::AppendDescriptor(std::vector<pollfd>& descriptors) const {
  std::uint64_t queued_replies = 0;
  sd_bus_get_n_queued_write(bus_.get(), &queued_replies);
  const int events = queued_replies > 0 ? POLLOUT : sd_bus_get_events(bus_.get());
  // A failure means that the connection has ended: nothing is asked for and the hang-up shows.
  descriptors.push_back(
      {sd_bus_get_fd(bus_.get()), static_cast<short>(events < 0 ? 0 : events), 0});
}

std::uint64_t DBusLink::Deadline() const {
  std::uint64_t deadline = UINT64_MAX;
  return sd_bus_get_timeout(bus_.get(), &deadline) < 0 ? UINT64_MAX : deadline;
}

bool DBusLink::Process() {
  return sd_bus_process(bus_.get(), nullptr) >= 0 && sd_bus_is_open(bus_.get()) > 0;
}

bool DBusLink::HasQueued() const {
  std::uint64_t queued = 0;
  return sd_bus_get_n_queued_read(bus_.get(), &queued) >= 0 && queued > 0;
}

}  // namespace linux_host
