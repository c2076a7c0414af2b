#include "client/stop_signal.h"

#include <mutex>

namespace client {

namespace {

// Lives as long as the process: the handler may still run on its own thread when the signal's owner
// has gone.
HANDLE StopEvent() {
  static const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  return event;
}

std::mutex mutex;
int signals = 0;  // that live

BOOL WINAPI OnControl(DWORD) {
  SetEvent(StopEvent());
  return TRUE;
}

}  // namespace

StopSignal::StopSignal() {
  const std::lock_guard lock(mutex);
  if (signals++ > 0) return;
  ResetEvent(StopEvent());
  SetConsoleCtrlHandler(OnControl, TRUE);
}

StopSignal::~StopSignal() {
  const std::lock_guard lock(mutex);
  if (--signals == 0) SetConsoleCtrlHandler(OnControl, FALSE);
}

HANDLE StopSignal::event() const { return StopEvent(); }

}  // namespace client
