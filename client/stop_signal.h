// The user's wish to end a command that runs until interrupted: Ctrl-C, or the end of the console.
#pragma once

#include <windows.h>

namespace client {

// One at a time. While it lives, an interruption does not end the process but sets the signal.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  bool IsSet() const { return Wait(0); }

  // True when the signal is set by then.
  bool Wait(DWORD timeout_ms) const { return WaitForSingleObject(event(), timeout_ms) == 0; }

  HANDLE event() const;
};

}  // namespace client
