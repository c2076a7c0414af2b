// Lets other parts of the layer run inside a thread's message loop: while the thread waits in
// GetMessageW, their file descriptors are waited on too and served on that thread.
#pragma once

#include <poll.h>

#include <cstdint>
#include <vector>

namespace linux_host {

class MessageLoopSource {
 public:
  virtual ~MessageLoopSource() = default;

  // Adds the descriptors to wait on. Called before each wait, on the loop's thread.
  virtual void AppendDescriptors(std::vector<pollfd>& descriptors) = 0;

  // Milliseconds until Dispatch wants to run without a descriptor being ready; -1: no limit.
  virtual int WaitLimitMs() = 0;

  // Serves what is ready without blocking for more. Called when one of its descriptors is ready,
  // when its wait limit is over, and again as long as it returns true, which says that more is
  // waiting already. `ready` holds the entries that this source appended, with revents set (all
  // zero when nothing was looked at since the last call). Messages posted to the thread meanwhile
  // are looked at between two calls.
  virtual bool Dispatch(const pollfd* ready, std::size_t count) = 0;
};

// For the calling thread's loop. The source outlives its registration.
void AddMessageLoopSource(MessageLoopSource* source);
void RemoveMessageLoopSource(MessageLoopSource* source);

}  // namespace linux_host
