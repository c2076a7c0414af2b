#include "client/command_line.h"

#include <algorithm>
#include <optional>
#include <sstream>

#include "client/command.h"
#include "client/numbers.h"
#include "client/service_log.h"
#include "client/service_state.h"
#include "client/several_hosts.h"

namespace client {

namespace {

std::string Overview() {
  static constexpr std::size_t kColumn = 14;
  std::string text =
      "wfx: talks to USB debug probes through TzWirefoxService\n"
      "\n"
      "Usage: wfx [--json] [-v] [--wait SECONDS] [-H [USER@]HOST]... COMMAND [ARGUMENTS]\n"
      "       wfx COMMAND --help\n"
      "       wfx --version\n"
      "\n"
      "Commands:\n";
  for (const Command& command : AllCommands()) {
    if (command.place == CommandPlace::kScriptOnly) continue;
    const std::string name = command.name;
    text += "  " + name + std::string(kColumn - name.size(), ' ') + command.summary + "\n";
  }
  text +=
      "\n"
      "First steps: `wfx list` names the probes, `wfx mode PROBE JTAG` chooses how to talk to the\n"
      "targets, `wfx targets PROBE` finds them. With --json each result is one line of JSON, with "
      "-H\n"
      "the probes are those of another machine (`list` and `watch` take several). --wait has the\n"
      "command wait for its probe to arrive and for targets that others hold, -v (--verbose) "
      "shows\n"
      "what the service wrote into its log meanwhile. When something does not work: `wfx doctor`.\n"
      "\n"
      "Exit status: 0 success, 1 the target did not answer well, 2 usage, 3 the service cannot be\n"
      "reached, 4 the output cannot be written, 10 + N the service answered with error N.\n";
  return text;
}

constexpr std::int64_t kMaxWaitSeconds = 1'000'000;

// What stands before the command.
struct GlobalOptions {
  std::vector<std::string> hosts;
  std::int64_t wait_seconds = 0;
  bool verbose = false;
};

// Takes them from the words. False, with the reason, when what one of them wants is missing.
bool TakeOptions(std::vector<std::string>& words, GlobalOptions& options, std::string& problem) {
  std::size_t at = 0;
  for (; at < words.size(); ++at) {
    const std::string& option = words[at];
    if (option == "--json") continue;
    if (option == "-v" || option == "--verbose") {
      options.verbose = true;
    } else if (option == "-H" || option == "--host") {
      if (++at == words.size() || words[at].empty() || words[at].starts_with('-')) {
        problem = "-H wants a machine, [USER@]HOST";
        return false;
      }
      options.hosts.push_back(words[at]);
    } else if (option == "--wait") {
      const auto seconds = ParseNumber(++at < words.size() ? words[at] : "", 0, kMaxWaitSeconds);
      if (!seconds) {
        problem = "--wait wants a number of seconds";
        return false;
      }
      options.wait_seconds = *seconds;
    } else {
      break;
    }
  }
  words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(at));
  return true;
}

// What the options make of the command that was found; empty when they go together.
std::string Mismatch(const GlobalOptions& options, const ParsedCommand& command) {
  if (options.hosts.size() > 1 && !command.takes_several_hosts) {
    return "only `list` and `watch` take several machines";
  }
  if (options.wait_seconds > 0 && !command.may_wait) {
    return "--wait is for commands that name a probe, and for scripts";
  }
  return "";
}

// Shows at its end what the service has written into its log meanwhile.
class LogWatch {
 public:
  explicit LogWatch(Output& output) : output_(output) {}
  ~LogWatch() {
    const std::string problem = log_.Problem();
    if (!problem.empty()) output_.Mention(problem);
    if (!problem.empty()) return;
    std::istringstream lines(log_.NewLines());
    for (std::string line; std::getline(lines, line);) output_.Mention(line, "log: ");
  }
  LogWatch(const LogWatch&) = delete;
  LogWatch& operator=(const LogWatch&) = delete;

 private:
  Output& output_;
  const Installation installation_ = FindInstallation();
  const ServiceLog log_{installation_, FindServiceState(installation_) != ServiceState::kStopped};
};

int Run(const Action& action, const GlobalOptions& options, const Connector& connector,
        const Streams& streams, Output& output) {
  const bool is_here = options.hosts.empty();
  std::optional<LogWatch> log;
  if (options.verbose && !is_here) output.Mention("the service's log is on its own machine");
  if (options.verbose && is_here) log.emplace(output);
  if (options.hosts.size() > 1) {
    return RunOnHosts(options.hosts, action, connector, streams, output.json());
  }
  Context context(output, &streams.in, connector, is_here ? "" : options.hosts[0]);
  context.wait_seconds = options.wait_seconds;
  return action(context);
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments, const Connector& connector,
                   const Streams& streams) {
  Output output(streams.out, streams.err, streams.err_is_terminal);
  output.UseTerminal(streams.out_is_terminal);
  std::vector<std::string> words = arguments;
  // Known before the words are parsed: also what is wrong with them is told as JSON.
  output.UseJson(std::ranges::count(words, "--json") > 0);
  GlobalOptions options;
  std::string problem;
  if (!TakeOptions(words, options, problem)) {
    return output.ReportUsage(problem + "; `wfx --help` tells more");
  }
  if (words.size() == 1 && words[0] == "--version")
    return output.Print("wfx " WIREFOX_VERSION "\n");
  if (!words.empty() && (words[0] == "--help" || words[0] == "-h" || words[0] == "help")) {
    if (words.size() == 1) {
      return output.Print(Overview());
    }
    words = {words[1], "--help"};
  }
  const ParsedCommand command = ParseCommand(words, false);
  if (!command.problem.empty()) {
    const bool known = !words.empty() && FindCommand(words[0]);
    const std::string more = known ? words[0] + " --help`" : "--help`";
    return output.ReportUsage(command.problem + "; `wfx " + more + " tells more");
  }
  if (!command.help.empty()) return output.Print(command.help);
  problem = Mismatch(options, command);
  if (!problem.empty()) return output.ReportUsage(problem);
  return Run(command.action, options, connector, streams, output);
}

}  // namespace client
