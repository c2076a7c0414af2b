#include "platform/linux/kernel/home.h"

#include <errno.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace linux_host {
namespace {

std::string WithoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string UserHome() {
  std::string home = Variable("HOME");
  if (!home.empty()) return home;
  const passwd* account = getpwuid(geteuid());
  return account && account->pw_dir ? account->pw_dir : "/";
}

std::string UserPath(HomeKind kind) {
  if (kind == HomeKind::kState) {
    return UserFolder("XDG_STATE_HOME", ".local/state") + "/wirefox";
  }
  const std::string base = Variable("XDG_RUNTIME_DIR");
  if (!base.empty() && base.front() == '/') return base + "/wirefox";
  // Never below /tmp, where another account could have put the directory first.
  return UserPath(HomeKind::kState) + "/run";
}

}  // namespace

std::string Variable(const char* name) {
  const char* value = getenv(name);
  return value ? value : "";
}

bool MakeDirectories(const std::string& path, unsigned mode) {
  if (mkdir(path.c_str(), mode) == 0 || errno == EEXIST) return true;
  const std::size_t slash = path.rfind('/');
  if (errno != ENOENT || slash == std::string::npos || slash == 0) return false;
  if (!MakeDirectories(path.substr(0, slash), mode)) return false;
  return mkdir(path.c_str(), mode) == 0 || errno == EEXIST;
}

std::string InstallationHome() { return WithoutTrailingSlashes(Variable("WIREFOX_HOME")); }

uid_t MachineAccount() {
  struct stat state;
  const bool is_given =
      InstallationHome().empty() && stat(MachineHomePath(HomeKind::kRuntime).c_str(), &state) == 0;
  return is_given ? state.st_uid : 0;
}

bool IsMachinesAccount() { return geteuid() == 0 || geteuid() == MachineAccount(); }

bool ServesOtherAccounts() { return IsMachinesAccount() && InstallationHome().empty(); }

std::string UserFolder(const char* variable, const char* below) {
  const std::string folder = Variable(variable);
  return !folder.empty() && folder.front() == '/' ? folder : UserHome() + "/" + below;
}

std::string MachineHomePath(HomeKind kind) {
  const std::string home = InstallationHome();
  if (!home.empty()) return kind == HomeKind::kState ? home : home + "/run";
  return kind == HomeKind::kState ? "/var/lib/wirefox" : "/run/wirefox";
}

std::string HomePath(HomeKind kind) {
  const bool own_home = !Variable("WIREFOX_HOME").empty();
  const bool machine = own_home || IsMachinesAccount();
  std::string path = WithoutTrailingSlashes(machine ? MachineHomePath(kind) : UserPath(kind));
  // Users' clients of a service that root runs have to reach its socket.
  MakeDirectories(path, machine && !own_home ? 0755 : 0700);
  return path;
}

}  // namespace linux_host
