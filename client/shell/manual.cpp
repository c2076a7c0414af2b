// The manual page, in the macros of man(7).
#include <algorithm>
#include <sstream>
#include <string>

#include "client/commands.h"

namespace client {

namespace {

// Text as it is: what the formatter would take for its own, or for a nicer character, is escaped.
std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    const bool begins_line = escaped.empty() || escaped.back() == '\n';
    switch (c) {
      case '\\':
        escaped += "\\e";
        break;
      case '-':
        escaped += "\\-";
        break;
      case '`':
        escaped += "\\(ga";
        break;
      case '^':
        escaped += "\\(ha";
        break;
      case '~':
        escaped += "\\(ti";
        break;
      case '\'':
        escaped += "\\(aq";
        break;
      case '.':
        escaped += begins_line ? "\\&." : ".";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

// A sentence that help breaks into lines.
std::string Paragraph(std::string_view text) {
  std::string line(text);
  std::ranges::replace(line, '\n', ' ');
  while (line.ends_with(' ')) line.pop_back();
  return Escaped(line) + "\n";
}

// Lines that stay as they are.
std::string Verbatim(std::string_view text) { return ".PP\n.nf\n" + Escaped(text) + "\n.fi\n"; }

std::string Item(const std::string& name, const std::string& value, const std::string& text) {
  std::string tag = name.empty() ? "" : "\\fB" + Escaped(name) + "\\fR";
  if (!name.empty() && !value.empty()) tag += ' ';
  if (!value.empty()) tag += "\\fI" + Escaped(value) + "\\fR";
  return ".TP\n" + tag + "\n" + Paragraph(text);
}

std::string OptionNames(const CLI::Option& option) {
  std::string names;
  const auto add = [&](const std::string& name) { names += (names.empty() ? "" : ", ") + name; };
  for (const std::string& name : option.get_snames()) add("-" + name);
  for (const std::string& name : option.get_lnames()) add("--" + name);
  return names;
}

// Behind a command's name: what it wants.
std::string Synopsis(CLI::App& app) {
  std::string text = " [\\fIOPTIONS\\fR]";
  for (const CLI::Option* option : OptionsOf(app)) {
    if (!option->get_positional()) continue;
    text += " \\fI" + Escaped(option->get_name(true)) + "\\fR";
    if (option->get_items_expected_max() > 1) text += "...";
  }
  return text;
}

// What every command has is told once.
bool IsCommon(const CLI::Option& option) {
  return option.check_name("--help") || option.check_name("--json");
}

std::string CommandSection(const Command& command) {
  Action action;
  const auto app = DefineApp(command, command.place == CommandPlace::kScriptOnly, action);
  std::string text =
      ".SS " + Escaped(command.name) + "\n" + Paragraph(command.summary + std::string("."));
  text += ".PP\n\\fBwfx " + Escaped(command.name) + "\\fR" + Synopsis(*app) + "\n";
  for (const CLI::Option* option : OptionsOf(*app)) {
    if (IsCommon(*option)) continue;
    const bool takes_value = !option->get_positional() && option->get_items_expected_max() > 0;
    text += option->get_positional()
                ? Item("", option->get_name(true), option->get_description())
                : Item(OptionNames(*option), takes_value ? "VALUE" : "", option->get_description());
  }
  if (!app->get_footer().empty()) text += Verbatim(app->get_footer());
  return text;
}

std::string Page() {
  std::string text = ".TH WFX 1 \"\" \"Wirefox " WIREFOX_VERSION "\" \"User Commands\"\n";
  text +=
      ".SH NAME\nwfx \\- talk to USB debug probes\n"
      ".SH SYNOPSIS\n"
      "\\fBwfx\\fR [\\fB\\-\\-json\\fR] [\\fB\\-v\\fR] [\\fB\\-\\-wait\\fR \\fISECONDS\\fR] "
      "[\\fB\\-\\-color\\fR \\fIWHEN\\fR] "
      "[\\fB\\-H\\fR [\\fIUSER\\fR@]\\fIHOST\\fR]... \\fICOMMAND\\fR [\\fIARGUMENTS\\fR]\n"
      ".SH DESCRIPTION\nTalks to USB debug probes through TzWirefoxService.\n";
  text += Paragraph(kFirstSteps) + ".SH OPTIONS\n";
  for (const GlobalOption& option : kGlobalOptions) {
    text += Item(option.name, option.value ? option.value : "", option.help + std::string("."));
  }
  text += ".SH COMMANDS\n";
  for (const Command& command : AllCommands()) {
    if (IsListed(command, false)) text += CommandSection(command);
  }
  text += ".SH EXIT STATUS\n" + Paragraph(std::string_view(kExitStatusHelp).substr(13));
  text += ".SH ENVIRONMENT\n";
  text += Item("NO_COLOR", "",
               "When it is set and not empty, nothing is coloured unless --color says so.");
  text += Item("TERM", "", "When it is dumb, nothing is coloured and no progress is shown.");
  text += Item("WIREFOX_HOME", "", "Folder of one installation: registry hive, sockets, locks.");
  text += Item("WIREFOX_BUS", "",
               "sim:SOCKET has a service that this client starts use a simulated bench.");
  return text + ".SH SEE ALSO\n.BR TzWirefoxService (8),\n.BR wfxsim (1)\n";
}

}  // namespace

Action DefineManual(CLI::App&) {
  return [](Context& context) { return context.output.Print(Page()); };
}

}  // namespace client
