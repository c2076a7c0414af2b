#include "client/terminal.h"

#include <wincon.h>

#include <string_view>

namespace client {

TerminalMode::TerminalMode(DWORD stream)
    : stream_(GetStdHandle(stream)),
      is_terminal_(GetConsoleMode(stream_, &mode_) != FALSE),
      obeys_(is_terminal_ &&
             SetConsoleMode(stream_, mode_ | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE) {}

TerminalMode::~TerminalMode() {
  if (obeys_) SetConsoleMode(stream_, mode_);
}

Terminal TerminalMode::Find(const char* no_color, const char* term) const {
  const bool is_dumb = term && std::string_view(term) == "dumb";
  const bool refuses = no_color && *no_color != '\0';
  return {is_terminal_ && !is_dumb, obeys_ && !is_dumb && !refuses};
}

}  // namespace client
