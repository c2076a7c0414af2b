// Linked into the service program only: what a Windows executable's start-up code and resource
// section do.
#include <windows.h>

#include <array>
#include <string>

#include "api/interface_table.h"
#include "platform/linux/automation/program_resources.h"
#include "platform/linux/com/leftovers.h"
#include "platform/linux/kernel/text.h"

namespace {

constexpr linux_host::StringResource kStrings[] = {{100, L"TzWirefoxService"}};

// The file that GetDevicesChangedLocation names to clients.
std::string ProbesFile() {
  std::array<WCHAR, MAX_PATH> folder = {};
  GetTempPathW(static_cast<DWORD>(folder.size()), folder.data());
  return linux_host::WideToUtf8(folder.data()) + "wfx.log";
}

// The command line without the program's name, which ends at the first blank that is not quoted.
LPWSTR ArgumentsOf(LPWSTR command_line) {
  bool quoted = false;
  while (*command_line && (quoted || (*command_line != L' ' && *command_line != L'\t'))) {
    if (*command_line == L'"') quoted = !quoted;
    ++command_line;
  }
  while (*command_line == L' ' || *command_line == L'\t') ++command_line;
  return command_line;
}

}  // namespace

int main() {
  linux_host::SetProgramResources(
      {.type_library = &api::kLibrary, .strings = kStrings, .probes_file = &ProbesFile});
  const int result =
      wWinMain(GetModuleHandleW(nullptr), nullptr, ArgumentsOf(GetCommandLineW()), SW_SHOWDEFAULT);
  linux_host::RemoveLeftovers(api::kLibrary);
  return result;
}
