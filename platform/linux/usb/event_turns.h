// Whose turn it is to handle libusb's events: one thread's at a time.
//
// A transfer ends when somebody has polled the system's files and told libusb to collect it. With
// one thread for that, each transfer costs a switch to it and one back from it to the thread that
// waits, which is most of what a short transfer takes. So whoever waits polls itself, and there are
// three parts:
//
// - The leader handles events until its own wait has ended. It completes what others wait for, too.
// - Those that begin to wait meanwhile follow: they sleep until their wait has ended or the leader
//   has left, and then one of them leads.
// - The bus's own thread handles events when nobody waits, for what nobody waits for: arrivals,
//   removals, transfers that are collected later. Waiting threads interrupt it and lead at once; it
//   comes back only when none has led for a while, since the next transfer of a sequence follows
//   soon. That while is the longest that an event is late.
//
// Calls that close or open a device take libusb's own lock on events, for which libusb makes the
// leader stop for a moment; libusb_handle_events_timeout_completed heeds that.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "base/waiting_work.h"

struct libusb_context;

namespace linux_host {

class EventTurns : public WaitingWork {
 public:
  using Clock = std::chrono::steady_clock;

  // Before the first turn.
  void Begin(libusb_context* context) { context_ = context; }

  void WorkUntil(const std::function<bool()>& has_ended, Clock::time_point until) override;

  // The bus's own thread: handles events while it is its turn, and otherwise sleeps. Comes back at
  // `until`, after an Interrupt, and from time to time.
  void WorkForNobody(Clock::time_point until);

  // The thread in WorkForNobody, or the next that comes there, comes back. Any thread, also within
  // the handling of an event.
  void Interrupt();

 private:
  enum class Leader { kNone, kWaiter, kBus };

  struct Follower {
    const std::function<bool()>& has_ended;
    bool ended = false;
    std::condition_variable wakes{};
  };

  void Lead(std::unique_lock<std::mutex>& lock, const std::function<bool()>& has_ended,
            Clock::time_point until);
  bool Follow(std::unique_lock<std::mutex>& lock, const std::function<bool()>& has_ended,
              Clock::time_point until);
  void WakeWhoHasEnded();
  void Leave();
  void HandleEvents(Clock::time_point until);

  libusb_context* context_ = nullptr;

  std::mutex mutex_;                  // not held while events are handled
  std::vector<Follower*> followers_;  // the first leads next
  std::condition_variable bus_wakes_;
  Leader leader_ = Leader::kNone;
  bool bus_awaits_end_ = false;  // of the leader's turn
  bool interrupted_ = false;
  Clock::time_point kept_until_{};  // the bus's thread stays away
};

}  // namespace linux_host
