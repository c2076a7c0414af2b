#include "client/options.h"

#include <array>
#include <filesystem>

#include "client/text.h"

namespace client {

namespace {

std::filesystem::path PathOf(const std::string& utf8) {
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

// False when the stream breaks before its end.
bool ReadAll(std::istream& stream, std::string& content) {
  std::array<char, 65536> block;
  do {
    stream.read(block.data(), block.size());
    content.append(block.data(), static_cast<std::size_t>(stream.gcount()));
  } while (stream);
  return stream.eof();
}

}  // namespace

CLI::Option* AddNumber(CLI::App& app, const std::string& name, std::int64_t& value,
                       std::int64_t lowest, std::int64_t highest, const std::string& help) {
  const auto parse = [&value, name, lowest, highest](const std::string& text) {
    const auto number = ParseNumber(text, lowest, highest);
    if (!number) {
      throw CLI::ValidationError(name, "'" + text + "' is no number from " +
                                           std::to_string(lowest) + " to " +
                                           std::to_string(highest));
    }
    value = *number;
  };
  return app.add_option_function<std::string>(name, parse, help);
}

CLI::Option* AddNamed(CLI::App& app, const std::string& name, std::int64_t& value,
                      const NameSet& set, std::int64_t highest, const std::string& help) {
  const auto parse = [&value, name, set, highest](const std::string& text) {
    if (const auto constant = ValueOfName(set, text)) {
      value = *constant;
      return;
    }
    const auto number = ParseNumber(text, 0, highest);
    if (!number) {
      throw CLI::ValidationError(name, "'" + text + "' is none of " + AllNames(set) +
                                           ", and no number up to " + std::to_string(highest));
    }
    value = *number;
  };
  const std::string names = AllNames(set);
  auto* const option =
      app.add_option_function<std::string>(name, parse, help + ": " + names + ", or a number");
  std::string words = names;
  std::erase(words, ',');
  return Offer(option, words);
}

CLI::Option* AddOnOff(CLI::App& app, const std::string& name, bool& value,
                      const std::string& help) {
  const auto parse = [&value, name](const std::string& text) {
    const std::string word = LowerCase(text);
    if (word != "on" && word != "off") {
      throw CLI::ValidationError(name, "'" + text + "' is neither on nor off");
    }
    value = word == "on";
  };
  return Offer(app.add_option_function<std::string>(name, parse, help + ": on or off"), "on off");
}

CLI::Option* AddProbe(CLI::App& app, std::string& probe) {
  const char* const help = "The probe's name, as `wfx list` gives it";
  return Offer(app.add_option("PROBE", probe, help), kProbeOffer)->required();
}

void AddTransferTarget(CLI::App& app, TransferTarget& target) {
  const char* const help = "The probe's name; in a script also $SESSION";
  Offer(app.add_option("PROBE", target.probe, help), kProbeOffer)->required();
  AddNumber(app, "--target", target.target, 0, INT32_MAX,
            "Number of the target behind the probe (default 0, the first)");
}

void AddVcd(CLI::App& app, std::string& path) {
  const char* const help = "Write TCK, TMS, TDI and TDO to this file, a Value Change Dump";
  Offer(app.add_option("--vcd", path, help), kFileOffer);
}

std::optional<std::string> ReadWholeFile(const std::string& path, std::string& problem) {
  std::string content;
  std::error_code unknown;
  if (std::filesystem::is_directory(PathOf(path), unknown)) {
    problem = path + " is a folder";
    return std::nullopt;
  }
  std::ifstream file(PathOf(path), std::ios::binary);
  if (ReadAll(file, content)) return content;
  problem = "cannot read " + path;
  return std::nullopt;
}

std::optional<Bytes> ReadBytes(Context& context, std::span<const std::string> words, bool text,
                               std::string& problem) {
  std::string hex;
  if (words.size() == 1 && words[0].size() > 1 && words[0][0] == '@') {
    auto content = ReadWholeFile(words[0].substr(1), problem);
    if (!content) return std::nullopt;
    if (!text) return Bytes(content->begin(), content->end());
    hex = std::move(*content);
  } else if (words.size() == 1 && words[0] == "-") {
    if (!context.input) {
      problem = "standard input is the script itself";
      return std::nullopt;
    }
    if (!ReadAll(*context.input, hex)) {
      problem = "cannot read standard input";
      return std::nullopt;
    }
  } else {
    for (const std::string& word : words) hex += word + " ";
  }
  auto bytes = BytesFromHex(hex);
  if (!bytes) problem = "bytes are pairs of hexadecimal digits";
  return bytes;
}

std::optional<Bytes> ReadPacket(Context& context, std::span<const std::string> words, bool text,
                                std::string& problem) {
  auto packet = ReadBytes(context, words, text, problem);
  if (!packet || !packet->empty()) return packet;
  problem = "there are no bytes to send";
  return std::nullopt;
}

bool OpenToWrite(const std::string& path, std::ofstream& file) {
  file.open(PathOf(path), std::ios::binary | std::ios::trunc);
  return file.good();
}

bool WriteFile(const std::string& path, std::span<const std::uint8_t> bytes) {
  std::ofstream file;
  OpenToWrite(path, file);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.close();
  return file.good();
}

}  // namespace client
