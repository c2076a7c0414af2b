#include "tests/system_windows/registry_text.h"

#include <algorithm>
#include <iterator>
#include <sstream>

#include "tests/system_windows/programs.h"

namespace system_windows {
namespace {

// The keys at and below `root` in the system's own text form, without what is not ASCII.
std::string Exported(const std::string& root) {
  const auto file = std::filesystem::temp_directory_path() / "wirefox-registry.reg";
  RunToEnd({"reg.exe", "export", root, file.string(), "/y"});
  const std::string wide = ReadFile(file);  // UTF-16 after a byte-order mark
  std::filesystem::remove(file);
  std::string text;
  for (std::size_t i = 2; i + 1 < wide.size(); i += 2) {
    if (wide[i] != '\r') text += wide[i + 1] == 0 && wide[i] >= 0 ? wide[i] : '?';
  }
  return text;
}

// Without what stands between quotes for their sake.
std::string Unquoted(const std::string& text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    plain += text[i];
  }
  return plain;
}

// A value's line, the name in quotes unless it is the default one.
std::string Value(const std::string& line) {
  std::size_t end = line.find('=');
  if (line[0] == '"') {
    for (end = 1; line[end] != '"'; ++end) end += line[end] == '\\';
    ++end;
  }
  const std::string name = line[0] == '"' ? Unquoted(line.substr(1, end - 2)) : "@";
  std::string data = line.substr(end + 1);
  if (data[0] == '"')
    return std::string(name) + "=\"" + Unquoted(data.substr(1, data.size() - 2)) + "\"";
  std::erase(data, ',');
  if (data.starts_with("hex(3)")) data.erase(3, 3);
  return name + "=" + data;
}

}  // namespace

std::vector<std::string> RegistryLines(const std::string& root) {
  std::istringstream input(Exported(root));
  std::vector<std::string> lines;
  std::size_t root_length = 0;  // of the first key, with the separator behind it
  std::string key;
  for (std::string line; std::getline(input, line);) {
    for (std::string more; line.ends_with('\\') && std::getline(input, more);) {
      line.pop_back();
      line += more.substr(more.find_first_not_of(' '));
    }
    if (line.starts_with('[')) {
      key = line.substr(1, line.size() - 2);
      if (root_length == 0) root_length = key.size() + 1;
      key.erase(0, root_length);
      if (!key.empty()) lines.push_back(key);
    } else if (!key.empty() && (line.starts_with('"') || line.starts_with('@'))) {
      lines.push_back(key + "|" + Value(line));
    }
  }
  return lines;
}

std::vector<std::string> Differences(std::vector<std::string> before,
                                     std::vector<std::string> after) {
  std::ranges::sort(before);
  std::ranges::sort(after);
  std::vector<std::string> lines;
  std::ranges::set_difference(before, after, std::back_inserter(lines));
  for (std::string& line : lines) line.insert(0, 1, '-');
  const auto gone = std::ssize(lines);
  std::ranges::set_difference(after, before, std::back_inserter(lines));
  std::for_each(lines.begin() + gone, lines.end(),
                [](std::string& line) { line.insert(0, 1, '+'); });
  return lines;
}

}  // namespace system_windows
