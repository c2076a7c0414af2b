#include "client/command.h"

#include <algorithm>
#include <utility>

#include "client/holders.h"
#include "client/similar.h"
#include "client/waiting.h"

namespace client {

namespace {

bool Fits(const Command& command, bool in_script) {
  return command.place == CommandPlace::kEverywhere ||
         (command.place == CommandPlace::kScriptOnly) == in_script;
}

std::vector<std::string> CommandNames(bool in_script) {
  std::vector<std::string> names;
  for (const Command& command : AllCommands()) {
    if (IsListed(command, in_script)) names.emplace_back(command.name);
  }
  return names;
}

std::string Joined(std::span<const std::string> words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

std::string UnknownCommand(std::span<const std::string> words, bool in_script) {
  const auto names = CommandNames(in_script);
  if (words.empty()) return "no command given; the commands are " + Joined(names);
  std::vector<std::string> options;
  for (const GlobalOption& option : kGlobalOptions) options.emplace_back(option.name);
  const bool is_option = !in_script && words[0].starts_with('-');
  const std::string offer = DidYouMean(words[0], is_option ? options : names);
  return "unknown command '" + words[0] + "'" +
         (offer.empty() ? "; the commands are " + Joined(names) : offer);
}

// For the first option that the command does not know. The parser names only what was wrong first.
std::string OptionOffer(CLI::App& app, std::span<const std::string> words) {
  std::vector<std::string> names;
  for (CLI::Option* known : OptionsOf(app)) {
    for (const std::string& name : known->get_lnames()) names.push_back("--" + name);
  }
  for (const std::string& word : words) {
    const std::string option = word.substr(0, word.find('='));
    if (option.starts_with('-') && std::ranges::find(names, option) == names.end()) {
      return DidYouMean(option, names);
    }
  }
  return "";
}

}  // namespace

HRESULT Context::TryConnect() {
  HRESULT status = S_OK;
  if (!service_) service_ = connector_(host, status);
  return status;
}

bool Context::Connect(int& exit_status) {
  const std::string waiting = "waiting for TzWirefoxService" + (host.empty() ? "" : " on " + host);
  output.ShowProgress(waiting);
  if (service_) return true;
  // On the way to another machine ssh may ask for a password.
  output.ShowProgress(host.empty() ? "starting TzWirefoxService" : "");
  const HRESULT status = TryConnect();
  // Its first answer comes when the firmware and FPGA of every probe that needs it are loaded.
  output.ShowProgress(waiting + ", which loads probes that need it first");
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

bool IsListed(const Command& command, bool in_script) {
  return Fits(command, in_script) && command.place != CommandPlace::kUnlisted;
}

std::unique_ptr<CLI::App> DefineApp(const Command& command, bool in_script, Action& action) {
  auto app = std::make_unique<CLI::App>(command.summary,
                                        std::string(in_script ? "" : "wfx ") + command.name);
  // Paths begin with a slash on both hosts.
  app->allow_windows_style_options(false);
  if (!in_script) app->add_flag("--json")->description("Print one JSON object per result");
  action = command.define(*app);
  return app;
}

std::vector<CLI::Option*> OptionsOf(CLI::App& app) {
  auto options = app.get_options();
  for (CLI::App* group : app.get_subcommands([](CLI::App*) { return true; })) {
    const auto grouped = group->get_options();
    options.insert(options.end(), grouped.begin(), grouped.end());
  }
  return options;
}

ParsedCommand ParseCommand(std::span<const std::string> words, bool in_script) {
  ParsedCommand parsed;
  const Command* command = words.empty() ? nullptr : FindCommand(words[0]);
  if (!command) {
    parsed.problem = UnknownCommand(words, in_script);
    return parsed;
  }
  if (!Fits(*command, in_script)) {
    parsed.problem = std::string("'") + command->name +
                     (in_script ? "' cannot be used in a script" : "' is for scripts only");
    return parsed;
  }
  Action action;
  const auto app = DefineApp(*command, in_script, action);
  // CLI11 takes the words from the back.
  std::vector<std::string> rest(words.rbegin(), std::prev(words.rend()));
  try {
    app->parse(rest);
  } catch (const CLI::CallForHelp&) {
    parsed.help = app->help();
    return parsed;
  } catch (const CLI::ParseError& error) {
    parsed.problem = std::string(command->name) + ": " + error.what() + OptionOffer(*app, words);
    return parsed;
  }
  parsed.takes_several_hosts = command->takes_several_hosts;
  const CLI::Option* const named = app->get_option_no_throw("PROBE");
  parsed.may_wait = named || command->waits_within;
  parsed.action = [action, command,
                   probe = named ? named->as<std::string>() : ""](Context& context) {
    int exit_status = kExitSuccess;
    context.output.BeginProgress();
    if (!command->needs_service) return action(context);
    if (!context.Connect(exit_status)) return exit_status;
    const Waiting waiting(context, probe);
    return action(context);
  };
  return parsed;
}

}  // namespace client
