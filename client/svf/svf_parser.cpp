#include <algorithm>
#include <charconv>
#include <cmath>
#include <span>
#include <stdexcept>

#include "client/serve/bit_queue.h"
#include "client/svf/svf_program.h"

namespace client {

namespace {

constexpr std::string_view kStateNames[kTapStates] = {
    "RESET",    "IDLE",     "DRSELECT",  "DRCAPTURE", "DRSHIFT", "DREXIT1", "DRPAUSE", "DREXIT2",
    "DRUPDATE", "IRSELECT", "IRCAPTURE", "IRSHIFT",   "IREXIT1", "IRPAUSE", "IREXIT2", "IRUPDATE"};

// More is a mistake.
constexpr std::uint64_t kMaxBits = 1u << 28;
constexpr std::uint64_t kMaxCycles = UINT32_MAX;
constexpr double kMaxSeconds = 86400;

// A statement that cannot be played. Never leaves this file.
class Fault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The words of a statement, taken one by one.
class Words {
 public:
  explicit Words(std::span<const std::string> words) : words_(words) {}

  bool empty() const { return words_.empty(); }
  const std::string& front() const { return words_.front(); }
  std::string Take(const char* wanted) {
    if (empty()) throw Fault(std::string("there is no ") + wanted);
    std::string word = words_.front();
    words_ = words_.subspan(1);
    return word;
  }
  bool TakeIf(std::string_view word) {
    const bool is = !empty() && front() == word;
    if (is) words_ = words_.subspan(1);
    return is;
  }
  void ExpectEnd() const {
    if (!empty()) throw Fault("'" + front() + "' is more than belongs here");
  }

 private:
  std::span<const std::string> words_;
};

std::uint64_t Whole(const std::string& word, std::uint64_t highest, const char* wanted) {
  std::uint64_t value = 0;
  const char* const end = word.data() + word.size();
  const auto [stopped, error] = std::from_chars(word.data(), end, value);
  if (error != std::errc() || stopped != end || value > highest) {
    throw Fault("'" + word + "' is no " + wanted + " up to " + std::to_string(highest));
  }
  return value;
}

std::optional<double> Real(const std::string& word) {
  double value = 0;
  const char* const end = word.data() + word.size();
  const auto [stopped, error] = std::from_chars(word.data(), end, value);
  if (error != std::errc() || stopped != end || !std::isfinite(value) || value < 0) {
    return std::nullopt;
  }
  return value;
}

std::optional<TapState> StateOf(std::string_view word) {
  const auto* const found = std::ranges::find(kStateNames, word);
  if (found == std::end(kStateNames)) return std::nullopt;
  return static_cast<TapState>(found - kStateNames);
}

bool IsStable(TapState state) {
  return state == TapState::kReset || state == TapState::kIdle || IsPause(state);
}

TapState TakeState(Words& words) {
  const std::string word = words.Take("state");
  const auto state = StateOf(word);
  if (!state) throw Fault("'" + word + "' is no state");
  return *state;
}

TapState TakeStableState(Words& words) {
  const TapState state = TakeState(words);
  if (!IsStable(state)) {
    throw Fault(std::string(SvfStateName(state)) + " is not stable: RESET, IDLE, DRPAUSE, IRPAUSE");
  }
  return state;
}

unsigned DigitOf(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
  throw Fault(std::string("'") + c + "' is no hexadecimal digit");
}

// The last digit holds the bits that are shifted first. Digits in front may be left out.
SvfBits TakeBits(Words& words, const std::string& name, std::size_t bits) {
  const std::string word = words.Take("value");
  if (word.size() < 2 || word[0] != '(') throw Fault(name + " has no digits in parentheses");
  Bytes bytes((bits + 7) / 8);
  for (std::size_t digit = 0; digit + 1 < word.size(); ++digit) {
    const unsigned value = DigitOf(word[word.size() - 1 - digit]);
    const std::size_t fit = digit * 4 < bits ? std::min<std::size_t>(4, bits - digit * 4) : 0;
    if (value >> fit != 0) {
      throw Fault(name + " has more than " + std::to_string(bits) + " bits");
    }
    if (value != 0) bytes[digit / 2] |= static_cast<std::uint8_t>(value << digit % 2 * 4);
  }
  return std::make_shared<const Bytes>(std::move(bytes));
}

// What the last statement of a name said. TDO is all that the next one has to say again.
struct Pattern {
  std::string_view name;
  std::size_t bits = 0;
  SvfBits tdi = nullptr;
  SvfBits tdo = nullptr;
  SvfBits mask = nullptr;
  // What may be shifted in instead of TDI (SMASK) is the file's offer, and not taken.
};

void Renew(Pattern& pattern, Words& words) {
  const std::size_t bits = Whole(words.Take("length"), kMaxBits, "length");
  if (bits != pattern.bits) {
    pattern.bits = bits;
    pattern.tdi = pattern.mask = nullptr;
  }
  pattern.tdo = nullptr;
  std::vector<std::string> given;
  while (!words.empty()) {
    const std::string name = words.Take("name");
    SvfBits unused;
    SvfBits* const place = name == "TDI"     ? &pattern.tdi
                           : name == "TDO"   ? &pattern.tdo
                           : name == "MASK"  ? &pattern.mask
                           : name == "SMASK" ? &unused
                                             : nullptr;
    if (!place) throw Fault("'" + name + "' is none of TDI, TDO, MASK, SMASK");
    if (std::ranges::count(given, name) > 0) throw Fault(name + " is given twice");
    given.push_back(name);
    *place = TakeBits(words, name, bits);
  }
  if (!pattern.tdi && bits > 0) throw Fault("a new length wants a TDI");
  if (!pattern.mask) pattern.mask = std::make_shared<const Bytes>((bits + 7) / 8, 0xFF);
}

// One of the two columns of the chain.
struct Register {
  Pattern header;
  Pattern body;
  Pattern trailer;
  TapState shift;
  TapState end = TapState::kIdle;
};

class Parser {
 public:
  explicit Parser(std::uint64_t max_bits) : bits_left_(max_bits) {}

