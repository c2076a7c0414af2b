#include "client/command_line.h"

#include <algorithm>
#include <span>
#include <string_view>

#include "client/commands.h"
#include "client/several_hosts.h"

namespace client {

namespace {

// A word that only the shells' completion says.
constexpr const char* kComplete = "__complete";

std::string Overview() {
  static constexpr std::size_t kColumn = 14;
  std::string text =
      "wfx: talks to USB debug probes through TzWirefoxService\n"
      "\n"
      "Usage: wfx [--json] [--color WHEN] [-H [USER@]HOST]... COMMAND [ARGUMENTS]\n"
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

// What stood before the command.
struct GlobalOptions {
  std::vector<std::string> hosts;
  std::string colours = "auto";
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

// Takes what stands before the command; what is wrong with it, or nothing.
std::string TakeOptions(std::vector<std::string>& words, GlobalOptions& options) {
  std::size_t at = 0;
  for (; at < words.size(); ++at) {
    const std::string& word = words[at];
    if (word == "-H" || IsOption(word, "--host")) {
      const std::string host = TakeValue(words, at);
      if (host.empty() || host.starts_with('-')) return "-H wants a machine, [USER@]HOST";
      options.hosts.push_back(host);
    } else if (IsOption(word, "--color")) {
      options.colours = TakeValue(words, at);
      if (options.colours != "auto" && options.colours != "always" && options.colours != "never") {
        return "--color wants auto, always or never";
      }
    } else if (word != "--json") {
      break;
    }
  }
  words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(at));
  return "";
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments, const Connector& connector,
                   const Streams& given) {
  if (!arguments.empty() && arguments[0] == kComplete) {
    return Complete(std::span(arguments).subspan(1), connector, given.out);
  }
  std::vector<std::string> words = arguments;
  GlobalOptions options;
  const std::string problem = TakeOptions(words, options);
  Streams streams = given;
  if (options.colours != "auto") {
    streams.out_terminal.colours = streams.err_terminal.colours = options.colours == "always";
  }
  Output output(streams.out, streams.err, streams.out_terminal, streams.err_terminal);
  // Known before the words are parsed: also what is wrong with them is told as JSON.
  output.UseJson(std::ranges::count(arguments, "--json") > 0);
  if (!problem.empty()) return output.ReportUsage(problem + "; `wfx --help` tells more");
  const std::vector<std::string>& hosts = options.hosts;
  if (words.size() == 1 && words[0] == "--version")
    return output.Print("wfx " WIREFOX_VERSION "\n");
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
  if (hosts.size() > 1 && !FindCommand(words[0])->takes_several_hosts) {
    return output.ReportUsage("only `list` and `watch` take several machines");
  }
  if (hosts.size() > 1) return RunOnHosts(hosts, command.action, connector, streams, output.json());
  Context context(output, &streams.in, connector, hosts.empty() ? "" : hosts[0]);
  return command.action(context);
}

}  // namespace client
