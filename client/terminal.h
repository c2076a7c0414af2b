// Whether a standard stream goes to a terminal, and what that one can do.
#pragma once

#include <windows.h>

namespace client {

// What is known of the terminal behind a stream.
struct Terminal {
  bool redraws = false;  // a line can be drawn over itself
  bool colours = false;  // and text may be coloured
};

// A standard stream. A console's sequences are switched on while this lives.
class TerminalMode {
 public:
  explicit TerminalMode(DWORD stream);
  ~TerminalMode();
  TerminalMode(const TerminalMode&) = delete;
  TerminalMode& operator=(const TerminalMode&) = delete;

  // `no_color` and `term` are the values of NO_COLOR and TERM, null for one that is not set.
  Terminal Find(const char* no_color, const char* term) const;

 private:
  HANDLE stream_;
  DWORD mode_ = 0;
  bool is_terminal_;
  bool obeys_;
};

}  // namespace client
