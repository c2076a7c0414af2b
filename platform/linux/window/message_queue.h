// A thread's message queue: what was posted to it, its windows' timers and notifications, and the
// wait for the next message.
//
// Queues are guarded by the dispatcher lock, as a thread that waits for a message is a blocked one.
#pragma once

#include <windows.h>

#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "platform/linux/kernel/dispatcher.h"
#include "platform/linux/window/message_loop.h"

namespace linux_host {

class MessageQueue {
 public:
  explicit MessageQueue(ThreadRecord& owner) : owner_(owner) {}
  ~MessageQueue();
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;

  ThreadRecord& owner() const { return owner_; }

  // Any thread, with the lock held.
  void Post(DispatcherLock& lock, const MSG& message);
  // Runs `call` on the owner's thread, without the lock, when it next looks at its queue.
  void Send(DispatcherLock& lock, std::function<void()> call);

  // The owner's thread alone, with the lock held.
  UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT period_ms, TIMERPROC procedure);
  bool KillTimer(HWND window, UINT_PTR id);
  // What belongs to the window goes.
  void ForgetWindow(HWND window);

  // Which messages a call asks for.
  struct Filter {
    HWND window;  // null: all; -1: without a window
    UINT first;
    UINT last;  // both 0: all

    bool Takes(const MSG& message) const;
  };

  // Runs what was sent; then the next message of the filter, which leaves the queue when `remove`
  // is set. The lock is let go meanwhile. Owner's thread.
  std::optional<MSG> Next(DispatcherLock& lock, const Filter& filter, bool remove);

  // Blocks until there may be a message, or serves the sources. Owner's thread, lock held. False
  // when the wait failed.
  bool WaitOrServe(DispatcherLock& lock);

  // Owner's thread, without the lock.
  void AddSource(MessageLoopSource* source);
  void RemoveSource(MessageLoopSource* source);

 private:
  struct Timer {
    HWND window;
    UINT_PTR id;
    Deadline period;
    Deadline due;
    TIMERPROC procedure;
  };

  // One source may come where another was removed, even at the same address: the ids tell them
  // apart.
  struct RegisteredSource {
    MessageLoopSource* source;
    std::uint64_t id;
  };

  struct ServedSource {
    RegisteredSource registered;
    std::size_t first;  // of its descriptors
    std::size_t count;
    bool has_more;
  };

  void Wake(DispatcherLock& lock);
  std::optional<MSG> NextTimer(const Filter& filter, bool remove);
  Deadline NextDue() const;
  bool OpenWakeDescriptor();
  void CollectDescriptors();
  bool Poll(DispatcherLock& lock);
  bool HasMoreToServe() const;
  bool StillRegistered(const RegisteredSource& source) const;
  void ServeReady(bool polled);

  ThreadRecord& owner_;
  std::deque<std::function<void()>> sent_;
  std::deque<MSG> posted_;
  std::uint64_t arrivals_ = 0;   // of all of these
  std::uint64_t looked_at_ = 0;  // arrivals when messages were last looked for
  std::vector<Timer> timers_;
  UINT_PTR next_timer_id_ = 1;
  int wake_descriptor_ = -1;

  // The message loop's; used by the owner's thread alone, without the lock.
  std::vector<RegisteredSource> sources_;
  std::uint64_t next_source_id_ = 1;
  std::vector<pollfd> descriptors_;  // the wake descriptor, then those of the sources
  std::vector<ServedSource> served_;
  int rounds_without_poll_ = 0;
};

// The calling thread's queue, made at first use. It goes with its windows at the thread's end.
MessageQueue& ThreadMessageQueue();

}  // namespace linux_host
