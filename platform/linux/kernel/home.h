// Where the layer keeps its files: under $WIREFOX_HOME when that is set, so that two installations
// never meet.
#pragma once

#include <sys/types.h>

#include <string>

namespace linux_host {

// Of the environment; empty when it is not set.
std::string Variable(const char* name);

enum class HomeKind {
  kState,    // survives a reboot: the registry hive, activation files
  kRuntime,  // means nothing once every process has ended: sockets, locks
};

// The directory of that kind for this account, created if it is missing (mode 0700; for the
// machine's and without $WIREFOX_HOME 0755), without a slash at its end.
//
//             $WIREFOX_HOME set    the machine's       users
//   kState    $WIREFOX_HOME        /var/lib/wirefox    $XDG_STATE_HOME/wirefox, else
//                                                      ~/.local/state/wirefox
//   kRuntime  $WIREFOX_HOME/run    /run/wirefox        $XDG_RUNTIME_DIR/wirefox, else
//                                                      "run" in the kState directory
//
// Also returned when it cannot be created: what is opened there then says why. The environment is
// read at each call.
std::string HomePath(HomeKind kind);

// The machine's own directory of that kind (the middle column), where users' clients look second;
// the same as HomePath when $WIREFOX_HOME is set. Not created.
std::string MachineHomePath(HomeKind kind);

// $WIREFOX_HOME without slashes at its end; empty when it is not set.
std::string InstallationHome();

// Where a package puts the service, and the registry hive that says so.
inline constexpr char kInstalledFolder[] = "/usr/lib/wirefox";

// The account of the machine's service: whom the machine's runtime directory was given to, which
// only root can do; else root.
uid_t MachineAccount();

// Whether this account, root or that one, keeps its files in the machine's own directories.
bool IsMachinesAccount();

// Whether this account's servers serve others: the machine's do, unless $WIREFOX_HOME confines
// them. Root's serve all accounts, those of the service's own account its group.
bool ServesOtherAccounts();

// A folder of the user's own: what `variable` names when that is an absolute path, else `below` in
// the home directory. Not created.
std::string UserFolder(const char* variable, const char* below);

// Creates `path` and the directories above it that are missing. False, with errno, on failure.
bool MakeDirectories(const std::string& path, unsigned mode);

}  // namespace linux_host
