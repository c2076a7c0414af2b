// Linked into clients only, programs and libraries: the interface table, which on Windows the
// registered type library supplies. A client's source is the same on both hosts and has no call for
// this, so the object runs by itself. It reads nothing that another initialiser fills.
#include "api/interface_table.h"
#include "platform/linux/automation/program_resources.h"

namespace {

[[gnu::constructor]] void NameInterfaceTable() {
  linux_host::SetProgramResources({.type_library = &api::kLibrary, .strings = {}});
}

}  // namespace
