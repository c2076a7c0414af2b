#include <fstream>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "client/commands.h"
#include "client/jtag_clocks.h"
#include "client/jtag_scan.h"
#include "client/options.h"
#include "client/target_session.h"
#include "client/vcd_file.h"

namespace client {

namespace {

struct Options {
  TransferTarget target;
  std::vector<std::string> words;
  bool no_read = false;
  bool from_idle = false;
  bool text = false;
  std::string vcd_path;
};

// The transfer of both forms. `exit_status` tells of what failed before it.
class Transfer {
 public:
  Transfer(Context& context, const Options& options)
      : context_(context), options_(options), session_(context, kJtagModes) {}

  // False: `exit_status` is the outcome.
  bool Run(std::span<const std::uint8_t> packet, bool read, int& exit_status) {
    std::ofstream file;
    if (!options_.vcd_path.empty() && !OpenToWrite(options_.vcd_path, file)) {
      exit_status = ReportNoFile();
      return false;
    }
    if (!session_.Open(options_.target, exit_status)) return false;
    std::uint32_t hertz = 0;
    if (file.is_open()) hertz = AskForClock();
    context_.output.ShowProgress("clocking " + std::to_string(packet.size() * 4) + " cycles");
    result.error = context_.service().SendJtagPacket(packet, read, session_.handle(), reply);
    result.outputs["RESULT"] = HexFromBytes(reply);
    if (!file.is_open() || result.error != TzErrorCode::SUCCESS) return true;
    VcdFile vcd(file, hertz);
    vcd.Add(packet, read ? reply : Bytes());
    if (vcd.End()) return true;
    exit_status = ReportNoFile();
    return false;
  }

  int Report() { return session_.Report(result); }

  Result result;
  Bytes reply;

 private:
  int ReportNoFile() { return context_.output.ReportUsage("cannot write " + options_.vcd_path); }

  std::uint32_t AskForClock() {
    TzWFXStatus status{};
    const TzErrorCode asked = context_.service().GetWirefoxStatus(session_.probe(), status);
    if (asked != TzErrorCode::SUCCESS) return 0;
    return HertzOf(static_cast<TzJtagClock>(status.CLOCK_FREQUENCY));
  }

  Context& context_;
  const Options& options_;
  TargetSession session_;
};

// Adds the scans' results to a result that holds the raw reply.
void AddScans(const JtagProgram& program, const Bytes& reply, Result& result) {
  const auto decoded = program.Decode(reply);
  if (!decoded) {
    result.target_problem = "the reply is shorter than the program";
    return;
  }
  auto scans = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < decoded->size(); ++i) {
    const JtagProgram::Scan& scan = program.scans()[i];
    const std::string name = scan.target == JtagProgram::Register::kInstruction ? "ir" : "dr";
    const std::string tdo = NumberFromBits((*decoded)[i], scan.bits);
    scans.push_back({{"scan", name}, {"bits", scan.bits}, {"tdo", tdo}});
    result.text += name + " " + std::to_string(scan.bits) + "  " + tdo + "\n";
  }
  result.outputs["scans"] = std::move(scans);
}

int RunProgram(Context& context, const Options& options) {
  std::string problem;
  const auto program = ParseJtagProgram(options.words, options.from_idle, problem);
  if (!program) return context.output.ReportUsage(problem);
  Transfer transfer(context, options);
  int exit_status = kExitSuccess;
  if (!transfer.Run(program->Packet(), true, exit_status)) return exit_status;
  Result& result = transfer.result;
  if (result.error == TzErrorCode::SUCCESS) AddScans(*program, transfer.reply, result);
  return transfer.Report();
}

int RunPacket(Context& context, const Options& options) {
  std::string problem;
  const auto packet = ReadPacket(context, options.words, options.text, problem);
  if (!packet) return context.output.ReportUsage(problem);
  Transfer transfer(context, options);
  int exit_status = kExitSuccess;
  if (!transfer.Run(*packet, !options.no_read, exit_status)) return exit_status;
  Result& result = transfer.result;
  if (result.error == TzErrorCode::SUCCESS && !options.no_read) {
    result.text = HexDump(transfer.reply);
  }
  return transfer.Report();
}

}  // namespace

Action DefineJtag(CLI::App& app) {
  auto options = std::make_shared<Options>();
  AddTransferTarget(app, options->target);
  Offer(app.add_option("WORDS", options->words, "Cycles, or a program of scans; see below"),
        std::string("reset idle ir dr ") + kAtFileOffer)
      ->required();
  app.add_flag("--no-read", options->no_read, "Cycles only: do not fetch TDO");
  app.add_flag("--from-idle", options->from_idle,
               "Scans only: the TAPs are in Run-Test/Idle already, do not reset them first");
  app.add_flag("--text", options->text, "@FILE holds hexadecimal text");
  AddVcd(app, options->vcd_path);
  app.footer(
      std::string(
          "Cycles: four in a byte, TMS in the high nibble and TDI in the low one, the first\n"
          "cycle in the lowest bit of each, as ") +
      kBytesHelp +
      ".\n"
      "Program: any of\n"
      "  reset           go through Test-Logic-Reset (the program begins so)\n"
      "  idle COUNT      stay in Run-Test/Idle\n"
      "  ir BITS:VALUE   scan the chain's instruction registers\n"
      "  dr BITS[:VALUE] scan its data registers (without a value: zeros)\n"
      "and TDO is shown for each scan.\n"
      "\n"
      "Examples:\n"
      "  wfx jtag WFX0001 dr 64                     the ids of two devices\n"
      "  wfx jtag WFX0001 ir 9:0x1ff dr 2           both in bypass\n"
      "  wfx jtag WFX0001 f0f0f020 00000000         raw cycles");
  return [options](Context& context) {
    return IsJtagStep(options->words[0]) ? RunProgram(context, *options)
                                         : RunPacket(context, *options);
  };
}

}  // namespace client
