// The USB descriptors that a simulated probe presents.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "sim/description/description.h"

namespace sim {

// The descriptor that a GET_DESCRIPTOR request with this wValue asks for, whole; none:
// the probe has no such descriptor and stalls. `configured` tells which of its two identities the
// probe presents: a fresh controller has one interface without endpoints, a configured probe one
// with its five bulk endpoints.
std::optional<std::vector<std::uint8_t>> FindDescriptor(const ProbeDescription& probe,
                                                        bool configured, std::uint16_t value);

}  // namespace sim
