#include "client/offers.h"

#include <iterator>
#include <sstream>
#include <string_view>

namespace client {

namespace {

constexpr std::string_view kMark = "offers ";

}  // namespace

// An option keeps nothing of ours but validators: one that lets everything pass, and that help does
// not show, has the words for its name.
CLI::Option* Offer(CLI::Option* option, const std::string& words) {
  CLI::Validator carrier;
  carrier.name(std::string(kMark) + words).non_modifying();
  return option->check(carrier);
}

std::vector<std::string> OffersOf(CLI::Option& option) {
  try {
    // The parser tells that there is no further validator by this exception alone.
    for (int i = 0;; ++i) {
      const std::string& name = option.get_validator(i)->get_name();
      if (!name.starts_with(kMark)) continue;
      std::istringstream words(name.substr(kMark.size()));
      return {std::istream_iterator<std::string>(words), {}};
    }
  } catch (const CLI::OptionNotFound&) {
    return {};
  }
}

}  // namespace client
