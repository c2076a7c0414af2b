// What the command line asks the server to do.
#pragma once

#include <string_view>

enum class ServerCommand {
  kRun,              // nothing that it knows: serve clients
  kRegister,         // RegServer: as a plain local server
  kRegisterService,  // Service
  kUnregister,       // UnregServer
};

// Takes the whole line as the system gives it, the program's path included: a hyphen or slash in
// that begins a token that matches nothing. Unknown arguments are ignored, such as the one by which
// the component library says that it starts the server for a client.
ServerCommand ParseCommandLine(std::wstring_view line);
