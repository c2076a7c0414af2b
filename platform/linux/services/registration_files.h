// The files by which systemd and the message buses know the server: where they lie, and how they
// are written and removed.
//
//                      root                                      users
//   kUnit              /etc/systemd/system                       ~/.config/systemd/user
//   kSystemActivation  /usr/local/share/dbus-1/system-services   none
//   kDBusPolicy         /etc/dbus-1/system.d                      none
//   kActivation        /usr/local/share/dbus-1/services          ~/.local/share/dbus-1/services
//
// $XDG_CONFIG_HOME and $XDG_DATA_HOME stand before ~/.config and ~/.local/share. With
// $WIREFOX_HOME set they are its subfolders systemd, dbus-1/system-services, dbus-1/system.d and
// dbus-1/services.
#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

namespace linux_host {

enum class RegistrationFolder {
  kUnit,
  kSystemActivation,  // of the system bus
  kDBusPolicy,        // of the system bus
  kActivation,        // of the session bus
};

// The folder, whether it exists or not. Empty for the system bus's folders when this account's
// services are not the machine's.
std::string FolderOf(RegistrationFolder folder);

// The folders of the units that this account may ask for: its own, and the machine's, a package's
// among them, unless $WIREFOX_HOME confines it.
std::vector<std::string> UnitFolders();

// Whether this account's services belong to the machine: to the system's manager and bus instead of
// the session's.
bool ServicesAreTheMachines();

// What an installation is told apart by, as far as it is set: $WIREFOX_HOME and $WIREFOX_BUS, which
// a server that systemd or a bus starts has to be given.
std::vector<std::pair<std::string, std::string>> InstallationVariables();

// Puts `text` into that file, whole or not at all, in place of an earlier one; the folder is made
// when it is missing. A system error code; 0 is success.
DWORD WriteRegistrationFile(const std::string& path, const std::string& text);

// Success also when there was none. A system error code.
DWORD RemoveRegistrationFile(const std::string& path);

// Removes those below $WIREFOX_HOME. The others are no folders of ours.
void RemoveEmptyRegistrationFolders();

// Whether a file of that name may be written there, or in a folder that would be made.
bool MayWriteTo(const std::string& folder);

}  // namespace linux_host
