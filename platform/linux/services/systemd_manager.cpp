#include "platform/linux/services/systemd_manager.h"

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "platform/linux/services/dbus_handle.h"
#include "platform/linux/services/registration_files.h"

namespace linux_host {
namespace {

constexpr char kSystemd[] = "org.freedesktop.systemd1";

DBusHandle OpenSystemdsBus(bool of_machine = ServicesAreTheMachines()) {
  return OpenDBus(of_machine ? &sd_bus_open_system : &sd_bus_open_user);
}

// The manager's answer; null when it refuses, does not answer in the library's time, or is not
// there.
template <typename... Texts>
MessageHandle Call(sd_bus* bus, const char* method, const char* types, Texts... arguments) {
  sd_bus_message* answer = nullptr;
  if (bus) {
    sd_bus_call_method(bus, kSystemd, "/org/freedesktop/systemd1",
                       "org.freedesktop.systemd1.Manager", method, nullptr, &answer, types,
                       arguments...);
  }
  return MessageHandle(answer);
}

// Empty when it cannot be had.
std::string Property(sd_bus* bus, const char* unit, const char* name) {
  char* text = nullptr;
  sd_bus_get_property_string(bus, kSystemd, unit, "org.freedesktop.systemd1.Unit", name, nullptr,
                             &text);
  const std::unique_ptr<char, decltype(&std::free)> held(text, &std::free);
  return text ? text : "";
}

std::string UnitNameOf(const std::string& unit_file) {
  return unit_file.substr(unit_file.rfind('/') + 1);
}

// A unit that lies elsewhere can be linked into systemd's folders.
bool IsSameFile(const std::string& a, const std::string& b) {
  std::error_code ignored;
  return a == b || std::filesystem::equivalent(a, b, ignored);
}

}  // namespace

UnitState AskUnitState(const std::string& unit_file) {
  const bool is_own = unit_file.starts_with(FolderOf(RegistrationFolder::kUnit) + "/");
  const DBusHandle bus = OpenSystemdsBus(!is_own || ServicesAreTheMachines());
  // Refused when no such unit is loaded; one that runs is.
  const MessageHandle found = Call(bus.get(), "GetUnit", "s", UnitNameOf(unit_file).c_str());
  const char* unit = nullptr;
  if (!found || sd_bus_message_read(found.get(), "o", &unit) < 0 ||
      !IsSameFile(Property(bus.get(), unit, "FragmentPath"), unit_file)) {
    return UnitState::kStopped;
  }
  const std::string state = Property(bus.get(), unit, "ActiveState");
  if (state == "activating") return UnitState::kStarting;
  if (state == "deactivating") return UnitState::kStopping;
  return state == "active" || state == "reloading" ? UnitState::kRunning : UnitState::kStopped;
}

bool StopUnit(const std::string& unit_file) {
  return Call(OpenSystemdsBus().get(), "StopUnit", "ss", UnitNameOf(unit_file).c_str(),
              "replace") != nullptr;
}

void ReloadUnits() { Call(OpenSystemdsBus().get(), "Reload", ""); }

}  // namespace linux_host
