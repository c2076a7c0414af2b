// What a mistyped word was perhaps meant to be.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace client {

// " (did you mean A or B?)", with the nearest of the candidates, two at most; empty when none is
// near. By the letters that are wrong, missing, too many or swapped; letter case counts for
// nothing.
std::string DidYouMean(std::string_view word, std::span<const std::string> candidates);

}  // namespace client
