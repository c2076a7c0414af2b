#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "client/commands.h"
#include "client/doctor/checks.h"
#include "client/interface_names.h"
#include "client/numbers.h"
#include "client/probe_advice.h"
#include "client/service_log.h"
#include "client/service_state.h"
#include "client/text.h"
#include "client/unreachable.h"

namespace client {

namespace {

constexpr const char* kLabels[] = {"ok", "warning", "problem", "problem"};

const char* LabelOf(Health health) { return kLabels[static_cast<int>(health)]; }

class Doctor {
 public:
  explicit Doctor(Context& context) : context_(context) {}

  int Run(bool start) {
    const bool is_here = context_.host.empty();
    if (is_here) LookAtThisMachine();
    // There is no look at another machine's service that does not start it.
    if (state_ == ServiceState::kStarting || state_ == ServiceState::kStopping) {
      AddPassing();
    } else if (!is_here || start || state_ != ServiceState::kStopped) {
      if (Worst() < Health::kUnusable && Connect()) AskService();
    } else if (!installation_.program.empty()) {
      Add("service", Health::kOk,
          "does not run, and was not asked; its first client starts it, as `wfx doctor --start` "
          "does");
    }
    return Print();
  }

 private:
  void Add(const char* name, Health health, std::string text) {
    checks_.push_back({name, health, std::move(text)});
  }

  Health Worst() const {
    Health worst = Health::kOk;
    for (const Check& check : checks_) worst = std::max(worst, check.health);
    return worst;
  }

  void LookAtThisMachine() {
    installation_ = FindInstallation();
    CheckRegistration(installation_, checks_);
    if (installation_.program.empty()) return;
    CheckSettings(installation_, checks_);
    sources_ = LookForProbes(installation_);
    if (installation_.values && (sources_.is_service || sources_.bus.empty())) {
      devices_ = FindAttachedDevices(*installation_.values);
    }
    CheckBus(sources_, devices_, checks_);
    state_ = FindServiceState(installation_);
    const ServiceLog log(installation_, true);
    const std::string problem = log.Problem();
    Add("log", Health::kOk,
        problem.empty() ? log.file() + ", LOGLEVEL=" + std::to_string(log.level()) : problem);
    if (problem.empty() && state_ != ServiceState::kStopped) log_ = log.Text();
  }

  void AddPassing() {
    Add("service", Health::kWarning,
        state_ == ServiceState::kStarting
            ? "is starting: it looks at every probe first, which takes minutes when one is silent; "
              "look again, or unplug that one"
            : "is stopping: it finishes a call first; look again");
  }

  bool Connect() {
    const HRESULT status = context_.TryConnect();
    if (SUCCEEDED(status)) return true;
    AddUnreachable(status);
    return false;
  }

  void AddUnreachable(HRESULT status) {
    Add("service", Health::kUnusable, UnreachableAdvice(status, context_.host));
  }

  void AskService() {
    std::int32_t version = 0;
    std::vector<std::string> names;
    ServiceClient& service = context_.service();
    service.GetVersion(version);
    const TzErrorCode listed = service.EnumerateWirefoxs(names);
    if (FAILED(service.call_failure())) return AddUnreachable(service.call_failure());
    Add("service", Health::kOk,
        state_ == ServiceState::kRunningElsewhere ? "answers, and is another account's"
                                                  : "answers");
    Add("versions", Health::kOk,
        "wfx " WIREFOX_VERSION ", the service's interface " + VersionText(version));
    if (listed != TzErrorCode::SUCCESS) return Add("probes", Health::kProblem, ErrorAdvice(listed));
    for (const std::string& name : names) CheckProbe(name);
    const std::size_t before = checks_.size();
    CheckMissingProbes(log_, devices_, names, checks_);
    if (!names.empty() || checks_.size() > before) return;
    Add("probes", Health::kWarning,
        context_.host.empty() ? NoProbesNote(sources_) : "no probe is ready there");
  }

  void CheckProbe(const std::string& name) {
    TzWFXStatus status{};
    const TzErrorCode error = context_.service().GetWirefoxStatus(name, status);
    const HRESULT failure = context_.service().call_failure();
    if (FAILED(failure)) return AddUnreachable(failure);
    if (error != TzErrorCode::SUCCESS) {
      return Add("probes", Health::kWarning, name + " does not answer: " + ErrorAdvice(error));
    }
    std::string text =
        name + " is ready, in mode " + NameOfValue(kTransferModes, status.ACTIVE_INTERFACE);
    std::vector<std::string> problems = ProblemsIn(status);
    if (status.WFX_FLAGS_VTARG_FAULT != 0) problems.emplace_back("a fault of the target's supply");
    for (const std::string& problem : problems) text += ", " + problem;
    if (!problems.empty()) text += "; `wfx status " + name + "` tells more";
    Add("probes", problems.empty() ? Health::kOk : Health::kWarning, text);
  }

  int Print() {
    constexpr std::size_t kLabelWidth = 9;
    constexpr std::size_t kNameWidth = 14;
    Result result;
    result.outputs["state"] = LabelOf(Worst());
    auto& checks = result.outputs["checks"] = nlohmann::ordered_json::array();
    for (const Check& check : checks_) {
      checks.push_back(
          {{"check", check.name}, {"state", LabelOf(check.health)}, {"text", check.text}});
      std::string line = LabelOf(check.health);
      line.resize(kLabelWidth, ' ');
      line += check.name;
      line.resize(kLabelWidth + kNameWidth, ' ');
      result.text += line + Printable(check.text) + "\n";
    }
    const int printed = context_.output.Report(result);
    return printed == kExitSuccess ? static_cast<int>(Worst()) : printed;
  }

  Context& context_;
  Installation installation_;
  ProbeSources sources_;
  AttachedDevices devices_;
  ServiceState state_ = ServiceState::kStopped;
  std::string log_;
  Checks checks_;
};

}  // namespace

Action DefineDoctor(CLI::App& app) {
  auto start = std::make_shared<bool>(false);
  app.add_flag("--start", *start, "Start the service when it does not run, to ask it");
  app.footer(
      "Exit status: 0 all is well, 1 a warning, 2 a problem that keeps probes away, 3 the service\n"
      "cannot be reached. With -H the service over there is started, and only what it says "
      "counts.");
  return [start](Context& context) { return Doctor(context).Run(*start); };
}

}  // namespace client
