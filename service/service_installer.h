// The entry of the service in the service control manager's database.
#pragma once

#include <string>

// Both return success or failure, and show a message box that names the step which failed. A box is
// titled with the service's name.

// Creates the service for this executable: on demand, own process, local system account, after
// RPCSS. One that is installed already counts as success.
[[nodiscard]] bool InstallService(const std::wstring& name);

// Asks the service to stop, does not wait for it, and deletes it. One that is not installed, or a
// manager that cannot be reached, counts as success.
[[nodiscard]] bool UninstallService(const std::wstring& name);
