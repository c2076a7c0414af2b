// Linked into client programs only: what the system or its loader does on Windows before main. A
// client's source is the same on both hosts and has no call for this, so the object runs by itself.
// It reads nothing that another initialiser fills.
#include <fcntl.h>
#include <unistd.h>

namespace {

// A standard stream that the program was started without stays closed for it: its number must not
// go to the next file or socket, which would get what is printed. What stands in for it fails both
// ways.
[[gnu::constructor]] void OccupyClosedStreams() {
  int stream = 0;
  do {
    stream = open("/dev/null", O_PATH | O_CLOEXEC);
  } while (stream >= 0 && stream <= STDERR_FILENO);
  if (stream >= 0) close(stream);
}

}  // namespace
