// What `wfx doctor` looks at on this machine without asking the service, and how it judges it.
#pragma once

#include <string>
#include <vector>

#include "client/doctor/attached_devices.h"
#include "client/installation.h"
#include "client/no_probes.h"

namespace client {

// In the order of their weight; the greatest is the exit status, among whose meanings they fit.
enum class Health : int {
  kOk = 0,
  kWarning = 1,   // something does not answer well, or may not work for somebody
  kProblem = 2,   // a file or the bus is not as it must be: probes stay away
  kUnusable = 3,  // the service cannot be reached
};

struct Check {
  const char* name;
  Health health = Health::kOk;
  std::string text;  // one line: what was found, then "; " and what to do
};
using Checks = std::vector<Check>;

void CheckRegistration(const Installation& installation, Checks& checks);

// The settings file, and the images that it names.
void CheckSettings(const Installation& installation, Checks& checks);

// Where probes come from. `devices` are those attached to this computer's USB.
void CheckBus(const ProbeSources& sources, const AttachedDevices& devices, Checks& checks);

// What the probes that are not ready wait for: by the service's log and by what is attached.
// `ready` are the names that the service lists.
void CheckMissingProbes(const std::string& log, const AttachedDevices& devices,
                        const std::vector<std::string>& ready, Checks& checks);

}  // namespace client
