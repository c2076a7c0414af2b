// What the client prints: results for people or as JSON, problems, progress; and its exit statuses.
#pragma once

#include <windows.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "api/tz_wirefox.h"
#include "client/progress_line.h"
#include "client/terminal.h"

namespace client {

enum ExitStatus : int {
  kExitSuccess = 0,
  kExitTargetFailed = 1,  // the service did its part; the target did not answer well
  kExitUsage = 2,
  kExitUnreachable = 3,
  kExitOutput = 4,       // the results could not be written
  kExitFirstError = 10,  // plus the service's error code
};

// The outcome of one command. Keys of `outputs` are the outputs' names in the interface; what a
// command works out of them has lower-case keys of its own.
struct Result {
  TzErrorCode error = TzErrorCode::SUCCESS;
  nlohmann::ordered_json outputs = nlohmann::ordered_json::object();
  std::string text;            // for people, with its line ends; may be empty
  std::string target_problem;  // not empty: how the target failed although the service did not
  std::string probe;           // the one that the command was for, when it was for one
  std::optional<std::size_t> target;  // and its target, when that alone counts
  std::string advice;  // what the error means here, when more is known than its name says
  std::string note;    // for people: why there is nothing to show, and what helps
};

inline Result Outcome(TzErrorCode error) {
  Result result;
  result.error = error;
  return result;
}

enum class Colour { kHeading, kGood, kCaution, kBad };

class Output {
 public:
  // The streams outlive this object.
  Output(std::ostream& out, std::ostream& err, const Terminal& out_terminal,
         const Terminal& err_terminal)
      : out_(out), err_(err), out_terminal_(out_terminal), err_terminal_(err_terminal) {}
  ~Output() { EndProgress(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  void UseJson(bool json) { json_ = json; }
  bool json() const { return json_; }

  // Put before each problem, such as a script's line; empty for none.
  void SetPlace(const std::string& place) { place_ = place; }

  // What is printed comes from that machine, beside others: its name stands before each line, and
  // with JSON in each object.
  void SetHost(const std::string& host) { host_ = host; }

  // Prints the result, and for a failure what it means and what to do. Returns the exit status.
  int Report(const Result& result);

  // The same for a result that takes the place of the one before it, on a terminal; elsewhere it
  // follows that.
  int ReportFrame(Result result);

  // Each reports a failure of the client's own and returns its exit status. With JSON the object on
  // standard output names the error USAGE or UNREACHABLE.
  int ReportUsage(const std::string& problem);
  int ReportUnreachable(HRESULT status, const std::string& host = "");

  // Prints what is no result. Returns the exit status.
  int Print(const std::string& text);
  // The same for help, whose headings stand at the begin of their lines and end with a colon.
  int PrintHelp(const std::string& text);

  // A line beside the results, on standard error.
  void Mention(const std::string& text, const char* begin = "wfx: ");

  // The text as it goes into a result's.
  std::string Coloured(Colour colour, std::string_view text) const;

  // From here on a terminal is told what the command waits for, once that takes a second; until the
  // next result or problem. With JSON nothing is told.
  void BeginProgress();
  void ShowProgress(const std::string& text);
  void EndProgress();

 private:
  void PrintText(const std::string& text);
  void PrintLine(nlohmann::ordered_json line);
  int Fail(const char* name, const std::string& problem, int exit_status);
  // Returns `exit_status`, unless what was printed has not arrived.
  int Finish(int exit_status);
  void Complain(const std::string& problem, Colour colour = Colour::kBad);

  std::ostream& out_;
  std::ostream& err_;
  const Terminal out_terminal_;
  const Terminal err_terminal_;
  bool json_ = false;
  std::string place_;
  std::string host_;
  std::optional<ProgressLine> progress_;
};

// What an error code means for who typed the command, and what helps.
std::string ErrorAdvice(TzErrorCode error);

// The outputs of the status record, each field under its name.
nlohmann::ordered_json StatusOutputs(const TzWFXStatus& status);

}  // namespace client
