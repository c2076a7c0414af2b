// Work that has to be done for a wait to end, and that the thread that waits can do itself: the end
// then reaches it without a switch from the thread that would do it otherwise.
#pragma once

#include <chrono>
#include <functional>

class WaitingWork {
 public:
  virtual ~WaitingWork() = default;

  // Does the work, or sleeps while another thread does it, until `has_ended` gives true (it is not
  // asked again then) or `until` has come. Any thread. What is done in between may be for others:
  // the caller holds no lock that the completion of a transfer takes.
  virtual void WorkUntil(const std::function<bool()>& has_ended,
                         std::chrono::steady_clock::time_point until) = 0;
};
