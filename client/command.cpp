#include "client/command.h"

#include <algorithm>
#include <utility>

#include "client/holders.h"

#include "client/waiting.h"

namespace client {

namespace {

CommandPlace WrongPlace(bool in_script) {
  return in_script ? CommandPlace::kCommandLineOnly : CommandPlace::kScriptOnly;
}

std::string CommandNames(bool in_script) {
  std::string names;
  for (const Command& command : AllCommands()) {
    if (command.place == WrongPlace(in_script)) continue;
    if (!names.empty()) names += ", ";
    names += command.name;
  }
  return names;
}

}  // namespace

HRESULT Context::TryConnect() {
  HRESULT status = S_OK;
  if (!service_) service_ = connector_(host, status);
  return status;
}

bool Context::Connect(int& exit_status) {
  const HRESULT status = TryConnect();
  if (service_) return true;
  exit_status = output.ReportUnreachable(status, host);
  return false;
}

int Context::Report(Result result) {
  // The processes of another machine are not known here.
  if (result.error == TzErrorCode::IN_USE && host.empty()) NameHolders(*service_, result);
  if (FAILED(service_->call_failure())) {
    return output.ReportUnreachable(service_->call_failure(), host);
  }
  return output.Report(result);
}

void Context::ReleaseSessions() {
  for (const auto& [name, session] : sessions) service_->ReleaseDevice(session.handle);
  sessions.clear();
}

const Command* FindCommand(const std::string& name) {
  const auto commands = AllCommands();
  const auto found =
      std::ranges::find_if(commands, [&](const Command& command) { return name == command.name; });
  return found == commands.end() ? nullptr : &*found;
}

ParsedCommand ParseCommand(std::span<const std::string> words, bool in_script) {
  ParsedCommand parsed;
  const Command* command = words.empty() ? nullptr : FindCommand(words[0]);
  if (!command) {
    parsed.problem = words.empty() ? "no command given" : "unknown command '" + words[0] + "'";
    parsed.problem += "; the commands are " + CommandNames(in_script);
    return parsed;
  }
  if (command->place == WrongPlace(in_script)) {
    parsed.problem = std::string("'") + command->name +
                     (in_script ? "' cannot be used in a script" : "' is for scripts only");
    return parsed;
  }
  CLI::App app(command->summary, std::string(in_script ? "" : "wfx ") + command->name);
  // Paths begin with a slash on both hosts.
  app.allow_windows_style_options(false);
  if (!in_script) app.add_flag("--json")->description("Print one JSON object per result");
  const Action action = command->define(app);
  // CLI11 takes the words from the back.
  std::vector<std::string> rest(words.rbegin(), std::prev(words.rend()));
  try {
    app.parse(rest);
  } catch (const CLI::CallForHelp&) {
    parsed.help = app.help();
    return parsed;
  } catch (const CLI::ParseError& error) {
    parsed.problem = std::string(command->name) + ": " + error.what();
    return parsed;
  }
  parsed.takes_several_hosts = command->takes_several_hosts;
  const CLI::Option* const named = app.get_option_no_throw("PROBE");
  parsed.may_wait = named || command->waits_within;
  parsed.action = [action, command,
                   probe = named ? named->as<std::string>() : ""](Context& context) {
    int exit_status = kExitSuccess;
    if (!command->needs_service) return action(context);
    if (!context.Connect(exit_status)) return exit_status;
    const Waiting waiting(context, probe);
    return action(context);
  };
  return parsed;
}

}  // namespace client
