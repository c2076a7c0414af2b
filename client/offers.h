// What a shell's completion may offer as the value of an option or argument.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace client {

// Words that stand for more than themselves.
inline constexpr const char* kProbeOffer = "<probe>";
inline constexpr const char* kFileOffer = "<file>";
inline constexpr const char* kAtFileOffer = "@<file>";  // a file behind an @

// `words` are separated by blanks.
CLI::Option* Offer(CLI::Option* option, const std::string& words);

std::vector<std::string> OffersOf(CLI::Option& option);

}  // namespace client