  void Take(const SvfStatement& statement) {
    Words words(statement.words);
    const std::string name = words.Take("statement");
    for (Register* const reg : {&dr_, &ir_}) {
      if (name == reg->body.name) return AddScan(statement.line, *reg, words);
      if (name == reg->header.name) return Renew(reg->header, words);
      if (name == reg->trailer.name) return Renew(reg->trailer, words);
    }
    const auto* const found = std::ranges::find(kOthers, name, &Other::name);
    if (found == std::end(kOthers)) throw Fault("'" + name + "' is no statement");
    (this->*found->take)(statement.line, words);
    words.ExpectEnd();
  }

  SvfProgram program;

 private:
  struct Other {
    std::string_view name;
    void (Parser::*take)(std::size_t line, Words& words);
  };
  static const Other kOthers[8];

  void EndDr(std::size_t, Words& words) { dr_.end = TakeStableState(words); }
  void EndIr(std::size_t, Words& words) { ir_.end = TakeStableState(words); }
  void Pio(std::size_t, Words&) { throw Fault("the probe has no parallel pins"); }
  void PioMap(std::size_t, Words&) { throw Fault("the probe has no parallel pins"); }

  void Add(std::size_t line, decltype(SvfStep::action) action, TapState end) {
    program.push_back({line, std::move(action)});
    state_ = end;
  }

  // The header is shifted first.
  void AddScan(std::size_t line, Register& reg, Words& words) {
    Renew(reg.body, words);
    if (reg.body.bits == 0) throw Fault("there is nothing to scan");
    const std::size_t bits = reg.header.bits + reg.body.bits + reg.trailer.bits;
    if (bits > bits_left_) throw Fault("the file's scans are too long to be held");
    bits_left_ -= bits;
    SvfScan scan{.shift = reg.shift, .bits = 0, .tdi = {}, .checks = {}, .end = reg.end};
    BitQueue tdi;
    for (const Pattern* const part : {&reg.header, &reg.body, &reg.trailer}) {
      if (part->bits == 0) continue;
      if (part->tdo) {
        scan.checks.push_back({part->name, scan.bits, part->bits, part->tdo, part->mask});
      }
      tdi.Add(*part->tdi, part->bits);
      scan.bits += part->bits;
    }
    scan.tdi = tdi.bytes();
    Add(line, std::move(scan), reg.end);
  }

  void State(std::size_t line, Words& words) {
    SvfMove move;
    do {
      move.states.push_back(TakeState(words));
    } while (!words.empty());
    TapState at = state_;
    for (const TapState next : move.states) {
      const bool follows = NextTapState(at, false) == next || NextTapState(at, true) == next;
      // Test-Logic-Reset is reached from everywhere.
      if (move.states.size() > 1 && next != TapState::kReset && !follows) {
        throw Fault(std::string(SvfStateName(next)) + " does not follow " +
                    std::string(SvfStateName(at)));
      }
      at = next;
    }
    if (!IsStable(at)) {
      throw Fault("the way ends in " + std::string(SvfStateName(at)) + ", which is not stable");
    }
    Add(line, std::move(move), at);
  }

