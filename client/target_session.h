// A target that a transfer command works on: acquired for the command, or a session of a script.
#pragma once

#include <cstdint>
#include <string>

#include "client/command.h"
#include "client/options.h"
#include "client/probe_advice.h"

namespace client {

// Refreshes the mode that the service has recorded for the probe, then acquires the target, and
// when there is no such target looks once what is behind the probe. A server that was just started
// knows neither: it recorded no mode and has scanned nothing. The result says what a failure means
// for a transfer that needs one of `modes`.
Result AcquireTarget(ServiceClient& service, const TransferTarget& target, Modes modes,
                     std::int64_t& handle);

class TargetSession {
 public:
  // For a transfer that the service does only in one of `modes`.
  TargetSession(Context& context, Modes modes) : context_(context), modes_(modes) {}

  // Releases what Open acquired. It does so after the reply was printed: whether that succeeds
  // changes nothing about the transfer.
  ~TargetSession();
  TargetSession(const TargetSession&) = delete;
  TargetSession& operator=(const TargetSession&) = delete;

  // False when there is no session; the failure is reported then, and `exit_status` says how.
  bool Open(const TransferTarget& target, int& exit_status);

  // Reports the transfer's result. Returns the exit status.
  int Report(Result result);

  std::int64_t handle() const { return handle_; }
  const std::string& probe() const { return probe_; }

 private:
  Context& context_;
  const Modes modes_;
  std::string probe_;
  std::int64_t handle_ = 0;
  bool acquired_here_ = false;
};

}  // namespace client
