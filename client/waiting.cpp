#include "client/waiting.h"

#include <algorithm>
#include <vector>

#include "client/probe_changes.h"
#include "client/stop_signal.h"

namespace client {

namespace {

using std::chrono::milliseconds;

// What no event tells: that another program lets a target go, ...
constexpr milliseconds kTryAgain{100};
// ... that it has died, that a device's rights have changed, and what happens on other machines.
constexpr milliseconds kLookAgain{2000};

}  // namespace

Waiting::Waiting(Context& context, const std::string& probe)
    : context_(context),
      end_(Clock::now() + std::chrono::seconds(context.wait_seconds)),
      next_sweep_(Clock::now()) {
  if (context.wait_seconds == 0) return;
  if (!probe.empty() && !probe.starts_with('$')) AwaitProbe(probe);
  context.service().SetRetry([this] { return Pause(); });
}

Waiting::~Waiting() { context_.service().SetRetry(nullptr); }

DWORD Waiting::RestMs(milliseconds limit) const {
  const auto rest = std::chrono::ceil<milliseconds>(end_ - Clock::now());
  return static_cast<DWORD>(std::clamp(rest, milliseconds(0), limit).count());
}

bool Waiting::IsListed(const std::string& probe) {
  std::vector<std::string> names;
  // A failure is for the command to tell.
  if (context_.service().EnumerateWirefoxs(names) != TzErrorCode::SUCCESS) return true;
  return std::ranges::find(names, probe) != names.end();
}

void Waiting::AwaitProbe(const std::string& probe) {
  std::string location;
  if (context_.host.empty()) context_.service().GetDevicesChangedLocation(location);
  ProbeChanges changes(location);
  const StopSignal stop;
  for (;;) {
    changes.Mark();
    if (IsListed(probe)) break;
    const DWORD rest_ms = RestMs(kLookAgain);
    if (rest_ms == 0) break;
    context_.output.ShowProgress("waiting for " + probe);
    if (changes.Wait(stop, rest_ms) != ProbeChanges::Event::kStopped) continue;
    end_ = Clock::now();
    break;
  }
  // What comes next has its own line.
  context_.output.BeginProgress();
}

bool Waiting::Pause() {
  const DWORD rest_ms = RestMs(kTryAgain);
  if (rest_ms == 0) return false;
  context_.output.ShowProgress("waiting for a target to become free");
  if (StopSignal().Wait(rest_ms)) {
    end_ = Clock::now();
    return false;
  }
  // Frees what dead programs held, which not every method does.
  if (Clock::now() >= next_sweep_) {
    IsListed("");
    next_sweep_ = Clock::now() + kLookAgain;
  }
  return true;
}

}  // namespace client
