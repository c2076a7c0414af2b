// The program that activation starts in tests: serves the sample class until its last client has
// gone. Notes its start in $WIREFOX_HOME/starts. With --fail as its first argument it ends at once
// without serving; with --die it does so when it is called; with --used-up the first five come and
// go as if others had used them.

#include <windows.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "platform/linux/automation/program_resources.h"
#include "tests/unit/platform/component/sample_class.h"

int main(int count, char** arguments) {
  const std::filesystem::path starts = std::string(std::getenv("WIREFOX_HOME")) + "/starts";
  const std::string note = std::string(arguments[count - 1]) + "\n";
  std::ofstream(starts, std::ios::app) << note;
  const std::string_view first = count > 1 ? arguments[1] : "";
  if (first == "--fail") return 2;
  sample::g_dies_at_creation = first == "--die";
  const bool is_used_up =
      first == "--used-up" && std::filesystem::file_size(starts) <= 5 * note.size();
  linux_host::SetProgramResources({&sample::kLibrary, {}});
  return sample::Serve(sample::ServeUntil::kLastObjectGone, [=] {
    if (is_used_up) PostThreadMessageW(GetCurrentThreadId(), WM_QUIT, 0, 0);
  });
}
