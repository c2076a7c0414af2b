// Options that several commands share: numbers, names of the interface's constants, the target and
// the bytes of a transfer.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "client/command.h"
#include "client/interface_names.h"
#include "client/numbers.h"
#include "client/offers.h"

namespace client {

// Each adds an option or, when `name` has no dashes, a positional argument. The value must outlive
// the parsing. Text that does not fit is a usage error.
CLI::Option* AddNumber(CLI::App& app, const std::string& name, std::int64_t& value,
                       std::int64_t lowest, std::int64_t highest, const std::string& help);

// A constant by name, or a number in [0, highest], which reaches the service as it is.
CLI::Option* AddNamed(CLI::App& app, const std::string& name, std::int64_t& value,
                      const NameSet& set, std::int64_t highest, const std::string& help);

CLI::Option* AddOnOff(CLI::App& app, const std::string& name, bool& value, const std::string& help);

CLI::Option* AddProbe(CLI::App& app, std::string& probe);

// Where a transfer goes: a probe's target, or in a script a session ("$NAME").
struct TransferTarget {
  std::string probe;
  std::int64_t target = 0;
};
void AddTransferTarget(CLI::App& app, TransferTarget& target);

void AddVcd(CLI::App& app, std::string& path);

// All of a file, byte by byte. On failure returns nothing and says why in `problem`.
std::optional<std::string> ReadWholeFile(const std::string& path, std::string& problem);

// Bytes from the words of a command: hexadecimal, or one word "@FILE" for a file's bytes, or "-"
// for hexadecimal text on standard input. `text` makes a file hexadecimal text, too. On failure
// returns nothing and says why in `problem`.
std::optional<Bytes> ReadBytes(Context& context, std::span<const std::string> words, bool text,
                               std::string& problem);

// The same for a packet, which holds at least one byte: an input that is empty by mistake must not
// look like a transfer that went well.
std::optional<Bytes> ReadPacket(Context& context, std::span<const std::string> words, bool text,
                                std::string& problem);

// The help that goes with them.
inline constexpr const char* kBytesHelp =
    "bytes in hexadecimal, @FILE for a file's bytes, or - for hexadecimal text on standard input";

// False when the file cannot be written.
bool OpenToWrite(const std::string& path, std::ofstream& file);

// False when the file cannot be written whole.
bool WriteFile(const std::string& path, std::span<const std::uint8_t> bytes);

}  // namespace client
