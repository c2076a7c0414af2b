#include "platform/linux/dbus/dbus_activation.h"

#include <systemd/sd-bus.h>

#include "platform/linux/dbus/dbus_link.h"
#include "platform/linux/dbus/exported_class.h"
#include "platform/linux/services/registration_files.h"

namespace linux_host {
namespace {

constexpr char kDBusTimedOut[] = "org.freedesktop.DBus.Error.TimedOut";

DBusAnswer Ask(DBusOpener open, const ClassPlan& plan, std::uint64_t limit_us) {
  const DBusHandle bus = OpenDBus(open);
  if (!bus) return DBusAnswer::kRefused;
  sd_bus_message* created = nullptr;
  int result = sd_bus_message_new_method_call(bus.get(), &created, "org.freedesktop.DBus",
                                              "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                              "StartServiceByName");
  const MessageHandle call(created);
  if (result >= 0) result = sd_bus_message_append(created, "su", plan.bus_name().c_str(), 0u);
  sd_bus_error error = SD_BUS_ERROR_NULL;
  if (result >= 0) result = sd_bus_call(bus.get(), created, limit_us, &error, nullptr);
  // A bus's own patience may end before the probes have their firmware.
  const bool is_late = result < 0 && (sd_bus_error_has_name(&error, kDBusTimedOut) ||
                                      sd_bus_error_has_name(&error, SD_BUS_ERROR_NO_REPLY));
  sd_bus_error_free(&error);
  if (result >= 0) return DBusAnswer::kRunning;
  return is_late ? DBusAnswer::kLate : DBusAnswer::kRefused;
}

}  // namespace

DBusAnswer StartServiceOverDBus(const ClassPlan& plan, std::uint64_t limit_us) {
  if (!ServicesAreTheMachines()) {
    const DBusAnswer answer = Ask(&sd_bus_open_user, plan, limit_us);
    if (answer != DBusAnswer::kRefused) return answer;
  }
  return Ask(&sd_bus_open_system, plan, limit_us);
}

}  // namespace linux_host
