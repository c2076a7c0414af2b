// Bytes as tests write and print them: two digits each, runs of eight or more as F0*13.
#pragma once

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace unit {

using Bytes = std::vector<std::uint8_t>;

inline std::string HexText(const Bytes& bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size();) {
    std::size_t run = 1;
    while (i + run < bytes.size() && bytes[i + run] == bytes[i]) ++run;
    if (run < 8) run = 1;
    char digits[32];
    std::snprintf(digits, sizeof digits, run > 1 ? "%02X*%zu" : "%02X", bytes[i], run);
    text.append(text.empty() ? "" : " ").append(digits);
    i += run;
  }
  return text;
}

inline Bytes HexBytes(const std::string& text) {
  Bytes bytes;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const std::size_t star = word.find('*');
    const std::size_t count = star == std::string::npos ? 1 : std::stoul(word.substr(star + 1));
    bytes.insert(bytes.end(), count,
                 static_cast<std::uint8_t>(std::stoul(word.substr(0, star), nullptr, 16)));
  }
  return bytes;
}

}  // namespace unit
