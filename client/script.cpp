#include "client/script.h"

#include <istream>

namespace client {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

bool IsVariableName(std::string_view text) {
  if (text.empty() || (text[0] >= '0' && text[0] <= '9')) return false;
  for (const char c : text) {
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    if (!letter && !(c >= '0' && c <= '9') && c != '_') return false;
  }
  return true;
}

// False when a quote is left open.
bool SplitWords(std::string_view line, std::vector<std::string>& words) {
  std::size_t at = 0;
  for (;;) {
    while (at < line.size() && IsBlank(line[at])) ++at;
    if (at == line.size() || line[at] == '#') return true;
    std::string& word = words.emplace_back();
    for (bool quoted = false; quoted || (at < line.size() && !IsBlank(line[at])); ++at) {
      if (at == line.size()) return false;
      if (line[at] == '"') {
        quoted = !quoted;
      } else {
        word += line[at];
      }
    }
  }
}

// A line with its command parsed.
struct Step {
  ScriptLine line;
  Action action;
};

std::optional<Step> ParseStep(std::string_view text, std::string& problem) {
  auto line = ParseScriptLine(text, problem);
  if (!line) return std::nullopt;
  Step step;
  step.line = std::move(*line);
  if (step.line.words.empty()) return step;
  ParsedCommand command = ParseCommand(step.line.words, true);
  const bool gives_session = step.line.words[0] == "acquire";
  if (command.problem.empty() && gives_session && step.line.variable.empty()) {
    command.problem = "acquire gives a session: write NAME = acquire PROBE";
  }
  if (command.problem.empty() && !gives_session && !step.line.variable.empty()) {
    command.problem = "only acquire gives something that a variable can keep";
  }
  if (command.problem.empty() && !command.action) {
    command.problem = "help is for the command line";
  }
  if (!command.problem.empty()) {
    problem = command.problem;
    return std::nullopt;
  }
  step.action = std::move(command.action);
  return step;
}

}  // namespace

std::optional<ScriptLine> ParseScriptLine(std::string_view line, std::string& problem) {
  ScriptLine parsed;
  if (!SplitWords(line, parsed.words)) {
    problem = "a quote is left open";
    return std::nullopt;
  }
  std::vector<std::string>& words = parsed.words;
  if (!words.empty() && words[0].starts_with('-')) {
    parsed.may_fail = true;
    words[0].erase(0, 1);
    if (words[0].empty()) words.erase(words.begin());
    if (words.empty()) {
      problem = "no command behind '-'";
      return std::nullopt;
    }
  }
  if (words.size() >= 2 && words[1] == "=") {
    if (!IsVariableName(words[0])) {
      problem = "'" + words[0] + "' is no name for a variable";
      return std::nullopt;
    }
    parsed.variable = words[0];
    words.erase(words.begin(), words.begin() + 2);
    if (words.empty()) {
      problem = "no command behind '='";
      return std::nullopt;
    }
  }
  return parsed;
}

int RunScript(Context& context, std::istream& text, const std::string& name) {
  std::vector<Step> steps;
  std::string line;
  for (std::size_t number = 1; std::getline(text, line); ++number) {
    std::string problem;
    auto step = ParseStep(line, problem);
    if (!step) {
      context.output.SetPlace(name + ":" + std::to_string(number) + ": ");
      return context.output.ReportUsage(problem);
    }
    if (step->line.words.empty()) continue;
    step->line.number = number;
    steps.push_back(std::move(*step));
  }
  int exit_status = kExitSuccess;
  for (const Step& step : steps) {
    context.output.SetPlace(name + ":" + std::to_string(step.line.number) + ": ");
    context.assign_to = step.line.variable;
    exit_status = step.action(context);
    // Without the service no later line can do anything either, nobody sees what it would print,
    // and a mistake in the script is none of the failures that its author meant to allow.
    const bool fatal =
        exit_status == kExitUnreachable || exit_status == kExitUsage || exit_status == kExitOutput;
    if (step.line.may_fail && !fatal) exit_status = kExitSuccess;
    if (exit_status != kExitSuccess) break;
  }
  context.ReleaseSessions();
  context.output.SetPlace("");
  return exit_status;
}

}  // namespace client
