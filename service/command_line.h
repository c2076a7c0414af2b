// What the command line asks the server to do.
#pragma once

#include <string_view>

enum class ServerCommand {
  kRun,              // nothing that it knows: serve clients
  kRegister,         // RegServer: as a plain local server
  kRegisterService,  // Service
  kUnregister,       // UnregServer
};

// Takes the whole line as the system gives it, the program's path included, so that a program must
// not lie where a hyphen or slash, a keyword and a blank follow each other in its path. Unknown
// arguments are ignored, such as the one by which the component library says that it starts the
// server for a client.
ServerCommand ParseCommandLine(std::wstring_view line);
