// The running systemd, asked and told over its interface on the message bus: the system's for root,
// for others their own.
#pragma once

#include <string>

namespace linux_host {

enum class UnitState { kStopped, kStarting, kRunning, kStopping };

// The state of the unit that was loaded from this file, by this account's systemd or, for a file
// that is not in this account's folder, by the machine's. Stopped also where no systemd runs or
// answers, and when the unit of that name is another's: two installations may have one each.
UnitState AskUnitState(const std::string& unit_file);

// Has systemd stop the unit, and does not wait for it. False when it refuses.
bool StopUnit(const std::string& unit_file);

// Has systemd look at the unit files again. Where none runs there is nothing to do.
void ReloadUnits();

}  // namespace linux_host
