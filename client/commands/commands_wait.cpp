#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "client/commands.h"
#include "client/probe_changes.h"
#include "client/stop_signal.h"

namespace client {

namespace {

// How often a command that only waits makes sure that the service still lives.
constexpr DWORD kHeartbeatMs = 2000;

bool ServiceLives(Context& context) {
  std::int32_t version = 0;
  return context.service().GetVersion(version) == TzErrorCode::SUCCESS;
}

std::string ListText(const std::vector<std::string>& names) {
  std::string text = std::to_string(names.size()) + (names.size() == 1 ? " probe" : " probes");
  for (std::size_t i = 0; i < names.size(); ++i) text += (i == 0 ? ": " : ", ") + names[i];
  return text + "\n";
}

// Prints the list unless it is the one that was shown. False when that did not go well.
bool ShowList(Context& context, std::optional<std::vector<std::string>>& shown, int& exit_status) {
  Result result;
  std::vector<std::string> names;
  result.error = context.service().EnumerateWirefoxs(names);
  if (shown == names && result.error == TzErrorCode::SUCCESS) return true;
  result.outputs["wirefoxs"] = names;
  result.text = ListText(names);
  shown = names;
  exit_status = context.Report(result);
  return exit_status == kExitSuccess;
}

// The file that tells of changes is on the other machine: asks now and then instead.
int WatchFromAfar(Context& context) {
  const StopSignal stop;
  std::optional<std::vector<std::string>> shown;
  int exit_status = kExitSuccess;
  while (ShowList(context, shown, exit_status) && !stop.Wait(kHeartbeatMs)) {
  }
  return exit_status;
}

int Watch(Context& context) {
  if (!context.host.empty()) return WatchFromAfar(context);
  std::string location;
  context.service().GetDevicesChangedLocation(location);
  const StopSignal stop;
  ProbeChanges changes(location);
  if (!changes.valid()) {
    if (FAILED(context.service().call_failure())) return context.Report(Result());
    return context.output.ReportUsage("cannot watch the folder of " + location);
  }
  std::optional<std::vector<std::string>> shown;
  int exit_status = kExitSuccess;
  using Event = ProbeChanges::Event;
  for (auto event = Event::kChanged; event != Event::kStopped;
       event = changes.Wait(stop, kHeartbeatMs)) {
    if (event == Event::kNothing && !ServiceLives(context)) return context.Report(Result());
    if (event != Event::kChanged) continue;
    changes.Mark();
    if (!ShowList(context, shown, exit_status)) return exit_status;
  }
  return kExitSuccess;
}

}  // namespace

Action DefineWatch(CLI::App&) { return Watch; }

Action DefineHold(CLI::App&) {
  return [](Context& context) {
    const StopSignal stop;
    Result result;
    std::int32_t version = 0;
    result.error = context.service().GetVersion(version);
    result.outputs["versionNum"] = version;
    result.text = "holding TzWirefoxService; interrupt (Ctrl-C) to let it go\n";
    const int exit_status = context.Report(result);
    if (exit_status != kExitSuccess) return exit_status;
    while (!stop.Wait(kHeartbeatMs)) {
      if (!ServiceLives(context)) return context.Report(Result());
    }
    return static_cast<int>(kExitSuccess);
  };
}

}  // namespace client
