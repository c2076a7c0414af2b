// Writes the file of a type library from the table that describes the interface.
#pragma once

#include "base/interface_schema.h"

namespace type_library {

// The file is made anew. The status of the first call that failed; the file is then of no use.
[[nodiscard]] HRESULT WriteTypeLibrary(const interface_schema::Library& described,
                                       const wchar_t* path);

}  // namespace type_library
