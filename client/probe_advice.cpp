#include "client/probe_advice.h"

#include <algorithm>
#include <utility>

#include "client/interface_names.h"
#include "client/similar.h"

namespace client {

namespace {

TzTransferMode ModeOf(const TzWFXStatus& status) {
  return static_cast<TzTransferMode>(status.ACTIVE_INTERFACE);
}

std::string NameOf(TzTransferMode mode) {
  return NameOfValue(kTransferModes, static_cast<std::int32_t>(mode));
}

std::string NamesOf(Modes modes) {
  std::string names;
  for (const TzTransferMode& mode : modes) {
    if (!names.empty()) names += &mode == &modes.back() ? " or " : ", ";
    names += NameOf(mode);
  }
  return names;
}

}  // namespace

std::string NoSuchProbe(const std::string& probe, std::span<const std::string> names) {
  return "there is no probe '" + probe + "'" + DidYouMean(probe, names) +
         "; `wfx list` names the probes, letter case counts";
}

std::string NoSuchProbe(ServiceClient& service, const std::string& probe) {
  std::vector<std::string> names;
  service.EnumerateWirefoxs(names);
  return NoSuchProbe(probe, names);
}

std::string WrongMode(const std::string& probe, const TzWFXStatus& status, Modes wanted) {
  if (std::ranges::find(wanted, ModeOf(status)) != wanted.end()) return "";
  return probe + " is in mode " + NameOf(ModeOf(status)) + ", this needs " + NamesOf(wanted) +
         "; type `wfx mode " + probe + " " + NameOf(wanted.front()) + "` first";
}

std::string NoTargets(const std::string& probe, const TzWFXStatus& status) {
  const std::string wrong_mode = WrongMode(probe, status, kTargetModes);
  if (!wrong_mode.empty()) return "no targets: " + wrong_mode;
  return "no target answers " + probe + " in mode " + NameOf(ModeOf(status)) +
         "; check its wiring and power (`wfx status " + probe + "`, `wfx vtarg " + probe +
         " 3.3 --supply on`)";
}

std::vector<std::string> ProblemsIn(const TzWFXStatus& status) {
  std::vector<std::string> problems;
  if (status.WFX_FLAGS_FPGA_MBX_ERR != 0) problems.emplace_back("FPGA mailbox error");
  if (status.WFX_FLAGS_VORN_I2C_ERR != 0) problems.emplace_back("Vorn I2C error");
  if (status.RESULT != 0) {
    problems.push_back("status request answered " + std::to_string(status.RESULT));
  }
  return problems;
}

int ReportOnProbe(Context& context, Result result, const std::string& probe) {
  if (result.error == TzErrorCode::INVALID_PARAM) {
    TzWFXStatus status{};
    const bool missing =
        context.service().GetWirefoxStatus(probe, status) == TzErrorCode::INVALID_PARAM;
    result.advice = missing ? NoSuchProbe(context.service(), probe)
                            : "a value is out of its range; the probe " + probe + " is there";
  }
  result.probe = probe;
  return context.Report(std::move(result));
}

}  // namespace client
