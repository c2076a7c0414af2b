// The sizes of types in a type library file.
#pragma once

#include <cstdint>
#include <vector>

#include "base/interface_schema.h"

namespace type_library {

// Sets the size of every enumeration, alias and record of the library in `file`: the system's
// writer leaves some of them as wide as a pointer, or 0. False, and `file` as it was, when this is
// no type library that describes `described`.
bool MendSizeFields(std::vector<std::uint8_t>& file, const interface_schema::Library& described);

}  // namespace type_library
