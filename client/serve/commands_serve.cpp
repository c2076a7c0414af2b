#include <algorithm>
#include <memory>
#include <string>

#include "client/commands.h"
#include "client/interface_names.h"
#include "client/jtag_clocks.h"
#include "client/options.h"
#include "client/probe_advice.h"
#include "client/serve/jtag_bridge.h"
#include "client/serve/served_chain.h"
#include "client/serve/tool_port.h"
#include "client/serve/tool_protocol.h"
#include "client/stop_signal.h"

namespace client {

namespace {

struct Options {
  std::string probe;
  std::string xvc;
  std::string remote_bitbang;
  std::int64_t clock = static_cast<std::int64_t>(kDefaultJtagClock);
};

// How often it is made sure that the service still lives when no tool has anything to do.
constexpr DWORD kHeartbeatMs = 2000;

// More than a tool sends before it waits for an answer, how long it may pause in between, and what
// is worked on even if it does not.
constexpr std::size_t kFlood = 32768;
constexpr DWORD kFloodPauseMs = 2;
constexpr std::size_t kMaxGathered = 64u << 20;

// What is worked on before its answers are sent: many packets, and a limit to what they take.
constexpr std::size_t kPortion = 1u << 20;

class Server {
 public:
  Server(Context& context, const Options& options, ToolPort& port)
      : context_(context),
        port_(port),
        is_xvc_(!options.xvc.empty()),
        chain_(context.service(), options.probe, static_cast<TzJtagClock>(options.clock)),
        bridge_([this](std::span<const std::uint8_t> packet, Bytes& tdo) {
          return chain_.Clock(packet, tdo) == TzErrorCode::SUCCESS;
        }),
        controls_{
            [this](std::uint32_t period_ns) { return SetPeriod(period_ns); },
            [this](bool active) { return chain_.DriveReset(active) == TzErrorCode::SUCCESS; }} {}

  int Run(const std::string& probe) {
    Result opened = chain_.Open();
    if (opened.error != TzErrorCode::SUCCESS) return ReportOnProbe(context_, opened, probe);
    opened.outputs["listening"] = port_.name();
    opened.text = std::string("serving ") + probe + " to " + (is_xvc_ ? "XVC" : "remote_bitbang") +
                  " tools on " + port_.name() + "; interrupt (Ctrl-C) to end\n";
    const int exit_status = context_.Report(opened);
    if (exit_status != kExitSuccess) return exit_status;
    while (true) {
      const HANDLE handles[] = {stop_.event(), port_.event()};
      const DWORD woken = WaitForMultipleObjects(2, handles, FALSE, kHeartbeatMs);
      if (woken == WAIT_OBJECT_0) break;
      std::int32_t version = 0;
      if (woken == WAIT_OBJECT_0 + 1) {
        Serve(Gather());
      } else {
        context_.service().GetVersion(version);
      }
      if (FAILED(context_.service().call_failure())) return context_.Report(Result());
    }
    return kExitSuccess;
  }

 private:
  // All that has come. A tool that sends so much at once waits for no answer, and more follows;
  // OpenOCD even gives up when it cannot send on. So nothing else is done until it pauses.
  ToolPort::Input Gather() {
    ToolPort::Input input = port_.Take();
    while (input.bytes.size() >= kFlood && input.bytes.size() < kMaxGathered && !input.ends &&
           !IsStopped() && WaitForSingleObject(port_.event(), kFloodPauseMs) == WAIT_OBJECT_0) {
      const ToolPort::Input more = port_.Take();
      input.bytes.insert(input.bytes.end(), more.bytes.begin(), more.bytes.end());
      input.ends = more.ends;
    }
    return input;
  }

  bool IsStopped() const { return WaitForSingleObject(stop_.event(), 0) == WAIT_OBJECT_0; }

