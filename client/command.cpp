#include "client/command.h"

#include <algorithm>

#include "client/similar.h"

namespace client {

namespace {

CommandPlace WrongPlace(bool in_script) {
  return in_script ? CommandPlace::kCommandLineOnly : CommandPlace::kScriptOnly;
}

std::vector<std::string> CommandNames(bool in_script) {
  std::vector<std::string> names;
  for (const Command& command : AllCommands()) {
    if (command.place != WrongPlace(in_script)) names.emplace_back(command.name);
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
  static const std::vector<std::string> options(std::begin(kGlobalOptions),
                                                std::end(kGlobalOptions));
  const bool is_option = !in_script && words[0].starts_with('-');
  const std::string offer = DidYouMean(words[0], is_option ? options : names);
  return "unknown command '" + words[0] + "'" +
         (offer.empty() ? "; the commands are " + Joined(names) : offer);
}

// For the first option that the command does not know. The parser names only what was wrong first.
std::string OptionOffer(const CLI::App& app, std::span<const std::string> words) {
  std::vector<std::string> names;
  for (const CLI::Option* known : OptionsOf(app)) {
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

bool Context::Connect(int& exit_status) {
  if (service_) return true;
  HRESULT status = S_OK;
  service_ = connector_(host, status);
  if (service_) return true;
  exit_status = output.ReportUnreachable(status, host);
  return false;
}

int Context::Report(const Result& result) {
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

std::vector<const CLI::Option*> OptionsOf(const CLI::App& app) {
  auto options = app.get_options();
  for (const CLI::App* group : app.get_subcommands([](const CLI::App*) { return true; })) {
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
    parsed.problem = std::string(command->name) + ": " + error.what() + OptionOffer(app, words);
    return parsed;
  }
  parsed.action = [action, command](Context& context) {
    int exit_status = kExitSuccess;
    if (command->needs_service && !context.Connect(exit_status)) return exit_status;
    return action(context);
  };
  return parsed;
}

}  // namespace client
