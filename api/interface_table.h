// The description of the component interface: everything that the type library on Windows and the
// message bus interfaces on Linux are made from.
#pragma once

#include "base/interface_schema.h"

namespace api {

// Constant-initialised, so it may be used before main runs; lives as long as the process.
extern const interface_schema::Library kLibrary;

}  // namespace api
