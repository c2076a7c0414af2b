#include <windows.h>

#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/kernel/text.h"

namespace {

// The arguments as the kernel keeps them: each ends with a NUL.
std::vector<std::string> ProcessArguments() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  std::vector<std::string> arguments;
  for (std::string argument; std::getline(file, argument, '\0');) arguments.push_back(argument);
  return arguments;
}

// Windows' programs take 2n backslashes before a quote for n, and 2n+1 for n and a quote that does
// not delimit; backslashes elsewhere are themselves.
std::string Quoted(std::string_view argument) {
  if (!argument.empty() && argument.find_first_of(" \t\n\v\"") == argument.npos) {
    return std::string(argument);
  }
  std::string quoted = "\"";
  std::size_t backslashes = 0;
  for (const char c : argument) {
    if (c == '\\') {
      ++backslashes;
    } else {
      if (c == '"') quoted.append(backslashes + 1, '\\');
      backslashes = 0;
    }
    quoted += c;
  }
  quoted.append(backslashes, '\\');
  return quoted + '"';
}

// The line from which Windows' rules for quotes and backslashes give `arguments` again.
std::string JoinCommandLine(const std::vector<std::string>& arguments) {
  std::string line;
  for (const std::string& argument : arguments) {
    if (&argument != &arguments.front()) line += ' ';
    line += Quoted(argument);
  }
  return line;
}

}  // namespace

LPWSTR GetCommandLineW() {
  // Never destroyed: threads may look at it while the process exits.
  static std::wstring& line =
      *new std::wstring(linux_host::Utf8ToWide(JoinCommandLine(ProcessArguments())));
  return line.data();
}
