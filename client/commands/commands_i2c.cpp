#include <memory>
#include <string>
#include <vector>

#include "client/commands.h"
#include "client/i2c_packet.h"
#include "client/options.h"
#include "client/target_session.h"
#include "client/text.h"

namespace client {

namespace {

// Addresses below and above these are reserved by the I2C bus.
constexpr std::uint8_t kFirstAddress = 0x08;
constexpr std::uint8_t kLastAddress = 0x77;

struct Options {
  TransferTarget target;
  std::vector<std::string> words;
  std::string after;
  std::int64_t restart = 0;
  bool text = false;
};

TzErrorCode Transfer(Context& context, const TargetSession& session, const I2cPacket& packet,
                     Bytes& reply) {
  return context.service().SendI2CPacket(packet.bytes, session.handle(), packet.restart_location,
                                         reply);
}

int RunPacket(Context& context, const Options& options) {
  std::string problem;
  auto bytes = ReadPacket(context, options.words, options.text, problem);
  if (!bytes) return context.output.ReportUsage(problem);
  TargetSession session(context, kI2cModes);
  int exit_status = kExitSuccess;
  if (!session.Open(options.target, exit_status)) return exit_status;
  I2cPacket packet;
  packet.bytes = std::move(*bytes);
  packet.restart_location = static_cast<std::int32_t>(options.restart);
  Result result;
  Bytes reply;
  result.error = Transfer(context, session, packet, reply);
  result.outputs["RESULT"] = HexFromBytes(reply);
  if (result.error == TzErrorCode::SUCCESS) result.text = HexDump(reply);
  return session.Report(result);
}

// One transaction that was made here, and whether the device took part in it.
int RunTransaction(Context& context, const Options& options, const I2cPacket& packet) {
  TargetSession session(context, kI2cModes);
  int exit_status = kExitSuccess;
  if (!session.Open(options.target, exit_status)) return exit_status;
  Result result;
  Bytes reply;
  result.error = Transfer(context, session, packet, reply);
  result.outputs["RESULT"] = HexFromBytes(reply);
  if (result.error == TzErrorCode::SUCCESS) {
    const auto data = packet.Decode(reply);
    if (!data) {
      result.target_problem =
          "no answer from the I2C device (is the target's supply on, is the address right?)";
    } else {
      result.outputs["data"] = HexFromBytes(*data);
      result.text = data->empty() ? "done\n" : HexDump(*data);
    }
  }
  return session.Report(result);
}

bool ParseAddress(const std::string& word, std::uint8_t& address, std::string& problem) {
  const auto number = ParseNumber(word, 0, 0x7F);
  if (!number) {
    problem = "'" + word + "' is no 7-bit I2C address";
    return false;
  }
  address = static_cast<std::uint8_t>(*number);
  return true;
}

int RunWrite(Context& context, const Options& options) {
  std::string problem;
  std::uint8_t address = 0;
  if (options.words.size() < 2) return context.output.ReportUsage("write wants ADDRESS BYTES");
  if (!ParseAddress(options.words[1], address, problem)) {
    return context.output.ReportUsage(problem);
  }
  const auto data = ReadBytes(context, std::span(options.words).subspan(2), options.text, problem);
  if (!data) return context.output.ReportUsage(problem);
  if (data->size() > kMaxI2cBytesPerPhase) {
    return context.output.ReportUsage("one transaction writes at most 63 bytes");
  }
  return RunTransaction(context, options, MakeI2cWrite(address, *data));
}

int RunRead(Context& context, const Options& options) {
  std::string problem;
  std::uint8_t address = 0;
  if (options.words.size() != 3) return context.output.ReportUsage("read wants ADDRESS COUNT");
  if (!ParseAddress(options.words[1], address, problem)) {
    return context.output.ReportUsage(problem);
  }
  const auto count = ParseNumber(options.words[2], 1, kMaxI2cBytesPerPhase);
  if (!count) return context.output.ReportUsage("one transaction reads 1 to 63 bytes");
  const auto size = static_cast<std::size_t>(*count);
  if (options.after.empty()) return RunTransaction(context, options, MakeI2cRead(address, size));
  const auto data = BytesFromHex(options.after);
  if (!data || data->empty() || data->size() > kMaxI2cBytesPerPhase) {
    return context.output.ReportUsage("--after wants 1 to 63 bytes in hexadecimal");
  }
  return RunTransaction(context, options, MakeI2cWriteRead(address, *data, size));
}

// Reads one byte from each address. (A write would be able to change a device.)
int RunScan(Context& context, const Options& options) {
  if (options.words.size() != 1) return context.output.ReportUsage("scan wants nothing else");
  TargetSession session(context, kI2cModes);
  int exit_status = kExitSuccess;
  if (!session.Open(options.target, exit_status)) return exit_status;
  Result result;
  auto addresses = nlohmann::ordered_json::array();
  for (std::uint8_t address = kFirstAddress; address <= kLastAddress; ++address) {
    context.output.ShowProgress("address " + NumberFromBits(std::span(&address, 1), 8));
    Bytes reply;
    const TzErrorCode error = Transfer(context, session, MakeI2cRead(address, 1), reply);
    // An address that nobody answers may end as an error of the probe, and the scan goes on. Any
    // other error would come at every address.
    if (error != TzErrorCode::SUCCESS && error != TzErrorCode::WFX_ERROR) {
      result.error = error;
      break;
    }
    if (error != TzErrorCode::SUCCESS || !I2cPacket::Answered(reply)) continue;
    addresses.push_back(address);
    result.text += NumberFromBits(std::span(&address, 1), 8) + "\n";
  }
  result.outputs["addresses"] = std::move(addresses);
  if (result.text.empty() && result.error == TzErrorCode::SUCCESS) {
    result.note = "no I2C device answers; check the bus's wiring and the target's power";
  }
  return session.Report(result);
}

}  // namespace

Action DefineI2c(CLI::App& app) {
  auto options = std::make_shared<Options>();
  AddTransferTarget(app, options->target);
  Offer(app.add_option("WORDS", options->words, "A transaction, or a packet; see below"),
        std::string("write read scan ") + kAtFileOffer)
      ->required();
  app.add_option("--after", options->after,
                 "read only: bytes to write first, before a repeated start (a register's number)");
  AddNumber(app, "--restart", options->restart, INT32_MIN, INT32_MAX,
            "Packet only: data bytes before the repeated start (default 0, none)");
  app.add_flag("--text", options->text, "@FILE holds hexadecimal text");
  app.footer(std::string("Transactions, with 7-bit addresses and at most 63 bytes:\n"
                         "  write ADDRESS BYTES\n"
                         "  read ADDRESS COUNT [--after BYTES]\n"
                         "  scan                  find the addresses that answer\n"
                         "Packet: address byte and data as the probe's engine takes them, as ") +
             kBytesHelp +
             ".\n"
             "\n"
             "Examples:\n"
             "  wfx i2c WFX0002 write 0x50 10 aa bb          two bytes to register 0x10\n"
             "  wfx i2c WFX0002 read 0x50 2 --after 10       and back\n"
             "  wfx i2c WFX0002 a010a10000 --restart 1       the same as a packet");
  return [options](Context& context) {
    const std::string word = LowerCase(options->words[0]);
    if (word == "write") return RunWrite(context, *options);
    if (word == "read") return RunRead(context, *options);
    if (word == "scan") return RunScan(context, *options);
    return RunPacket(context, *options);
  };
}

}  // namespace client
