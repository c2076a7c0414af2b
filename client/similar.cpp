#include "client/similar.h"

#include <algorithm>
#include <vector>

#include "client/text.h"

namespace client {

namespace {

constexpr std::size_t kMaxOffers = 2;

// Changes that make `to` out of `from`; two letters swapped are one.
std::size_t Distance(std::string_view from, std::string_view to) {
  // A row for each letter of `from`, and those of the two before it.
  std::vector<std::size_t> before(to.size() + 1);
  std::vector<std::size_t> last(to.size() + 1);
  std::vector<std::size_t> row(to.size() + 1);
  for (std::size_t j = 0; j <= to.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= from.size(); ++i) {
    before.swap(last);
    last.swap(row);
    row[0] = i;
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t other = from[i - 1] == to[j - 1] ? 0 : 1;
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + other});
      if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
        row[j] = std::min(row[j], before[j - 2] + 1);
      }
    }
  }
  return row.back();
}

}  // namespace

std::string DidYouMean(std::string_view word, std::span<const std::string> candidates) {
  const std::string typed = LowerCase(word);
  std::size_t nearest = (typed.size() + 1) / 3;
  std::vector<std::string_view> offers;
  for (const std::string& candidate : candidates) {
    const std::size_t distance = Distance(typed, LowerCase(candidate));
    if (distance > nearest || candidate == word) continue;
    if (distance < nearest) offers.clear();
    nearest = distance;
    if (offers.size() < kMaxOffers) offers.push_back(candidate);
  }
  if (offers.empty()) return "";
  std::string text(offers.front());
  for (std::size_t i = 1; i < offers.size(); ++i) text.append(" or ").append(offers[i]);
  return " (did you mean " + text + "?)";
}

}  // namespace client
