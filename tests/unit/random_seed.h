// The seed of a random test: printed, and taken from WIREFOX_TEST_SEED to run a failure again.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace unit {

inline std::uint32_t RandomSeed() {
  const char* const given = std::getenv("WIREFOX_TEST_SEED");
  const auto seed = given ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10))
                          : static_cast<std::uint32_t>(std::random_device{}());
  std::printf("WIREFOX_TEST_SEED=%u\n", seed);
  return seed;
}

}  // namespace unit
