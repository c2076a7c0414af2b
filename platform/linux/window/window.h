// Message-only windows and their classes.
#pragma once

#include <windows.h>

#include <memory>

#include "platform/linux/window/message_queue.h"

namespace linux_host {

struct WindowEntry {
  MessageQueue* queue;  // of the thread that created it
  WNDPROC procedure;
};

// Null when there is no such window. With the dispatcher lock held, and valid as long.
WindowEntry* FindWindowEntry(HWND window);

// The windows of a thread that has ended go, without messages. With the dispatcher lock held.
void ForgetWindowsOf(DispatcherLock& lock, const MessageQueue& queue);

// Calls the window's procedure with a message on its own thread, when that next looks at its queue;
// nothing when the window is gone by then. With the dispatcher lock held. `keep` holds what the
// parameters point to.
void SendLater(DispatcherLock& lock, HWND window, UINT message, WPARAM w_param, LPARAM l_param,
               std::shared_ptr<const void> keep);

}  // namespace linux_host
