// Gives a test program a place of its own for what the host keeps (registry, locks, sockets), so
// that it meets no service that is installed or running, nor a test that runs beside it.
#include <cstdlib>
#include <filesystem>
#include <string>

#ifndef _WIN32
#include <unistd.h>

namespace {

struct ScratchHome {
  ScratchHome() {
    path =
        std::filesystem::temp_directory_path() / ("wirefox_unit_test_" + std::to_string(getpid()));
    setenv("WIREFOX_HOME", path.c_str(), 1);
  }
  ~ScratchHome() {
    if (getpid() != owner) return;
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }

  const pid_t owner = getpid();
  std::filesystem::path path;
};

const ScratchHome scratch_home;

}  // namespace
#endif
