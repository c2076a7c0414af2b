// Why the service knows no probe, as far as a client can see: by the registration, which says where
// the service lies and how it is started, and by what a plain server inherits from its client.
#pragma once

#include <string>

#include "client/installation.h"

namespace client {

// What the probes depend on. Texts are UTF-8; an empty one is not known or not set.
struct ProbeSources {
  std::string settings;  // the path of the service's settings file
  bool settings_missing = false;
  // A service of the system has the variables that it was registered with, a plain server those of
  // the client that started it.
  bool is_service = false;
  std::string bus;             // WIREFOX_BUS as this client has it
  bool bench_listens = false;  // at the socket that it names
};

ProbeSources LookForProbes(const Installation& installation);

// Each is one reason, and what to do about it.
std::string MissingSettings(const std::string& settings);
// Of the bus that WIREFOX_BUS names; empty when there is none to see.
std::string BusProblem(const ProbeSources& sources);

// The most likely reason, and what to do about it.
std::string NoProbesNote(const ProbeSources& sources);

}  // namespace client
