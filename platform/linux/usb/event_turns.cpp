#include "platform/linux/usb/event_turns.h"

#include <libusb.h>

#include <algorithm>

namespace linux_host {
namespace {

using std::chrono::microseconds;

// Longer than a client takes from one call to the next. An arrival or a removal may be told so much
// later.
constexpr std::chrono::milliseconds kBetweenWaits(10);
// What ends a wait without an event is noticed then, if nobody says so.
constexpr std::chrono::seconds kMaxPoll(1);

}  // namespace

void EventTurns::HandleEvents(Clock::time_point until) {
  const auto left = std::chrono::ceil<microseconds>(
      std::max<Clock::duration>(until - Clock::now(), Clock::duration::zero()));
  timeval sleep{.tv_sec = left.count() / 1'000'000, .tv_usec = left.count() % 1'000'000};
  libusb_handle_events_timeout_completed(context_, &sleep, nullptr);
}

void EventTurns::WorkUntil(const std::function<bool()>& has_ended, Clock::time_point until) {
  std::unique_lock lock(mutex_);
  if (has_ended()) return;
  while (leader_ != Leader::kNone) {
    if (Follow(lock, has_ended, until) || Clock::now() >= until) return;
  }
  Lead(lock, has_ended, until);
}

// True when the wait has ended.
bool EventTurns::Follow(std::unique_lock<std::mutex>& lock, const std::function<bool()>& has_ended,
                        Clock::time_point until) {
  const Clock::time_point now = Clock::now();
  if (leader_ == Leader::kBus) {
    kept_until_ = now + kBetweenWaits;
    libusb_interrupt_event_handler(context_);
  }
  Follower self{.has_ended = has_ended};
  followers_.push_back(&self);
  self.wakes.wait_until(lock, std::min(until, now + kMaxPoll));
  std::erase(followers_, &self);
  return self.ended || has_ended();
}

void EventTurns::Lead(std::unique_lock<std::mutex>& lock, const std::function<bool()>& has_ended,
                      Clock::time_point until) {
  leader_ = Leader::kWaiter;
  kept_until_ = Clock::now() + kBetweenWaits;
  for (bool goes_on = true; goes_on;) {
    lock.unlock();
    HandleEvents(std::min(until, Clock::now() + kMaxPoll));
    goes_on = !has_ended() && Clock::now() < until;
    lock.lock();
    WakeWhoHasEnded();
  }
  kept_until_ = Clock::now() + kBetweenWaits;
  Leave();
  if (bus_awaits_end_) bus_wakes_.notify_one();
}

void EventTurns::WakeWhoHasEnded() {
  for (Follower* const follower : followers_) {
    if (follower->ended || !follower->has_ended()) continue;
    follower->ended = true;
    follower->wakes.notify_one();
  }
}

void EventTurns::Leave() {
  leader_ = Leader::kNone;
  const auto next = std::ranges::find(followers_, false, &Follower::ended);
  if (next != followers_.end()) (*next)->wakes.notify_one();
}

void EventTurns::WorkForNobody(Clock::time_point until) {
  std::unique_lock lock(mutex_);
  const auto interrupted = [&] { return interrupted_; };
  if (Clock::now() < kept_until_) {
    bus_wakes_.wait_until(lock, std::min(until, kept_until_), interrupted);
  } else if (leader_ != Leader::kNone) {
    bus_awaits_end_ = true;
    bus_wakes_.wait_until(lock, until, [&] { return interrupted_ || leader_ == Leader::kNone; });
    bus_awaits_end_ = false;
  } else if (!interrupted_) {
    leader_ = Leader::kBus;
    lock.unlock();
    HandleEvents(until);
    lock.lock();
    WakeWhoHasEnded();
    Leave();
  }
  interrupted_ = false;
}

void EventTurns::Interrupt() {
  const std::lock_guard lock(mutex_);
  interrupted_ = true;
  bus_wakes_.notify_one();
  if (leader_ == Leader::kBus) libusb_interrupt_event_handler(context_);
}

}  // namespace linux_host
