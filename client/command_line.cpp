#include "client/command_line.h"

#include <algorithm>
#include <optional>
#include <span>
#include <sstream>
#include <string_view>

#include "client/commands.h"
#include "client/numbers.h"
#include "client/service_log.h"
#include "client/service_state.h"
#include "client/several_hosts.h"
#include "client/text.h"

namespace client {

namespace {

// A word that only the shells' completion says.
constexpr const char* kComplete = "__complete";

std::string Overview() {
  static constexpr std::size_t kColumn = 14;
  std::string text =
      "wfx: talks to USB debug probes through TzWirefoxService\n"
      "\n"
      "Usage: wfx [--json] [-v] [--wait SECONDS] [--color WHEN] [-H [USER@]HOST]... COMMAND "
      "[ARGUMENTS]\n"
      "       wfx COMMAND --help\n"
      "       wfx --version\n"
      "\n"
      "Commands:\n";
  for (const Command& command : AllCommands()) {
    if (!IsListed(command, false)) continue;
    const std::string name = command.name;
    text += "  " + name + std::string(kColumn - name.size(), ' ') + command.summary + "\n";
  }
  text.append("\n").append(kFirstSteps).append("\n").append(kExitStatusHelp);
  return text;
}

constexpr std::int64_t kMaxWaitSeconds = 1'000'000;

// What stands before the command.
struct GlobalOptions {
  std::vector<std::string> hosts;
  std::string colours = "auto";
  std::int64_t wait_seconds = 0;
  bool verbose = false;
};

bool IsOption(const std::string& word, std::string_view name) {
  return word == name || (word.starts_with(name) && word[name.size()] == '=');
}

// Takes an option's value, which stands behind it or behind its '='.
std::string TakeValue(std::span<const std::string> words, std::size_t& at) {
  const std::size_t equals = words[at].find('=');
  if (equals != std::string::npos) return words[at].substr(equals + 1);
  return ++at < words.size() ? words[at] : "";
}

// Takes the option that stands there, whose value makes it go on. False: there is none.
bool TakeOption(std::span<const std::string> words, std::size_t& at, GlobalOptions& options,
                std::string& problem) {
  const std::string& word = words[at];
  if (word == "--json") return true;
  if (word == "-v" || word == "--verbose") {
    options.verbose = true;
  } else if (word == "-H" || IsOption(word, "--host")) {
    const std::string host = TakeValue(words, at);
    if (host.empty() || host.starts_with('-')) problem = "-H wants a machine, [USER@]HOST";
    options.hosts.push_back(host);
  } else if (IsOption(word, "--wait")) {
    const auto seconds = ParseNumber(TakeValue(words, at), 0, kMaxWaitSeconds);
    if (!seconds) problem = "--wait wants a number of seconds";
    options.wait_seconds = seconds.value_or(0);
  } else if (IsOption(word, "--color")) {
    options.colours = TakeValue(words, at);
    static constexpr std::string_view kColours[] = {"auto", "always", "never"};
    if (std::ranges::find(kColours, options.colours) == std::end(kColours)) {
      problem = "--color wants auto, always or never";
    }
  } else {
    return false;
  }
  return true;
}

// Takes what stands before the command; what is wrong with it, or nothing.
std::string TakeOptions(std::vector<std::string>& words, GlobalOptions& options) {
  std::string problem;
  std::size_t at = 0;
  while (at < words.size() && TakeOption(words, at, options, problem)) {
    if (!problem.empty()) return problem;
    ++at;
  }
  words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(at));
  return "";
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
    for (std::string line; std::getline(lines, line);) output_.Mention(Printable(line), "log: ");
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
                   const Streams& given) {
  if (!arguments.empty() && arguments[0] == kComplete) {
    return Complete(std::span(arguments).subspan(1), connector, given.out);
  }
  std::vector<std::string> words = arguments;
  GlobalOptions options;
  std::string problem = TakeOptions(words, options);
  Streams streams = given;
  if (options.colours != "auto") {
    streams.out_terminal.colours = streams.err_terminal.colours = options.colours == "always";
  }
  Output output(streams.out, streams.err, streams.out_terminal, streams.err_terminal);
  // Known before the words are parsed: also what is wrong with them is told as JSON.
  output.UseJson(std::ranges::count(arguments, "--json") > 0);
  if (!problem.empty()) return output.ReportUsage(problem + "; `wfx --help` tells more");
  if (!words.empty() && words[0] == "--version") return output.Print("wfx " WIREFOX_VERSION "\n");
  if (!words.empty() && (words[0] == "--help" || words[0] == "-h" || words[0] == "help")) {
    if (words.size() == 1) {
      return output.PrintHelp(Overview());
    }
    words = {words[1], "--help"};
  }
  const ParsedCommand command = ParseCommand(words, false);
  if (!command.problem.empty()) {
    const bool known = !words.empty() && FindCommand(words[0]);
    const std::string more = known ? words[0] + " --help`" : "--help`";
    return output.ReportUsage(command.problem + "; `wfx " + more + " tells more");
  }
  if (!command.help.empty()) return output.PrintHelp(command.help);
  problem = Mismatch(options, command);
  if (!problem.empty()) return output.ReportUsage(problem);
  return Run(command.action, options, connector, streams, output);
}

}  // namespace client
