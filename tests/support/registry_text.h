// The registry as text: a line for each key and each value, and what a registration writes there.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace support {

using Lines = std::vector<std::string>;

// Of an exported registry: keys without their first `root_length` characters, and values as
// key|name=data, @ being the default one and texts as they are, between quotes. Sorted.
Lines RegistryLines(const std::string& text, std::size_t root_length);

// The lines of registration.txt for this host and program. Sorted.
Lines RegistrationLines(const std::filesystem::path& program, bool as_service);

}  // namespace support
