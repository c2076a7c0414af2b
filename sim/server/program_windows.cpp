#include <cstdio>

#include "sim/server/program.h"

namespace sim {
namespace {

// The bench itself works on this host, within one process; offering it to others does not yet.
constexpr char kNoServer[] = "the simulator cannot be offered to other processes on this host yet";

}  // namespace

int Serve(const ServeOptions&) {
  std::fprintf(stderr, "wfxsim: %s\n", kNoServer);
  return 2;
}

bool Ask(const std::string&, const std::string&, std::string&, std::string& error) {
  error = kNoServer;
  return false;
}

}  // namespace sim
