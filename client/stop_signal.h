// The user's wish to end a command that runs until interrupted: Ctrl-C, or the end of the console.
#pragma once

#include <windows.h>

namespace client {

// While one lives, an interruption does not end the process but sets the signal, for all that live.
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
