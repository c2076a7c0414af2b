#include "platform/linux/kernel/paths.h"

#include <windows.h>

#include <sys/auxv.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "platform/linux/kernel/home.h"
#include "platform/linux/kernel/text.h"

namespace linux_host {

std::string ExecutablePath() {
  std::string path(256, '\0');
  for (;;) {
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    if (length < 0) return {};
    if (static_cast<std::size_t>(length) < path.size()) {
      path.resize(static_cast<std::size_t>(length));
      break;
    }
    path.resize(path.size() * 2);
  }
  // The system marks an executable that was replaced while it ran; its folder is still the right
  // one.
  constexpr std::string_view kDeleted = " (deleted)";
  if (path.ends_with(kDeleted) && access(path.c_str(), F_OK) != 0) {
    path.resize(path.size() - kDeleted.size());
  }
  return path;
}

}  // namespace linux_host

namespace {

std::string TemporaryDirectory() {
  std::string path = "/tmp";
  if (!linux_host::InstallationHome().empty()) {
    // Two installations must not overwrite each other's devices-changed file, which lies here.
    path = linux_host::HomePath(linux_host::HomeKind::kState) + "/tmp";
    linux_host::MakeDirectories(path, 0700);
  } else if (const std::string named = linux_host::Variable("TMPDIR"); !named.empty()) {
    path = named;
  }
  if (!path.ends_with('/')) path += '/';
  return path;
}

}  // namespace

HMODULE GetModuleHandleW(LPCWSTR name) {
  // Where the program's image is, also for a library that is loaded into it.
  if (!name) return reinterpret_cast<HMODULE>(getauxval(AT_PHDR));
  SetLastError(ERROR_MOD_NOT_FOUND);
  return nullptr;
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD size) {
  if (module && module != GetModuleHandleW(nullptr)) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return 0;
  }
  const std::wstring full = linux_host::Utf8ToWide(linux_host::ExecutablePath());
  if (full.empty()) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return 0;
  }
  if (size == 0) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  const auto copied = std::min<std::size_t>(full.size(), size - 1);
  std::copy_n(full.data(), copied, path);
  path[copied] = 0;
  SetLastError(copied < full.size() ? ERROR_INSUFFICIENT_BUFFER : ERROR_SUCCESS);
  return copied < full.size() ? size : static_cast<DWORD>(copied);
}

DWORD GetTempPathW(DWORD size, LPWSTR path) {
  const std::wstring directory = linux_host::Utf8ToWide(TemporaryDirectory());
  if (directory.size() >= size) return static_cast<DWORD>(directory.size() + 1);
  std::copy_n(directory.c_str(), directory.size() + 1, path);
  return static_cast<DWORD>(directory.size());
}
