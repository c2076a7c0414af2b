// What a file in the Serial Vector Format (revision E) has a chain do, step by step.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <variant>
#include <vector>

#include "client/numbers.h"
#include "client/serve/tap_state.h"
#include "client/svf/svf_statements.h"

namespace client {

// Bits, the first one to be shifted in the lowest bit of the first byte. Statements that say
// nothing new share them.
using SvfBits = std::shared_ptr<const Bytes>;

// What some of a scan's bits have to be.
struct SvfCheck {
  std::string_view name;  // of the statement that asks for it: "SDR", "HDR" …
  std::size_t first;      // of the scan's bits
  std::size_t bits;
  SvfBits tdo;
  SvfBits mask;
};

// A whole scan, with the bits of header and trailer.
struct SvfScan {
  TapState shift;
  std::size_t bits;
  Bytes tdi;
  std::vector<SvfCheck> checks;
  TapState end;
};

// One state: on the usual way to it. More: the way itself.
struct SvfMove {
  std::vector<TapState> states;
};

// Stays in a state for so many cycles and for so long.
struct SvfStay {
  TapState state;
  std::uint64_t cycles;
  double seconds;
  TapState end;
};

// Nothing: the clock that the play began with.
struct SvfFrequency {
  std::optional<double> hertz;
};

struct SvfStep {
  std::size_t line;
  std::variant<SvfScan, SvfMove, SvfStay, SvfFrequency> action;
};

// Begins in Test-Logic-Reset.
using SvfProgram = std::vector<SvfStep>;

// By its name in the format: "DRPAUSE".
std::string_view SvfStateName(TapState state);

// Of all scans together. A few words of a file may ask for more than a computer can hold.
inline constexpr std::uint64_t kMaxSvfBits = std::uint64_t{1} << 32;

// Nothing, with the first problem, when the text is not well formed or needs what a probe does not
// have.
std::optional<SvfProgram> ParseSvf(std::string_view text, SvfProblem& problem,
                                   std::uint64_t max_bits = kMaxSvfBits);

}  // namespace client
