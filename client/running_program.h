// The programs that hold targets, by their processes.
#pragma once

#include <cstdint>
#include <string>

namespace client {

struct RunningProgram {
  bool runs = false;
  // The file's name without its folder, without what a terminal would act on; empty when it does
  // not run, or the system keeps it from this account.
  std::string name;
};

RunningProgram ProgramOf(std::uint32_t pid);

// "4711 openocd", "4711 (ended)", or the number alone.
std::string DescribeProcess(std::uint32_t pid);

}  // namespace client
