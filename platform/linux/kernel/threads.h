// Thread objects, and threads of the layer's own that the test clock knows.
#pragma once

#include <atomic>
#include <functional>

#include "platform/linux/kernel/waits.h"

namespace linux_host {

// Signalled for good when the thread has ended.
class Thread : public Waitable {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kThread;

  Thread() : Waitable(kKind) {}

  // Tells who waits. Called once, on the thread itself.
  void End();

  std::optional<DWORD> TryTake(ThreadRecord& self) override;

 protected:
  // Ending goes through the dispatcher in any case: it happens once.
  void MarkWaiters(bool) override {}

 private:
  std::atomic<bool> ended_ = false;
};

// Runs `body` on a new thread that takes part in the test clock and that nobody waits for; returns
// its id when it has begun, or 0 when the host has no more threads. The end of the thread is told
// to `thread`, which may be null. `stack_size` 0: the host's default.
DWORD StartThread(std::function<DWORD()> body, ObjectRef<Thread> thread = {},
                  SIZE_T stack_size = 0);

}  // namespace linux_host
