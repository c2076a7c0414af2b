#include "service/self_description.h"

#include <cstdio>

namespace {

constexpr char kVersion[] = "TzWirefoxService " WIREFOX_VERSION "\n";

constexpr char kHelp[] =
    "TzWirefoxService: lets several programs share USB debug probes\n"
    "\n"
    "Usage: TzWirefoxService -RegServer | -Service | -UnregServer | --version | --help\n"
    "\n"
    "  -RegServer    registers it as a plain server: its first client starts it, and it ends with\n"
    "                its last\n"
    "  -Service      registers it as a service of the system, which starts it and stops it\n"
    "  -UnregServer  stops it and removes either registration\n"
    "\n"
    "These three may be in any letter case, with a slash for the hyphen. Any other argument is\n"
    "ignored: the program then starts to serve, as it does for a client.\n";

std::wstring_view WithoutBlanks(std::wstring_view text) {
  constexpr std::wstring_view kBlanks = L" \t";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

bool DescribesItself(std::wstring_view arguments) {
  const std::wstring_view word = WithoutBlanks(arguments);
  const char* text = word == L"--version" ? kVersion : word == L"--help" ? kHelp : nullptr;
  if (!text) return false;
  std::fputs(text, stdout);
  std::fflush(stdout);
  return true;
}
