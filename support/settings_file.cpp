#include "support/settings_file.h"

#include <fstream>
#include <map>
#include <string>
#include <string_view>

namespace {

constexpr char kEndOfText = 0x1A;

using SettingsTable = std::map<std::string, std::string, std::less<>>;

// Never destroyed: the values' texts are in use until the process ends, on threads that nobody
// waits for.
SettingsTable& Settings() {
  static auto& table = *new SettingsTable;
  return table;
}

// Letters a to z only, whatever the locale: keys are bytes.
std::string UpperCased(std::string_view key) {
  std::string upper(key);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

std::string_view WithoutEnclosingQuotes(std::string_view value) {
  if (value.empty() || value.front() != '"' || value.back() != '"') return value;
  // A single quote is both the first and the last character; nothing is left of it.
  return value.substr(1, value.size() < 2 ? 0 : value.size() - 2);
}

// Nothing is trimmed: blanks beside the equals sign belong to the key or to the value. Section
// headers and other lines without an equals sign mean nothing.
void TakeLine(std::string_view line) {
  if (line.starts_with(';')) return;
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) return;
  // The first line with a key wins.
  Settings().emplace(UpperCased(line.substr(0, equals)),
                     WithoutEnclosingQuotes(line.substr(equals + 1)));
}

}  // namespace

void ReadSettings(const char* path) {
  // Binary, so that both hosts read the same: the CR of a CR LF is dropped below, and a file from a
  // host where Ctrl-Z ends a text ends there.
  std::ifstream file(path, std::ios::binary);
  std::string line;
  while (std::getline(file, line)) {
    const std::size_t end = line.find(kEndOfText);
    const bool ended_by_lf = !file.eof();
    if (ended_by_lf && line.ends_with('\r')) line.pop_back();
    TakeLine(std::string_view(line).substr(0, end));
    if (end != std::string::npos) return;
  }
}

const char* GetSetting(const char* key) {
  const auto found = Settings().find(UpperCased(key));
  return found == Settings().end() ? "" : found->second.c_str();
}
