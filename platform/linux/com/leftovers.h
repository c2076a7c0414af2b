// What the layer has made in its directories, taken away when nothing is registered any more.
#pragma once

#include "base/interface_schema.h"

namespace linux_host {

// For the end of a process that can serve the library's class: while the account's registry holds
// anything, nothing is done. Otherwise the registry, the files by which servers and clients find
// each other, those of named mutexes, and the folders of all these go, except where another process
// uses one: it takes that away at its own end. $WIREFOX_HOME itself stays.
void RemoveLeftovers(const interface_schema::Library& library);

}  // namespace linux_host