  void RunTest(std::size_t line, Words& words) {
    if (!words.empty() && StateOf(words.front())) run_state_ = run_end_ = TakeStableState(words);
    SvfStay stay{.state = run_state_, .cycles = 0, .seconds = 0, .end = run_end_};
    std::string number = words.Take("count or time");
    bool has_time = words.TakeIf("SEC");
    if (!has_time) {
      const std::uint64_t count = Whole(number, kMaxCycles, "count");
      const bool is_tck = words.TakeIf("TCK");
      if (!is_tck && !words.TakeIf("SCK")) throw Fault("the count is followed by TCK or SCK");
      if (is_tck) stay.cycles = count;
      has_time = !words.empty() && Real(words.front()).has_value();
      if (has_time) {
        number = words.Take("time");
        if (!words.TakeIf("SEC")) throw Fault("the time is followed by SEC");
      } else if (!is_tck) {
        throw Fault("the probe has no system clock to count (SCK), and there is no time");
      }
    }
    if (has_time) stay.seconds = Seconds(number);
    if (words.TakeIf("MAXIMUM")) {
      const double most = Seconds(words.Take("time"));
      if (!words.TakeIf("SEC")) throw Fault("the time is followed by SEC");
      if (most < stay.seconds) throw Fault("the longest time is below the shortest");
    }
    if (words.TakeIf("ENDSTATE")) stay.end = run_end_ = TakeStableState(words);
    Add(line, stay, stay.end);
  }

  static double Seconds(const std::string& word) {
    const auto seconds = Real(word);
    if (!seconds || *seconds > kMaxSeconds) throw Fault("'" + word + "' is no time up to a day");
    return *seconds;
  }

  void Frequency(std::size_t line, Words& words) {
    SvfFrequency frequency;
    if (!words.empty()) {
      const std::string word = words.Take("frequency");
      frequency.hertz = Real(word);
      if (!frequency.hertz || *frequency.hertz == 0) throw Fault("'" + word + "' is no frequency");
      if (!words.TakeIf("HZ")) throw Fault("the frequency is followed by HZ");
    }
    Add(line, frequency, state_);
  }

  // The probe has no such line. What it does to the TAPs, five cycles do as well.
  void Trst(std::size_t line, Words& words) {
    const std::string word = words.Take("level");
    if (word != "ON" && word != "OFF" && word != "Z" && word != "ABSENT") {
      throw Fault("'" + word + "' is none of ON, OFF, Z, ABSENT");
    }
    if (word == "ON") Add(line, SvfMove{{TapState::kReset}}, TapState::kReset);
  }

  Register dr_{{.name = "HDR"}, {.name = "SDR"}, {.name = "TDR"}, TapState::kDrShift};
  Register ir_{{.name = "HIR"}, {.name = "SIR"}, {.name = "TIR"}, TapState::kIrShift};
  TapState run_state_ = TapState::kIdle;
  TapState run_end_ = TapState::kIdle;
  TapState state_ = TapState::kReset;
  std::uint64_t bits_left_;
};

const Parser::Other Parser::kOthers[] = {
    {"ENDDR", &Parser::EndDr},   {"ENDIR", &Parser::EndIr},         {"STATE", &Parser::State},
    {"TRST", &Parser::Trst},     {"FREQUENCY", &Parser::Frequency}, {"PIO", &Parser::Pio},
    {"PIOMAP", &Parser::PioMap}, {"RUNTEST", &Parser::RunTest},
};

}  // namespace

std::string_view SvfStateName(TapState state) {
  return kStateNames[static_cast<std::size_t>(state)];
}

std::optional<SvfProgram> ParseSvf(std::string_view text, SvfProblem& problem,
                                   std::uint64_t max_bits) {
  problem = {};
  SvfStatements statements(text);
  Parser parser(max_bits);
  while (const auto statement = statements.Next(problem)) {
    if (statement->words.empty()) continue;
    try {
      parser.Take(*statement);
    } catch (const Fault& fault) {
      problem = {statement->line, statement->words[0] + ": " + fault.what()};
      return std::nullopt;
    }
  }
  if (!problem.text.empty()) return std::nullopt;
  return std::move(parser.program);
}

}  // namespace client
