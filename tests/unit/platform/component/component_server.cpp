// The program that activation starts in tests: serves the sample class until its last client has
// gone. Notes its start in $WIREFOX_HOME/starts. With --fail as its first argument it ends at once
// without serving.

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/linux/program_resources.h"
#include "tests/unit/platform/component/sample_object.h"

namespace {

void NoteStart(const char* arguments) {
  const std::string path = std::string(std::getenv("WIREFOX_HOME")) + "/starts";
  std::FILE* file = std::fopen(path.c_str(), "a");
  if (file == nullptr) return;
  std::fprintf(file, "%s\n", arguments);
  std::fclose(file);
}

}  // namespace

int main(int count, char** arguments) {
  NoteStart(arguments[count - 1]);
  if (count > 1 && std::strcmp(arguments[1], "--fail") == 0) return 2;
  linux_host::SetProgramResources({&sample::kLibrary, {}});
  const DWORD thread = GetCurrentThreadId();
  return sample::Serve({}, [thread] { PostThreadMessageW(thread, WM_QUIT, 0, 0); });
}
