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
  std::istream* input;     // standard input; null when the script itself comes from there
  const std::string host;  // whose service it is; empty for this machine's
  std::map<std::string, Session> sessions;
  std::string assign_to;  // the variable in front of the command that runs, or empty

  // Valid while a command runs.
  ServiceClient& service() { return *service_; }

  // Makes the connection unless it stands. False after having reported that it cannot be made.
  bool Connect(int& exit_status);

  // Prints the result, unless the connection broke on the way to it, which is then what is printed.
  // Returns the exit status.
  int Report(const Result& result);

  // Gives up the sessions that a script still holds.
  void ReleaseSessions();

 private:
  Connector connector_;
  std::unique_ptr<ServiceClient> service_;
};

// Returns the exit status.
using Action = std::function<int(Context&)>;

enum class CommandPlace { kEverywhere, kCommandLineOnly, kScriptOnly };

struct Command {
  const char* name;
  const char* summary;
  CommandPlace place;
  // Adds the command's options to `app`. The action holds what was parsed into them, and runs after
  // the parsing, if at all.
  Action (*define)(CLI::App& app);
  bool needs_service = true;         // false: the action connects when it needs to
  bool takes_several_hosts = false;  // it may run for several machines at once
};

// What may stand before a command on the command line.
inline constexpr const char* kGlobalOptions[] = {"--json", "--host", "--help", "--version"};

// In the order of the overview; null for an unknown name.
std::span<const Command> AllCommands();
const Command* FindCommand(const std::string& name);

// All of a command's options and arguments, with those that stand in groups.
std::vector<const CLI::Option*> OptionsOf(const CLI::App& app);

struct ParsedCommand {
  Action action;        // empty when there is nothing to run
  std::string problem;  // a usage error
  std::string help;     // what --help asked for
};

// Parses the words of one command, its name first.
ParsedCommand ParseCommand(std::span<const std::string> words, bool in_script);

}  // namespace client
