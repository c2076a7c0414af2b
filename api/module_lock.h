// The count of what keeps the server alive: live client objects, and server locks held by clients.
#pragma once

#include <windows.h>

namespace api {

// The server's module implements it; whoever creates an object or lock counts it here. Any thread.
class ModuleLock {
 public:
  virtual ~ModuleLock() = default;

  // Both return the new count.
  virtual LONG Lock() = 0;
  virtual LONG Unlock() = 0;
  virtual LONG GetLockCount() const = 0;
};

}  // namespace api
