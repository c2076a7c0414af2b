#include <memory>
#include <string>
#include <vector>

#include "client/commands.h"
#include "client/options.h"
#include "client/swd_link.h"
#include "client/target_session.h"
#include "client/text.h"

namespace client {

namespace {

constexpr std::int64_t kMaxWords = 1 << 22;  // 16 MiB
constexpr std::int64_t kMaxAddress = 0xFFFFFFFC;

struct Options {
  TransferTarget target;
  std::vector<std::string> words;
  std::int64_t access_port = 0;
  std::string out_file;
  bool text = false;
};

// One operation of a program, with what it is to do or has read.
struct Operation {
  enum class Kind { kReadDp, kWriteDp, kReadAp, kWriteAp, kReadMemory, kWriteMemory };
  Kind kind;
  std::string name;
  std::uint32_t address = 0;
  std::vector<std::uint32_t> values;
};

struct OperationKind {
  const char* name;
  Operation::Kind kind;
  std::int64_t highest_address;
};
constexpr OperationKind kOperationKinds[] = {
    {"read-dp", Operation::Kind::kReadDp, 0xC},
    {"write-dp", Operation::Kind::kWriteDp, 0xC},
    {"read-ap", Operation::Kind::kReadAp, 0xFC},
    {"write-ap", Operation::Kind::kWriteAp, 0xFC},
    {"read-mem", Operation::Kind::kReadMemory, kMaxAddress},
    {"write-mem", Operation::Kind::kWriteMemory, kMaxAddress},
};

const OperationKind* FindKind(const std::string& word) {
  const std::string name = LowerCase(word);
  for (const OperationKind& kind : kOperationKinds) {
    if (name == kind.name) return &kind;
  }
  return nullptr;
}

// Reads "NAME ADDRESS [VALUE ...]" operations out of the words.
class OperationParser {
 public:
  OperationParser(Context& context, const Options& options)
      : context_(context), options_(options), words_(options.words) {}

  bool Parse(std::vector<Operation>& operations, std::string& problem) {
    while (at_ < words_.size()) {
      if (!ParseOne(operations.emplace_back(), problem)) return false;
    }
    return true;
  }

 private:
  bool ParseOne(Operation& operation, std::string& problem) {
    const OperationKind* kind = FindKind(words_[at_]);
    if (!kind) {
      problem = "'" + words_[at_] + "' is no operation";
      return false;
    }
    operation.kind = kind->kind;
    operation.name = kind->name;
    ++at_;
    const std::string word = at_ < words_.size() ? words_[at_++] : "";
    const auto address = ParseNumber(word, 0, kind->highest_address);
    if (!address || *address % 4 != 0) {
      problem = operation.name + " wants an address that is a multiple of 4, not '" + word + "'";
      return false;
    }
    operation.address = static_cast<std::uint32_t>(*address);
    return ParseValues(operation, problem);
  }

  bool ParseValues(Operation& operation, std::string& problem) {
    switch (operation.kind) {
      case Operation::Kind::kReadDp:
      case Operation::Kind::kReadAp:
        operation.values.resize(1);
        return true;
      case Operation::Kind::kWriteDp:
      case Operation::Kind::kWriteAp:
        return TakeValue(operation, problem);
      case Operation::Kind::kReadMemory:
        return TakeCount(operation, problem);
      case Operation::Kind::kWriteMemory:
        return TakeMemoryValues(operation, problem);
    }
    return false;
  }

  bool MoreValues() const { return at_ < words_.size() && !FindKind(words_[at_]); }

  bool TakeValue(Operation& operation, std::string& problem) {
    const std::string word = MoreValues() ? words_[at_++] : "";
    const auto value = ParseNumber(word, 0, UINT32_MAX);
    if (!value) {
      problem = operation.name + " wants a 32-bit value, not '" + word + "'";
      return false;
    }
    operation.values.push_back(static_cast<std::uint32_t>(*value));
    return true;
  }

  bool FitsMemory(const Operation& operation, std::string& problem) const {
    if (operation.values.size() * 4 <= 0x100000000u - operation.address) return true;
    problem = operation.name + ": the range goes beyond the address space";
    return false;
  }

  bool TakeCount(Operation& operation, std::string& problem) {
    std::int64_t count = 1;
    if (MoreValues()) {
      const std::string word = words_[at_++];
      const auto number = ParseNumber(word, 1, kMaxWords);
      if (!number) {
        problem = "read-mem wants a number of words, not '" + word + "'";
        return false;
      }
      count = *number;
    }
    operation.values.resize(static_cast<std::size_t>(count));
    return FitsMemory(operation, problem);
  }

  bool TakeMemoryValues(Operation& operation, std::string& problem) {
    if (MoreValues() && words_[at_].starts_with('@')) {
      const auto bytes = ReadBytes(context_, words_.subspan(at_++, 1), options_.text, problem);
      if (!bytes) return false;
      if (bytes->empty() || bytes->size() % 4 != 0) {
        problem = "write-mem writes whole words of four bytes, at least one";
        return false;
      }
      for (std::size_t i = 0; i < bytes->size(); i += 4) {
        operation.values.push_back(LoadWord(*bytes, i));
      }
      return FitsMemory(operation, problem);
    }
    do {
      if (!TakeValue(operation, problem)) return false;
    } while (MoreValues());
    return FitsMemory(operation, problem);
  }

