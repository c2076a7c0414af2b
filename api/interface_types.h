// The enumerations and the record of the interface, in the order of the type library.
#pragma once

#include <array>

#include "base/interface_schema.h"

namespace api {

extern const std::array<interface_schema::UserType, 10> kUserTypes;

}  // namespace api
