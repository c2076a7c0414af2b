// Scripts: commands of the client line by line, run in one process over one connection.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "client/command.h"

namespace client {

// A line that does something.
struct ScriptLine {
  std::size_t number = 0;  // from 1
  bool may_fail =
      false;             // '-' in front: a failure of the service or target does not end the script
  std::string variable;  // "NAME =" in front, or empty
  std::vector<std::string> words;
};

// Splits a line; blanks separate, double quotes hold words with blanks together, '#' at the begin
// of a word starts a comment. A line without words comes back with none. Nothing, with the reason
// in `problem`, for a line that is not well formed.
std::optional<ScriptLine> ParseScriptLine(std::string_view line, std::string& problem);

// Parses the whole text before anything runs, then runs line by line until one fails. `name` stands
// in problems before the line's number. Sessions that are left at the end are released. Returns the
// exit status of the line that failed, or success.
int RunScript(Context& context, std::istream& text, const std::string& name);

}  // namespace client