  Context& context_;
  const Options& options_;
  std::span<const std::string> words_;
  std::size_t at_ = 0;
};

bool Perform(SwdLink& link, Operation& operation) {
  switch (operation.kind) {
    case Operation::Kind::kReadDp:
      return link.ReadDebugPort(operation.address, operation.values[0]);
    case Operation::Kind::kWriteDp:
      return link.WriteDebugPort(operation.address, operation.values[0]);
    case Operation::Kind::kReadAp:
      return link.ReadAccessPort(operation.address, operation.values[0]);
    case Operation::Kind::kWriteAp:
      return link.WriteAccessPort(operation.address, operation.values[0]);
    case Operation::Kind::kReadMemory:
      return link.ReadMemory(operation.address, operation.values);
    case Operation::Kind::kWriteMemory:
      return link.WriteMemory(operation.address, operation.values);
  }
  return false;
}

// What a finished operation has to say, for people and for programs. `memory` collects what was
// read.
void AddOperation(const Operation& operation, Result& result, nlohmann::ordered_json& operations,
                  Bytes& memory) {
  nlohmann::ordered_json entry = {{"operation", operation.name},
                                  {"address", HexWord(operation.address)}};
  if (operation.kind == Operation::Kind::kReadMemory) {
    Bytes bytes;
    for (const std::uint32_t word : operation.values) AppendWord(bytes, word);
    entry["data"] = HexFromBytes(bytes);
    result.text += HexDump(bytes, operation.address);
    memory.insert(memory.end(), bytes.begin(), bytes.end());
  } else if (operation.kind != Operation::Kind::kWriteMemory) {
    entry["value"] = HexWord(operation.values[0]);
    result.text += operation.name + " " + HexWord(operation.address) + "  " +
                   HexWord(operation.values[0]) + "\n";
  } else {
    entry["words"] = operation.values.size();
    result.text += "wrote " + std::to_string(operation.values.size()) + " words\n";
  }
  operations.push_back(std::move(entry));
}

int RunOperations(Context& context, const Options& options) {
  std::vector<Operation> program;
  std::string problem;
  if (!OperationParser(context, options).Parse(program, problem)) {
    return context.output.ReportUsage(problem);
  }
  TargetSession session(context, kSwdModes);
  int exit_status = kExitSuccess;
  if (!session.Open(options.target, exit_status)) return exit_status;
  Result result;
  const auto exchange = [&](const Bytes& packet, Bytes& reply) {
    result.error = context.service().SendSwdPacket(packet, session.handle(), reply);
    return result.error == TzErrorCode::SUCCESS;
  };
  SwdLink link(exchange, static_cast<std::uint32_t>(options.access_port));
  link.SetProgress([&](std::size_t done, std::size_t all) {
    context.output.ShowProgress(std::to_string(done) + " of " + std::to_string(all) + " words");
  });
  auto operations = nlohmann::ordered_json::array();
  Bytes memory;
  for (Operation& operation : program) {
    if (!Perform(link, operation)) {
      if (result.error == TzErrorCode::SUCCESS) {
        result.target_problem =
            operation.name + " " + HexWord(operation.address) + ": " + link.problem();
      }
      break;
    }
    AddOperation(operation, result, operations, memory);
  }
  result.outputs["RESULT"] = HexFromBytes(link.replies());
  result.outputs["operations"] = std::move(operations);
  if (!options.out_file.empty() && !WriteFile(options.out_file, memory)) {
    return context.output.ReportUsage("cannot write " + options.out_file);
  }
  return session.Report(result);
}

int RunPacket(Context& context, const Options& options) {
  std::string problem;
  const auto packet = ReadPacket(context, options.words, options.text, problem);
  if (!packet) return context.output.ReportUsage(problem);
  TargetSession session(context, kSwdModes);
  int exit_status = kExitSuccess;
  if (!session.Open(options.target, exit_status)) return exit_status;
  Result result;
  Bytes reply;
  result.error = context.service().SendSwdPacket(*packet, session.handle(), reply);
  result.outputs["RESULT"] = HexFromBytes(reply);
  if (result.error == TzErrorCode::SUCCESS) result.text = HexDump(reply);
  return session.Report(result);
}

}  // namespace

Action DefineSwd(CLI::App& app) {
  auto options = std::make_shared<Options>();
  AddTransferTarget(app, options->target);
  std::string operations;
  for (const OperationKind& kind : kOperationKinds) operations.append(kind.name).append(" ");
  Offer(app.add_option("WORDS", options->words, "Requests, or operations; see below"),
        operations + kAtFileOffer)
      ->required();
  AddNumber(app, "--ap", options->access_port, 0, 255,
            "Number of the access port for read-ap, write-ap and memory (default 0)");
  Offer(
      app.add_option("--out", options->out_file, "Write the memory that is read to this file, too"),
      kFileOffer);
  app.add_flag("--text", options->text, "@FILE holds hexadecimal text");
  app.footer(
      std::string("Requests: each a header and for a write its word, lowest byte first, as ") +
      kBytesHelp +
      ".\n"
      "Operations, one or several:\n"
      "  read-dp ADDRESS            read-ap ADDRESS            a port's register\n"
      "  write-dp ADDRESS VALUE     write-ap ADDRESS VALUE\n"
      "  read-mem ADDRESS [WORDS]   write-mem ADDRESS VALUE... or @FILE\n"
      "\n"
      "Examples:\n"
      "  wfx swd WFX0002 read-dp 0                        the target's id\n"
      "  wfx swd WFX0002 read-mem 0x20000000 64           256 bytes of its memory\n"
      "  wfx swd WFX0002 write-mem 0x20000000 @code.bin   a file into its memory\n"
      "  wfx swd WFX0002 a5                               the id by a raw request");
  return [options](Context& context) {
    return FindKind(options->words[0]) ? RunOperations(context, *options)
                                       : RunPacket(context, *options);
  };
}

}  // namespace client
