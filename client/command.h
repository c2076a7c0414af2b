// A command of the client: its name, its options, and what it does with the service. The command
// line and scripts share the commands and the way in which they are parsed and run.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <istream>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "client/output.h"
#include "client/service_client.h"

namespace client {

// A target that a script holds, under the name of a variable.
struct Session {
  std::string probe;
  std::int64_t handle = 0;
};

// What a command works with. One for a whole script.
class Context {
 public:
  Context(Output& output, std::istream* input, Connector connector, std::string host = "")
      : output(output), input(input), host(std::move(host)), connector_(std::move(connector)) {}

  Output& output;
  std::istream* input;            // standard input; null when the script itself comes from there
  const std::string host;         // whose service it is; empty for this machine's
  std::int64_t wait_seconds = 0;  // how long a command may wait for its probe or target
  std::map<std::string, Session> sessions;
  std::string assign_to;  // the variable in front of the command that runs, or empty

  // Valid while a command runs.
  ServiceClient& service() { return *service_; }

  // Makes the connection unless it stands.
  HRESULT TryConnect();
  // The same. False after having reported that it cannot be made.
  bool Connect(int& exit_status);

  // Prints the result, with who holds the probe when that is why it failed, unless the connection
  // broke on the way to it, which is then what is printed.
  // Returns the exit status.
  int Report(Result result);

  // Gives up the sessions that a script still holds.
  void ReleaseSessions();

 private:
  Connector connector_;
  std::unique_ptr<ServiceClient> service_;
};

// Returns the exit status.
using Action = std::function<int(Context&)>;

// An unlisted command is for the command line, and told nowhere but in the documents.
enum class CommandPlace { kEverywhere, kCommandLineOnly, kScriptOnly, kUnlisted };

struct Command {
  const char* name;
  const char* summary;
  CommandPlace place;
  // Adds the command's options to `app`. The action holds what was parsed into them, and runs after
  // the parsing, if at all.
  Action (*define)(CLI::App& app);
  bool needs_service = true;         // false: the action connects when it needs to
  bool takes_several_hosts = false;  // it may run for several machines at once
  bool waits_within = false;         // the commands in it may wait for probes
};

// What may stand before a command on the command line, or in its place.
struct GlobalOption {
  const char* name;
  const char* value;   // null: it takes none
  const char* offers;  // for its value
  const char* help;
};
inline constexpr GlobalOption kGlobalOptions[] = {
    {"--json", nullptr, "", "Print one JSON object per result; may also stand behind the command"},
    {"--host", "[USER@]HOST", "",
     "Use the probes of another machine, through ssh; also -H. `list` and `watch` take several"},
    {"--wait", "SECONDS", "",
     "Wait so long for the command's probe to arrive, and for targets that others hold"},
    {"--verbose", nullptr, "",
     "Show what the service wrote into its log during the command; also -v"},
    {"--color", "WHEN", "auto always never",
     "Whether to colour: always, never, or auto, which is on a terminal unless NO_COLOR is set"},
    {"--help", nullptr, "", "Print help; behind a command its own"},
    {"--version", nullptr, "", "Print the client's version"},
};

inline constexpr const char* kFirstSteps =
    "First steps: `wfx list` names the probes, `wfx mode PROBE JTAG` chooses how to talk to the\n"
    "targets, `wfx targets PROBE` finds them. With --json each result is one line of JSON, with "
    "-H\n"
    "the probes are those of another machine (`list` and `watch` take several). --wait has the\n"
    "command wait for its probe to arrive and for targets that others hold, -v (--verbose) shows\n"
    "what the service wrote into its log meanwhile. When something does not work: `wfx doctor`.\n";
inline constexpr const char* kExitStatusHelp =
    "Exit status: 0 success, 1 the target did not answer well, 2 usage, 3 the service cannot be\n"
    "reached, 4 the output cannot be written, 10 + N the service answered with error N.\n";

// In the order of the overview; null for an unknown name.
std::span<const Command> AllCommands();
const Command* FindCommand(const std::string& name);

// Whether the overview names it.
bool IsListed(const Command& command, bool in_script);

// The command's parser, and the action that holds what is parsed.
std::unique_ptr<CLI::App> DefineApp(const Command& command, bool in_script, Action& action);

// All of a command's options and arguments, with those that stand in groups.
std::vector<CLI::Option*> OptionsOf(CLI::App& app);

struct ParsedCommand {
  Action action;        // empty when there is nothing to run
  std::string problem;  // a usage error
  std::string help;     // what --help asked for
  bool takes_several_hosts = false;
  bool may_wait = false;  // it names a probe, or its commands do
};

// Parses the words of one command, its name first.
ParsedCommand ParseCommand(std::span<const std::string> words, bool in_script);

}  // namespace client
