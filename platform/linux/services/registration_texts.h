// What the files say by which systemd and the message buses know the server. Every text goes into
// them in their own quoting: paths may hold blanks, quotes, dollar and percent signs.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace linux_host {

using Variables = std::vector<std::pair<std::string, std::string>>;

// Whether a service of that name can be a unit NAME.service: letters, digits and "-_.", not more
// than 200.
bool IsUnitName(const std::string& name);

struct UnitDescription {
  std::string description = {};
  std::vector<std::string> command = {};  // the program's path, and its arguments
  Variables variables = {};               // of its environment
  std::vector<std::string> needs = {};    // units that it comes after
  bool is_the_machines = false;           // of the system's manager, which can confine it further
};

// A service on demand, of a program that tells when it is ready.
std::string UnitText(const UnitDescription& unit);

// Names the command that a bus starts for `bus_name`.
std::string ActivationText(const std::string& bus_name, const std::vector<std::string>& command,
                           const Variables& variables);

// Has the bus ask systemd for the unit; `as_root`: on the system bus.
std::string UnitActivationText(const std::string& bus_name, const std::string& unit, bool as_root);

// Lets root own the name on the system bus; whether all accounts may call it, or root alone.
std::string DBusPolicyText(const std::string& bus_name, bool for_all);

}  // namespace linux_host
