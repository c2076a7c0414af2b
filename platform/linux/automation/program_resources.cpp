#include "platform/linux/automation/program_resources.h"

#include <windows.h>

#include <algorithm>
#include <cwchar>

namespace linux_host {
namespace {

// Constant-initialised, because the main objects fill it before other initialisers may have run.
constinit ProgramResources program_resources;

}  // namespace

void SetProgramResources(const ProgramResources& resources) { program_resources = resources; }

const ProgramResources& GetProgramResources() { return program_resources; }

}  // namespace linux_host

int LoadStringW(HINSTANCE, UINT id, LPWSTR buffer, int room) {
  if (!buffer || room < 0) return 0;
  const auto& strings = linux_host::GetProgramResources().strings;
  const auto found = std::find_if(strings.begin(), strings.end(),
                                  [id](const auto& entry) { return entry.id == id; });
  if (found == strings.end()) {
    if (room > 0) buffer[0] = 0;
    SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
    return 0;
  }
  const int length = static_cast<int>(std::wcslen(found->text));
  if (room == 0) {
    *reinterpret_cast<const wchar_t**>(buffer) = found->text;
    return length;
  }
  const int copied = std::min(length, room - 1);
  std::copy_n(found->text, copied, buffer);
  buffer[copied] = 0;
  return copied;
}
