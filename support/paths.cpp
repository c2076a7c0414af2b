#include "support/paths.h"

#include <windows.h>

#include <vector>

namespace {

// A backslash where names begin with a drive, a slash elsewhere.
constexpr wchar_t kSeparator = std::filesystem::path::preferred_separator;
constexpr bool kNamesBeginWithSlash = kSeparator == L'/';

constexpr DWORD kUsualPathUnits = 260;
constexpr DWORD kMaxPathUnits = 32768;

// A path longer than usual is not cut: a cut one would name another directory.
std::wstring ExecutablePath() {
  for (DWORD room = kUsualPathUnits; room <= kMaxPathUnits; room *= 2) {
    std::vector<wchar_t> path(room);
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), room);
    if (length < room) return std::wstring(path.data(), length);
  }
  return {};
}

}  // namespace

bool IsAbsoluteName(std::string_view name) {
  if (kNamesBeginWithSlash && name.starts_with('/')) return true;
  return name.size() >= 2 && name[1] == ':';
}

std::string GetModuleDirectory() {
  const std::wstring path = ExecutablePath();
  // Without a separator this is npos + 1, so nothing.
  return NarrowText(std::wstring_view(path).substr(0, path.rfind(kSeparator) + 1));
}

std::string NarrowText(std::wstring_view text) {
  if (text.empty()) return {};
  const auto length = static_cast<int>(text.size());
  const int needed =
      WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(needed > 0 ? needed : 0), '\0');
  WideCharToMultiByte(CP_ACP, 0, text.data(), length, narrow.data(), needed, nullptr, nullptr);
  return narrow;
}

std::filesystem::path StreamPath(const wchar_t* path) {
  // A wide path is native on one host; on the other it is UTF-16 in wider elements, which only the
  // system's own conversion takes apart.
  if (kNamesBeginWithSlash) return NarrowText(path);
  return path;
}
