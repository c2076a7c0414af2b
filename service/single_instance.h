// The guard against a second service of another account.
#pragma once

#include <windows.h>

#include "support/handle.h"

// It tells only whether the named mutex can be had. A second instance of the same account gets it,
// too, and runs; one of an account that may not open it does not.
class SingleInstanceGuard {
 public:
  // Creates or opens the mutex, and owns it when nobody else does.
  SingleInstanceGuard();

  bool MayRun() const { return mutex_ != nullptr; }

  // Tells the event log and the user, and returns the exit code once the user has seen it.
  int ReportFailure() const;

  // To be called when the service has run. The handle stays open: the end of the process closes it.
  void Release() const { ReleaseMutex(mutex_); }

 private:
  HANDLE mutex_;
};
