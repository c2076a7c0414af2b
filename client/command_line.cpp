#include "client/command_line.h"

#include <algorithm>

#include "client/command.h"
#include "client/several_hosts.h"

namespace client {

namespace {

std::string Overview() {
  static constexpr std::size_t kColumn = 14;
  std::string text =
      "wfx: talks to USB debug probes through TzWirefoxService\n"
      "\n"
      "Usage: wfx [--json] [-H [USER@]HOST]... COMMAND [ARGUMENTS]\n"
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
      "the probes are those of another machine (`list` and `watch` take several).\n"
      "\n"
      "Exit status: 0 success, 1 the target did not answer well, 2 usage, 3 the service cannot be\n"
      "reached, 4 the output cannot be written, 10 + N the service answered with error N.\n";
  return text;
}

// Takes what stands before the command. False when a machine's name is missing.
bool TakeOptions(std::vector<std::string>& words, std::vector<std::string>& hosts) {
  auto word = words.begin();
  for (; word != words.end() && (*word == "--json" || *word == "-H" || *word == "--host"); ++word) {
    if (*word == "--json") continue;
    if (++word == words.end() || word->empty() || word->starts_with('-')) return false;
    hosts.push_back(*word);
  }
  words.erase(words.begin(), word);
  return true;
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments, const Connector& connector,
                   const Streams& streams) {
  Output output(streams.out, streams.err, streams.err_is_terminal);
  output.UseTerminal(streams.out_is_terminal);
  std::vector<std::string> words = arguments;
  // Known before the words are parsed: also what is wrong with them is told as JSON.
  output.UseJson(std::ranges::count(words, "--json") > 0);
  std::vector<std::string> hosts;
  if (!TakeOptions(words, hosts)) {
    return output.ReportUsage("-H wants a machine, [USER@]HOST; `wfx --help` tells more");
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
  if (hosts.size() > 1 && !FindCommand(words[0])->takes_several_hosts) {
    return output.ReportUsage("only `list` and `watch` take several machines");
  }
  if (hosts.size() > 1) return RunOnHosts(hosts, command.action, connector, streams, output.json());
  Context context(output, &streams.in, connector, hosts.empty() ? "" : hosts[0]);
  return command.action(context);
}

}  // namespace client
