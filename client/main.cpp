// The program `wfx`.
#include <windows.h>

#include <objbase.h>

#include <cstdlib>
#include <iostream>

#include "client/command_line.h"
#include "client/terminal.h"
#include "client/text.h"

int main(int argc, char** argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(client::Utf8FromArgument(argv[i]));
  const client::TerminalMode out(STD_OUTPUT_HANDLE);
  const client::TerminalMode err(STD_ERROR_HANDLE);
  const auto find = [](const client::TerminalMode& mode) {
    return mode.Find(std::getenv("NO_COLOR"), std::getenv("TERM"));
  };
  const bool initialised = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  const int exit_status = client::RunCommandLine(
      arguments, client::ConnectToService, {std::cin, std::cout, std::cerr, find(out), find(err)});
  if (initialised) CoUninitialize();
  return exit_status;
}
