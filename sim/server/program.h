// What the program wfxsim does on this host once its command line has been read.
#pragma once

#include <string>

namespace sim {

struct ServeOptions {
  std::string bench_file;      // empty: the default bench; "demo": the one for other programs
  std::string socket_path;     // empty: the default
  std::string capture_file;    // empty: none
  bool attach_kernel = false;  // the probes are devices of this machine
};

// Runs a bench until it is told to end. Returns the exit status: 0, or 2 when it could not begin
// (the reason is on standard error).
int Serve(const ServeOptions& options);

// Sends one request (control_commands.h) to a running simulator and receives the answer. False when
// none can be reached, or when it ended; `error` then tells why.
bool Ask(const std::string& socket_path, const std::string& request, std::string& answer,
         std::string& error);

}  // namespace sim
