// How the message buses know the registered class, so that they start its server for tools that are
// not ours.
#pragma once

#include "base/interface_schema.h"

namespace linux_host {

// Writes the files that fit what the registry says about the library's class, and removes those of
// another kind of server: a plain server is started by the session's bus; a service by systemd,
// which the system bus asks (a user's: the session's). False when a file cannot be written or
// removed; those before it stay.
bool WriteDBusRegistration(const interface_schema::Library& library);

// Removes all of them. False when one cannot be.
bool RemoveDBusRegistration(const interface_schema::Library& library);

}  // namespace linux_host
