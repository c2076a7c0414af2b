// The program `wfx`.
#include <windows.h>

#include <objbase.h>

#include <iostream>

#include "client/command_line.h"
#include "client/text.h"

int main(int argc, char** argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(client::Utf8FromArgument(argv[i]));
  DWORD mode = 0;
  const bool err_is_terminal = GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != FALSE;
  const HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
  const bool out_is_terminal =
      GetConsoleMode(out, &mode) != FALSE &&
      SetConsoleMode(out, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
  const bool initialised = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  const int exit_status =
      client::RunCommandLine(arguments, client::ConnectToService,
                             {std::cin, std::cout, std::cerr, err_is_terminal, out_is_terminal});
  if (initialised) CoUninitialize();
  return exit_status;
}
