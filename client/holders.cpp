#include "client/holders.h"

#include "client/activity.h"
#include "client/running_program.h"

namespace client {

void NameHolders(ServiceClient& service, Result& result) {
  const auto table = AskActivity(service);
  const ProbeActivity* const probe = table ? FindProbe(*table, result.probe) : nullptr;
  if (!probe) return;
  auto holders = nlohmann::ordered_json::array();
  std::string text;
  for (std::size_t i = 0; i < probe->targets.size(); ++i) {
    const std::uint32_t pid = probe->targets[i].pid;
    if (pid == 0 || result.target.value_or(i) != i) continue;
    text += (text.empty() ? "" : ", ") + std::string("target ") + std::to_string(i) +
            " is held by " + DescribeProcess(pid);
    holders.push_back({{"target", i}, {"pid", pid}});
    const std::string program = ProgramOf(pid).name;
    if (!program.empty()) holders.back()["program"] = program;
  }
  if (holders.empty()) return;
  result.outputs["holders"] = holders;
  result.advice = probe->name + ": " + text +
                  "; wait until it lets go or ends (`wfx list` frees what dead programs held)";
}

}  // namespace client