  void Serve(const ToolPort::Input& input) {
    if (input.begins && !Begin()) return;
    std::span<const std::uint8_t> rest = input.bytes;
    while (protocol_ && !rest.empty() && !IsStopped()) {
      const std::size_t size = std::min(rest.size(), kPortion);
      ServePortion(rest.first(size));
      rest = rest.subspan(size);
    }
    if (protocol_ && input.ends && !IsStopped()) {
      End(protocol_->IsBetweenMessages() ? "" : "the tool left in the middle of a message");
    }
  }

  void ServePortion(std::span<const std::uint8_t> bytes) {
    Bytes answers;
    std::string problem;
    const bool goes_on = protocol_->Work(bytes, answers, problem);
    if (!answers.empty() && !port_.Send(answers) && problem.empty()) {
      return End("the tool does not read its answers");
    }
    if (!goes_on) End(problem);
  }

  // A tool finds the chain in Test-Logic-Reset, whatever the last one, or another program, did.
  bool Begin() {
    if (!bridge_.Reset()) {
      const Result opened = chain_.Open();
      if (opened.error != TzErrorCode::SUCCESS || !bridge_.Reset()) {
        EndForError(opened.error == TzErrorCode::SUCCESS ? Outcome(chain_.error()) : opened);
        return false;
      }
    }
    protocol_ = is_xvc_ ? MakeXvc(bridge_, controls_) : MakeRemoteBitbang(bridge_, controls_);
    return true;
  }

  void End(const std::string& problem) {
    if (chain_.error() != TzErrorCode::SUCCESS) return EndForError(Outcome(chain_.error()));
    if (bridge_.was_moved()) return EndForError(Outcome(TzErrorCode::NOT_ACQUIRED));
    protocol_ = nullptr;
    port_.Drop();
    if (problem.empty()) return;
    Result result;
    result.target_problem = problem + "; the connection is closed";
    context_.Report(result);
  }

  void EndForError(Result result) {
    protocol_ = nullptr;
    port_.Drop();
    if (result.error == TzErrorCode::NOT_ACQUIRED) {
      result.advice =
          "another program has looked for targets, which moves the chain (or the probe was "
          "unplugged); the tool's connection is closed, and it has to begin anew";
    }
    context_.Report(result);
  }

  // The clock cannot change once a tool counts on the TAP's state: setting it takes the probe out
  // of its mode.
  std::uint32_t SetPeriod(std::uint32_t period_ns) {
    if (bridge_.state() == TapState::kReset) chain_.SetPeriod(period_ns);
    return chain_.period_ns();
  }

  Context& context_;
  ToolPort& port_;
  const bool is_xvc_;
  const StopSignal stop_;  // from before it is said that the chain is served
  ServedChain chain_;
  JtagBridge bridge_;
  const ProbeControls controls_;
  std::unique_ptr<ToolProtocol> protocol_;  // of the tool that is connected
};

int Serve(Context& context, const Options& options) {
  std::string problem;
  const bool is_xvc = !options.xvc.empty();
  const auto port = ToolPort::Open(is_xvc ? options.xvc : options.remote_bitbang, !is_xvc, problem);
  if (!port) return context.output.ReportUsage(problem);
  return Server(context, options, *port).Run(options.probe);
}

}  // namespace

Action DefineServe(CLI::App& app) {
  auto options = std::make_shared<Options>();
  AddProbe(app, options->probe);
  CLI::Option_group* where = app.add_option_group("Protocol, one of");
  where->add_option("--xvc", options->xvc, "Xilinx Virtual Cable on [ADDRESS:]PORT");
  where->add_option("--remote-bitbang", options->remote_bitbang,
                    "OpenOCD's remote_bitbang on [ADDRESS:]PORT, or on a local socket, a PATH");
  where->require_option(1);
  AddNamed(app, "--clock", options->clock, kJtagClocks, INT32_MAX,
           "The JTAG clock (default FREQ_A_06_0)");
  app.footer(
      "Holds the probe's JTAG chain until interrupted, for one tool at a time. Without ADDRESS "
      "only\n"
      "programs of this computer reach it; port 0 is any that is free.");
  return [options](Context& context) { return Serve(context, *options); };
}

}  // namespace client
