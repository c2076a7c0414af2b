#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "client/commands.h"
#include "client/options.h"
#include "client/stop_signal.h"
#include "client/target_session.h"
#include "client/text.h"

namespace client {

namespace {

constexpr std::int64_t kMaxBulkBytes = 1 << 26;

struct BulkOptions {
  TransferTarget target;
  std::int64_t endpoint = 0;
  std::string direction;
  std::vector<std::string> words;
  std::string out_file;
  bool text = false;
};

int RunBulk(Context& context, const BulkOptions& options) {
  const bool read = LowerCase(options.direction) == "read";
  Bytes data;
  if (read) {
    const auto count =
        options.words.size() == 1 ? ParseNumber(options.words[0], 0, kMaxBulkBytes) : std::nullopt;
    if (!count) return context.output.ReportUsage("read wants the number of bytes");
    data.resize(static_cast<std::size_t>(*count));
  } else {
    std::string problem;
    auto bytes = ReadBytes(context, options.words, options.text, problem);
    if (!bytes) return context.output.ReportUsage(problem);
    data = std::move(*bytes);
  }
  TargetSession session(context, kTargetModes);
  int exit_status = kExitSuccess;
  if (!session.Open(options.target, exit_status)) return exit_status;
  context.output.ShowProgress((read ? "reading " : "writing ") + std::to_string(data.size()) +
                              " bytes");
  Result result;
  Bytes reply;
  result.error = context.service().BulkTransfer(static_cast<TzWirefoxEndPoint>(options.endpoint),
                                                data, read, session.handle(), reply);
  result.outputs["RESULT"] = HexFromBytes(reply);
  if (result.error == TzErrorCode::SUCCESS && read) result.text = HexDump(reply);
  if (read && !options.out_file.empty() && !WriteFile(options.out_file, reply)) {
    return context.output.ReportUsage("cannot write " + options.out_file);
  }
  return session.Report(result);
}

struct SwvOptions {
  TransferTarget target;
  std::int64_t seconds = 0;
  std::string out_file;
};

// Fetches until the time is over or the user has enough. A probe that has nothing lets the request
// time out, which the service reports as WFX_ERROR, and is asked again.
TzErrorCode Collect(Context& context, const TargetSession& session, std::int64_t seconds,
                    Bytes& data) {
  const StopSignal stop;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!stop.IsSet() && std::chrono::steady_clock::now() < end) {
    Bytes part;
    const TzErrorCode error = context.service().RequestSwvPackets(session.handle(), part);
    if (error != TzErrorCode::SUCCESS && error != TzErrorCode::WFX_ERROR) return error;
    data.insert(data.end(), part.begin(), part.end());
    context.output.ShowProgress(std::to_string(data.size()) + " bytes of trace data");
  }
  return TzErrorCode::SUCCESS;
}

int RunSwv(Context& context, const SwvOptions& options) {
  TargetSession session(context, kTraceModes);
  int exit_status = kExitSuccess;
  if (!session.Open(options.target, exit_status)) return exit_status;
  Result result;
  Bytes data;
  result.error = options.seconds > 0 ? Collect(context, session, options.seconds, data)
                                     : context.service().RequestSwvPackets(session.handle(), data);
  result.outputs["RESULT"] = HexFromBytes(data);
  if (!options.out_file.empty()) {
    if (!WriteFile(options.out_file, data)) {
      return context.output.ReportUsage("cannot write " + options.out_file);
    }
    result.text = std::to_string(data.size()) + " bytes written to " + options.out_file + "\n";
  } else if (result.error == TzErrorCode::SUCCESS) {
    result.text = HexDump(data);
    if (data.empty()) result.note = "no trace data";
  }
  return session.Report(result);
}

}  // namespace

Action DefineBulk(CLI::App& app) {
  auto options = std::make_shared<BulkOptions>();
  AddTransferTarget(app, options->target);
  AddNamed(app, "EP", options->endpoint, kEndPoints, INT32_MAX, "The endpoint")->required();
  Offer(app.add_option("DIRECTION", options->direction, "read or write"), "read write")
      ->required()
      ->check(CLI::IsMember({"read", "write"}, CLI::ignore_case));
  Offer(app.add_option("WORDS", options->words,
                       std::string("read: the number of bytes; write: ") + kBytesHelp),
        kAtFileOffer)
      ->required();
  Offer(app.add_option("--out", options->out_file, "Write what is read to this file, too"),
        kFileOffer);
  app.add_flag("--text", options->text, "@FILE holds hexadecimal text");
  return [options](Context& context) { return RunBulk(context, *options); };
}

Action DefineSwv(CLI::App& app) {
  auto options = std::make_shared<SwvOptions>();
  AddTransferTarget(app, options->target);
  AddNumber(app, "--seconds", options->seconds, 1, 86400,
            "Fetch again and again for so long, or until interrupted (default: once)");
  Offer(app.add_option("--out", options->out_file, "Write the data to this file, too"), kFileOffer);
  return [options](Context& context) { return RunSwv(context, *options); };
}

}  // namespace client
