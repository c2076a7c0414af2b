#include "client/output.h"

#include <algorithm>
#include <sstream>

#include "client/interface_names.h"
#include "client/numbers.h"
#include "client/unreachable.h"

namespace client {

namespace {

// What terminals of both hosts understand (ECMA-48).
constexpr char kToTopLeft[] = "\x1b[H";
constexpr char kClearRestOfLine[] = "\x1b[K";
constexpr char kClearRestOfScreen[] = "\x1b[J";

constexpr HRESULT kOutOfMemory = static_cast<HRESULT>(0x8007000E);

std::string InColour(bool colours, Colour colour, std::string_view text) {
  static constexpr const char* kSequences[] = {"\033[1m", "\033[32m", "\033[33m", "\033[1;31m"};
  if (!colours) return std::string(text);
  return kSequences[static_cast<std::size_t>(colour)] + std::string(text) + "\033[0m";
}

// How much of a line is a heading: nothing, or from a capital letter to a colon behind few words.
std::size_t HeadingLength(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || line[0] < 'A' || line[0] > 'Z') return 0;
  const auto belongs = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == ' ' || c == ',';
  };
  return std::ranges::all_of(line.substr(0, colon), belongs) ? colon + 1 : 0;
}

}  // namespace

std::string ErrorAdvice(TzErrorCode error) {
  switch (error) {
    case TzErrorCode::SUCCESS:
      return "done";
    case TzErrorCode::IN_USE:
      return "another program holds a target of this probe; wait until it lets go or ends "
             "(`wfx targets PROBE` marks what is held, `wfx list` frees what dead programs held)";
    case TzErrorCode::NOT_ACQUIRED:
      return "the session is not valid any more: it was released, the probe was unplugged, or a "
             "scan found other targets; acquire the target again";
    case TzErrorCode::INVALID_DEVICE:
      return "no such probe, or no such target behind it; `wfx list` names the probes, `wfx "
             "targets "
             "PROBE` what answers in the present mode (check power and wiring)";
    case TzErrorCode::INVALID_MODE:
      return "the probe is in a mode that does not allow this; switch it first, for example `wfx "
             "mode PROBE JTAG`, SWD, I2C or SWD_SWV";
    case TzErrorCode::INVALID_PARAM:
      return "no probe of this name, or a value that is out of range; `wfx list` names the probes, "
             "letter case counts";
    case TzErrorCode::WFX_ERROR:
      return "the probe refused, or did not answer in time; check the target's power (`wfx status "
             "PROBE`, `wfx vtarg PROBE 3.3 --supply on`) and wiring, or plug the probe in again";
    case TzErrorCode::UNKNOWN:
      return "the service could not take or give the data; its log may tell more";
  }
  return "an error code that this client does not know";
}

nlohmann::ordered_json StatusOutputs(const TzWFXStatus& status) {
  auto outputs = nlohmann::ordered_json::object();
  VisitStatusFields(status,
                    [&](const std::string& name, std::int32_t value) { outputs[name] = value; });
  return outputs;
}

int Output::Report(const Result& result) {
  EndProgress();
  const std::string name = NameOfValue(kErrorCodes, static_cast<std::int32_t>(result.error));
  if (json_) {
    nlohmann::ordered_json line = {{"error", name}};
    line.update(result.outputs);
    if (!result.target_problem.empty()) line["problem"] = result.target_problem;
    PrintLine(line);
  } else {
    PrintText(result.text);
  }
  if (result.error != TzErrorCode::SUCCESS) {
    const int code = static_cast<int>(result.error);
    const std::string advice = result.advice.empty() ? ErrorAdvice(result.error) : result.advice;
    Complain(name + " (error " + std::to_string(code) + "): " + advice);
    out_.flush();
    return kExitFirstError + code;
  }
  if (!json_ && !result.note.empty()) Complain(result.note, Colour::kCaution);
  if (result.target_problem.empty()) return Finish(kExitSuccess);
  Complain(result.target_problem);
  return Finish(kExitTargetFailed);
}

int Output::ReportFrame(Result result) {
  if (!out_terminal_.redraws || json_) return Report(result);
  // Line by line over what is there, so that nothing flickers.
  std::string text = kToTopLeft;
  for (const char c : result.text)
    text += c == '\n' ? kClearRestOfLine + std::string("\n") : std::string(1, c);
  result.text = text + kClearRestOfScreen;
  return Report(result);
}

int Output::ReportUsage(const std::string& problem) { return Fail("USAGE", problem, kExitUsage); }

int Output::ReportUnreachable(HRESULT status, const std::string& host) {
  const std::string advice = UnreachableAdvice(status, host);
  if (status == kOutOfMemory) return ReportUsage(advice);
  const std::string where = host.empty() ? "" : " on " + host;
  return Fail("UNREACHABLE", "cannot reach TzWirefoxService" + where + ": " + advice,
              kExitUnreachable);
}

int Output::Print(const std::string& text) {
  EndProgress();
  out_ << text;
  return Finish(kExitSuccess);
}

void Output::Mention(const std::string& text, const char* begin) {
  EndProgress();
  err_ << begin << text << std::endl;
}

int Output::PrintHelp(const std::string& text) {
  std::string shown;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n') + 1);
    const std::size_t heading = HeadingLength(line);
    if (heading > 0) shown += Coloured(Colour::kHeading, line.substr(0, heading));
    shown += line.substr(heading);
    rest.remove_prefix(line.size());
  }
  return Print(shown);
}

std::string Output::Coloured(Colour colour, std::string_view text) const {
  return InColour(out_terminal_.colours, colour, text);
}

void Output::BeginProgress() {
  if (json_ || !err_terminal_.redraws) return;
  if (!progress_) progress_.emplace(err_);
  progress_->Begin();
}

void Output::ShowProgress(const std::string& text) {
  if (progress_) progress_->Show(text);
}

void Output::EndProgress() {
  if (progress_) progress_->End();
}

void Output::PrintText(const std::string& text) {
  if (host_.empty()) {
    out_ << text;
    return;
  }
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) out_ << host_ << ": " << line << '\n';
}

void Output::PrintLine(nlohmann::ordered_json line) {
  if (!host_.empty()) line["host"] = host_;
  out_ << line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

int Output::Fail(const char* name, const std::string& problem, int exit_status) {
  if (json_) PrintLine({{"error", name}, {"problem", place_ + problem}});
  out_.flush();
  Complain(problem);
  return exit_status;
}

int Output::Finish(int exit_status) {
  if (out_.flush()) return exit_status;
  Complain("cannot write the output");
  return kExitOutput;
}

void Output::Complain(const std::string& problem, Colour colour) {
  EndProgress();
  err_ << InColour(err_terminal_.colours, colour, "wfx:") << ' '
       << (host_.empty() ? "" : host_ + ": ") << place_ << problem << std::endl;
}

}  // namespace client
