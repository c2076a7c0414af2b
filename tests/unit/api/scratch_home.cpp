// Gives a test program a place of its own for what the host keeps (registry, locks, sockets), so
// that it meets no service that is installed or running, nor a test that runs beside it.
#ifndef _WIN32
#include <cstdlib>

#include "tests/unit/scratch_folder.h"

namespace {

const struct ScratchHome {
  ScratchHome() { setenv("WIREFOX_HOME", folder.Path("home").c_str(), 1); }
  unit::ScratchFolder folder;
} scratch_home;

}  // namespace
#endif
