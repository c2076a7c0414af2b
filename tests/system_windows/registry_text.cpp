#include "tests/system_windows/registry_text.h"

#include <algorithm>
#include <iterator>

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

}  // namespace

Lines RegistryBelow(const std::string& root) {
  return support::RegistryLines(Exported(root), root.size() + 1);
}

Lines Differences(const Lines& before, const Lines& after) {
  Lines lines;
  std::ranges::set_difference(before, after, std::back_inserter(lines));
  for (std::string& line : lines) line.insert(0, 1, '-');
  const auto gone = std::ssize(lines);
  std::ranges::set_difference(after, before, std::back_inserter(lines));
  std::for_each(lines.begin() + gone, lines.end(),
                [](std::string& line) { line.insert(0, 1, '+'); });
  return lines;
}

}  // namespace system_windows
