// The program that activation starts in tests: serves the sample class until its last client has
// gone. Notes its start in $WIREFOX_HOME/starts. With --fail as its first argument it ends at once
// without serving.

#include <cstdlib>
#include <fstream>
#include <string_view>

#include "platform/linux/automation/program_resources.h"
#include "tests/unit/platform/component/sample_class.h"

int main(int count, char** arguments) {
  std::ofstream(std::string(std::getenv("WIREFOX_HOME")) + "/starts", std::ios::app)
      << std::string(arguments[count - 1]) + "\n";
  if (count > 1 && std::string_view(arguments[1]) == "--fail") return 2;
  linux_host::SetProgramResources({&sample::kLibrary, {}});
  return sample::Serve(sample::ServeUntil::kLastObjectGone, {});
}
