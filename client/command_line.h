// The client's command line: picks the command, parses it, runs it, or helps.
#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include "client/service_client.h"
#include "client/terminal.h"

namespace client {

struct Streams {
  std::istream& in;
  std::ostream& out;
  std::ostream& err;
  Terminal out_terminal{};
  Terminal err_terminal{};
};

// `arguments` are UTF-8, without the program's name. The connector is asked only when a command has
// been parsed and needs the service. Returns the exit status.
int RunCommandLine(const std::vector<std::string>& arguments, const Connector& connector,
                   const Streams& streams);

}  // namespace client
