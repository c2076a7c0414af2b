#include "platform/linux/services/registration_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/kernel/file_descriptor.h"
#include "platform/linux/kernel/home.h"

namespace linux_host {
namespace {

DWORD ErrorOf(int error) {
  if (error == EACCES || error == EPERM || error == EROFS) return ERROR_ACCESS_DENIED;
  return error == ENOTDIR || error == ENOENT ? ERROR_PATH_NOT_FOUND : ERROR_WRITE_FAULT;
}

// Of the same folder, so that it can take the file's place; with an ending that neither systemd nor
// a bus looks at. One name for all: what a killed registration has left goes with the next one.
std::string PassingName(const std::string& path) { return path + ".new"; }

bool WriteWhole(const std::string& path, const std::string& text) {
  FileDescriptor file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
  // The managers and the buses run as other accounts, whatever this process's mask says.
  if (!file.is_open() || fchmod(file.get(), 0644) != 0) return false;
  return file.WriteAll(text) && fsync(file.get()) == 0;
}

struct Places {
  const char* below_home;
  const char* of_machine;
  const char* user_variable;
  const char* user_default;
  const char* below_user_folder;
};

constexpr Places kPlaces[] = {
    {"/systemd", "/etc/systemd/system", "XDG_CONFIG_HOME", ".config", "/systemd/user"},
    {"/dbus-1/system-services", "/usr/local/share/dbus-1/system-services", nullptr, nullptr,
     nullptr},
    {"/dbus-1/system.d", "/etc/dbus-1/system.d", nullptr, nullptr, nullptr},
    {"/dbus-1/services", "/usr/local/share/dbus-1/services", "XDG_DATA_HOME", ".local/share",
     "/dbus-1/services"},
};

}  // namespace

std::string FolderOf(RegistrationFolder folder) {
  const Places& places = kPlaces[static_cast<std::size_t>(folder)];
  const std::string home = InstallationHome();
  if (!ServicesAreTheMachines() && !places.user_variable) return "";
  if (!home.empty()) return home + places.below_home;
  if (ServicesAreTheMachines()) return places.of_machine;
  return UserFolder(places.user_variable, places.user_default) + places.below_user_folder;
}

std::vector<std::string> UnitFolders() {
  std::vector<std::string> folders = {FolderOf(RegistrationFolder::kUnit)};
  if (!InstallationHome().empty()) return folders;
  for (const char* folder : {"/etc/systemd/system", "/usr/lib/systemd/system"}) {
    if (folder != folders[0]) folders.emplace_back(folder);
  }
  return folders;
}

bool ServicesAreTheMachines() { return geteuid() == 0; }

std::vector<std::pair<std::string, std::string>> InstallationVariables() {
  std::vector<std::pair<std::string, std::string>> variables;
  for (const char* name : {"WIREFOX_HOME", "WIREFOX_BUS"}) {
    if (std::string value = Variable(name); !value.empty()) {
      variables.emplace_back(name, std::move(value));
    }
  }
  return variables;
}

DWORD WriteRegistrationFile(const std::string& path, const std::string& text) {
  const std::string passing = PassingName(path);
  if (MakeDirectories(path.substr(0, path.rfind('/')), 0755) && WriteWhole(passing, text) &&
      rename(passing.c_str(), path.c_str()) == 0) {
    return ERROR_SUCCESS;
  }
  const DWORD error = ErrorOf(errno);
  unlink(passing.c_str());
  return error;
}

DWORD RemoveRegistrationFile(const std::string& path) {
  unlink(PassingName(path).c_str());
  if (unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR) return ERROR_SUCCESS;
  return ErrorOf(errno);
}

void RemoveEmptyRegistrationFolders() {
  const std::string home = InstallationHome();
  if (home.empty()) return;
  for (const Places& places : kPlaces) rmdir((home + places.below_home).c_str());
  rmdir((home + "/dbus-1").c_str());
}

bool MayWriteTo(const std::string& folder) {
  std::string existing = folder;
  struct stat state;
  while (stat(existing.c_str(), &state) != 0) {
    const std::size_t slash = existing.rfind('/');
    if (errno != ENOENT || slash == std::string::npos || slash == 0) return false;
    existing.resize(slash);
  }
  return S_ISDIR(state.st_mode) &&
         faccessat(AT_FDCWD, existing.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

}  // namespace linux_host
