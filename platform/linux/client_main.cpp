// Linked into client programs only: names the interface table that on Windows the registered type
// library would supply. A client's source is the same on both hosts and has no call for this, so
// the object registers itself before main. It reads nothing that another initialiser fills.
#include "api/interface_table.h"
#include "platform/linux/automation/program_resources.h"

namespace {

[[gnu::constructor]] void NameInterfaceTable() {
  linux_host::SetProgramResources({.type_library = &api::kLibrary, .strings = {}});
}

}  // namespace
