// A command's patience, `wfx --wait SECONDS`: for its probe to arrive, and for targets that others
// hold to become free.
#pragma once

#include <chrono>
#include <string>

#include "client/command.h"

namespace client {

// While one lives, the service's IN_USE is asked for again, until the command's time is over. What
// it has not got by then shows itself in the command's own answer. An interruption ends the
// waiting as its end does.
class Waiting {
 public:
  // Begins the time, if the context has any, and first awaits the probe; there is none when its
  // name is empty or that of a session. The service stands.
  Waiting(Context& context, const std::string& probe);
  ~Waiting();
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

 private:
  using Clock = std::chrono::steady_clock;

  void AwaitProbe(const std::string& probe);
  bool IsListed(const std::string& probe);
  // A pause before the next try; false when there is none any more.
  bool Pause();
  DWORD RestMs(std::chrono::milliseconds limit) const;

  Context& context_;
  Clock::time_point end_;
  Clock::time_point next_sweep_;
};

}  // namespace client
