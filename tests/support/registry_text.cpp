#include "tests/support/registry_text.h"

#include <algorithm>
#include <sstream>
#include <string_view>

#include "tests/support/process.h"

namespace support {
namespace {

#ifdef _WIN32
constexpr std::string_view kMarks = " WsS";  // of this host's lines
constexpr char kLibraries[] = "Typelib";
#else
constexpr std::string_view kMarks = " Ls";
constexpr char kLibraries[] = "TypeLib";
#endif

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

Lines RegistryLines(const std::string& text, std::size_t root_length) {
  std::istringstream input(text);
  Lines lines;
  std::string key;
  for (std::string line; std::getline(input, line);) {
    for (std::string more; line.ends_with('\\') && std::getline(input, more);) {
      line.pop_back();
      line += more.substr(more.find_first_not_of(' '));
    }
    if (line.starts_with('[')) {
      key = line.substr(1, line.size() - 2).erase(0, root_length);
      if (!key.empty()) lines.push_back(key);
    } else if (!key.empty() && (line.starts_with('"') || line.starts_with('@'))) {
      lines.push_back(key + "|" + Value(line));
    }
  }
  std::ranges::sort(lines);
  return lines;
}

Lines RegistrationLines(const std::filesystem::path& program, bool as_service) {
  std::istringstream input(ReadFile(WIREFOX_SOURCE_DIR "/tests/support/registration.txt"));
  Lines lines;
  for (std::string line; std::getline(input, line);) {
    const bool of_service = line[0] == 's' || line[0] == 'S';
    if (kMarks.find(line[0]) == kMarks.npos || (of_service && !as_service)) continue;
    line.erase(0, 2);
    for (const auto& [mark, text] : {std::pair<const char*, std::string>{"$P", program.string()},
                                     {"$F", program.parent_path().string()},
                                     {"$T", kLibraries}}) {
      if (const auto at = line.find(mark); at != line.npos) line.replace(at, 2, text);
    }
    lines.push_back(line);
  }
  std::ranges::sort(lines);
  return lines;
}

}  // namespace support
