// What a Windows executable carries in its resource section: here the program's main object names
// it once, before anything else runs.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "base/interface_schema.h"

namespace linux_host {

struct StringResource {
  std::uint32_t id;
  const wchar_t* text;
};

struct ProgramResources {
  const interface_schema::Library* type_library = nullptr;  // resource TYPELIB 1; null: none
  std::span<const StringResource> strings;
  // The file in which the program keeps a line with the name of each probe, written anew whenever
  // probes come or go: the message bus tells of it. Null: there is none.
  std::string (*probes_file)() = nullptr;
};

// Call once, first thing in main. The tables live as long as the process.
void SetProgramResources(const ProgramResources& resources);
const ProgramResources& GetProgramResources();

}  // namespace linux_host
