#include "client/stop_signal.h"

namespace client {

namespace {

// Lives as long as the process: the handler may still run on its own thread when the signal's owner
// has gone.
HANDLE StopEvent() {
  static const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  return event;
}

BOOL WINAPI OnControl(DWORD) {
  SetEvent(StopEvent());
  return TRUE;
}

}  // namespace

StopSignal::StopSignal() {
  ResetEvent(StopEvent());
  SetConsoleCtrlHandler(OnControl, TRUE);
}

StopSignal::~StopSignal() { SetConsoleCtrlHandler(OnControl, FALSE); }

HANDLE StopSignal::event() const { return StopEvent(); }

}  // namespace client
