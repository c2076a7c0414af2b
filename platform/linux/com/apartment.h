// Which threads use the component library, and in which model.
#pragma once

#include <comstatus.h>

namespace linux_host {

// Whether the calling thread may create objects: it has initialised the library, or some thread has
// in the multithreaded model, which all others then belong to.
bool IsComponentLibraryUsable();

// Whether the calling thread has initialised the library in the single-threaded model.
bool IsInSingleThreadedApartment();

// An object has been created or a class published: the process's security is settled.
void SettleSecurity();

}  // namespace linux_host
