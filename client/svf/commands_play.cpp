#include <algorithm>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "client/commands.h"
#include "client/interface_names.h"
#include "client/jtag_clocks.h"
#include "client/options.h"
#include "client/probe_advice.h"
#include "client/serve/jtag_bridge.h"
#include "client/serve/served_chain.h"
#include "client/stop_signal.h"
#include "client/svf/svf_player.h"
#include "client/vcd_file.h"

namespace client {

namespace {

struct Options {
  std::string probe;
  std::string path;
  std::int64_t clock = -1;  // not given
  std::string vcd_path;

  bool keeps_clock() const { return clock >= 0; }
  TzJtagClock first_clock() const {
    return keeps_clock() ? static_cast<TzJtagClock>(clock) : kDefaultJtagClock;
  }
};

// The line is 0 before the first statement.
std::string Place(const Options& options, std::size_t line) {
  return options.path + (line == 0 ? "" : ":" + std::to_string(line)) + ": ";
}

// A frequency that no clock can be set to, when the file is asked for it.
std::string ClockProblem(const Options& options, const SvfProgram& program) {
  if (options.keeps_clock()) return "";
  const auto too_slow = [](const SvfStep& step) {
    const auto* const frequency = std::get_if<SvfFrequency>(&step.action);
    return frequency && frequency->hertz && !FastestJtagClock(*frequency->hertz);
  };
  const auto found = std::ranges::find_if(program, too_slow);
  if (found == program.end()) return "";
  const JtagClock slowest = JtagClocks().back();
  return Place(options, found->line) + "FREQUENCY: the slowest clock is " +
         NameOfValue(kJtagClocks, static_cast<std::int32_t>(slowest.code)) + " (" +
         std::to_string(slowest.hertz) + " Hz); --clock sets one whatever the file says";
}

class Play {
 public:
  Play(Context& context, const Options& options)
      : context_(context),
        options_(options),
        chain_(context.service(), options.probe, options.first_clock()),
        bridge_([this](std::span<const std::uint8_t> packet, Bytes& tdo) {
          return Clock(packet, tdo);
        }),
        controls_{[this](std::optional<double> most_hertz, std::uint32_t& hertz) {
                    return SetClock(most_hertz, hertz);
                  },
                  [this](double seconds) { return Wait(seconds); },
                  [this](std::size_t line) { ShowLine(line); }} {}

  int Run(const SvfProgram& program) {
    if (!program.empty()) last_line_ = program.back().line;
    std::ofstream file;
    if (!options_.vcd_path.empty() && !OpenToWrite(options_.vcd_path, file)) return ReportNoFile();
    const Result opened = chain_.Open();
    if (opened.error != TzErrorCode::SUCCESS) {
      return ReportOnProbe(context_, opened, options_.probe);
    }
    const std::uint32_t hertz = HertzOf(chain_.clock());
    if (file.is_open()) vcd_.emplace(file, hertz);
    SvfPlayer player(bridge_, controls_, hertz);
    const bool played = bridge_.Reset() && player.Play(program);
    if (vcd_ && !vcd_->End()) return ReportNoFile();
    return context_.Report(played ? Played(program, player) : Failed(player));
  }

 private:
  static Result Played(const SvfProgram& program, const SvfPlayer& player) {
    Result result;
    result.outputs["steps"] = program.size();
    result.outputs["checked"] = player.checked();
    result.text = std::to_string(program.size()) + " steps played, the TDO bits of " +
                  std::to_string(player.checked()) + " scans are as they should be\n";
    return result;
  }

  Result Failed(const SvfPlayer& player) {
    Result result = Outcome(bridge_.was_moved() ? TzErrorCode::NOT_ACQUIRED : chain_.error());
    const auto& mismatch = player.mismatch();
    const std::size_t line = mismatch ? mismatch->line : player.line();
    result.outputs["line"] = line;
    if (mismatch) {
      const auto number = [&](const Bytes& bits) {
        return NumberFromBits(bits, static_cast<std::uint32_t>(mismatch->check.bits));
      };
      result.outputs["scan"] = mismatch->check.name;
      result.outputs["bits"] = mismatch->check.bits;
      result.outputs["tdo"] = number(mismatch->actual);
      result.outputs["expected"] = number(*mismatch->check.tdo);
      result.outputs["mask"] = number(*mismatch->check.mask);
    }
    result.target_problem = Place(options_, line) + (mismatch        ? mismatch->Text()
                                                     : stop_.IsSet() ? "interrupted"
                                                                     : "the probe failed");
    result.advice = Place(options_, line) +
                    (result.error == TzErrorCode::NOT_ACQUIRED
                         ? "another program has looked for targets, which moves the chain (or the "
                           "probe was unplugged)"
                         : ErrorAdvice(result.error));
    return result;
  }

  int ReportNoFile() { return context_.output.ReportUsage("cannot write " + options_.vcd_path); }

  bool Clock(std::span<const std::uint8_t> packet, Bytes& tdo) {
    if (stop_.IsSet() || chain_.Clock(packet, tdo) != TzErrorCode::SUCCESS) return false;
    if (vcd_) vcd_->Add(packet, tdo);
    return true;
  }

  bool SetClock(std::optional<double> most_hertz, std::uint32_t& hertz) {
    if (options_.keeps_clock()) return true;
    const auto wanted = most_hertz ? FastestJtagClock(*most_hertz) : std::nullopt;
    if (!chain_.SetClock(wanted ? wanted->code : options_.first_clock())) {
      return false;
    }
    hertz = HertzOf(chain_.clock());
    if (vcd_) vcd_->SetClock(hertz);
    return true;
  }

  bool Wait(double seconds) {
    if (vcd_) vcd_->Rest(seconds);
    return !stop_.Wait(static_cast<DWORD>(seconds * 1000) + 1);
  }

  void ShowLine(std::size_t line) {
    context_.output.ShowProgress("line " + std::to_string(line) + " of " +
                                 std::to_string(last_line_) + " (" +
                                 std::to_string(100 * line / last_line_) + " %)");
  }

  Context& context_;
  const Options& options_;
  std::size_t last_line_ = 1;  // that does something
  const StopSignal stop_;
  ServedChain chain_;
  JtagBridge bridge_;
  const SvfControls controls_;
  std::optional<VcdFile> vcd_;
};

int Run(Context& context, const Options& options) {
  std::string problem;
  const auto text = ReadWholeFile(options.path, problem);
  if (!text) return context.output.ReportUsage(problem);
  SvfProblem in_file;
  const auto program = ParseSvf(*text, in_file);
  if (!program) {
    return context.output.ReportUsage(Place(options, in_file.line) + in_file.text);
  }
  problem = ClockProblem(options, *program);
  if (!problem.empty()) return context.output.ReportUsage(problem);
  return Play(context, options).Run(*program);
}

}  // namespace

Action DefinePlay(CLI::App& app) {
  auto options = std::make_shared<Options>();
  AddProbe(app, options->probe);
  const char* const help = "The file, in the Serial Vector Format (revision E)";
  Offer(app.add_option("FILE", options->path, help), kFileOffer)->required();
  AddNamed(app, "--clock", options->clock, kJtagClocks, INT32_MAX,
           "The JTAG clock, whatever FREQUENCY says (default FREQ_A_06_0 until it says so)");
  AddVcd(app, options->vcd_path);
  app.footer(
      "Holds the probe's whole JTAG chain meanwhile, and begins in Test-Logic-Reset. Ends at the\n"
      "first scan whose TDO bits are not what the file says, with its line.");
  return [options](Context& context) { return Run(context, *options); };
}

}  // namespace client
