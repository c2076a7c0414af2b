#include <memory>
#include <string>
#include <vector>

#include "client/commands.h"
#include "client/jtag_scan.h"
#include "client/options.h"
#include "client/target_session.h"

namespace client {

namespace {

struct Options {
  TransferTarget target;
  std::vector<std::string> words;
  bool no_read = false;
  bool from_idle = false;
  bool text = false;
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
  TargetSession session(context, kJtagModes);
  int exit_status = kExitSuccess;
  if (!session.Open(options.target, exit_status)) return exit_status;
  Result result;
  Bytes reply;
  result.error = context.service().SendJtagPacket(program->Packet(), true, session.handle(), reply);
  result.outputs["RESULT"] = HexFromBytes(reply);
  if (result.error == TzErrorCode::SUCCESS) AddScans(*program, reply, result);
  return session.Report(result);
}

int RunPacket(Context& context, const Options& options) {
  std::string problem;
  const auto packet = ReadPacket(context, options.words, options.text, problem);
  if (!packet) return context.output.ReportUsage(problem);
  TargetSession session(context, kJtagModes);
  int exit_status = kExitSuccess;
  if (!session.Open(options.target, exit_status)) return exit_status;
  Result result;
  Bytes reply;
  result.error =
      context.service().SendJtagPacket(*packet, !options.no_read, session.handle(), reply);
  result.outputs["RESULT"] = HexFromBytes(reply);
  if (result.error == TzErrorCode::SUCCESS && !options.no_read) result.text = HexDump(reply);
  return session.Report(result);
}

}  // namespace

Action DefineJtag(CLI::App& app) {
  auto options = std::make_shared<Options>();
  AddTransferTarget(app, options->target);
  app.add_option("WORDS", options->words, "Cycles, or a program of scans; see below")->required();
  app.add_flag("--no-read", options->no_read, "Cycles only: do not fetch TDO");
  app.add_flag("--from-idle", options->from_idle,
               "Scans only: the TAPs are in Run-Test/Idle already, do not reset them first");
  app.add_flag("--text", options->text, "@FILE holds hexadecimal text");
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
