#include "client/options.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "client/text.h"

namespace client {

namespace {

std::filesystem::path PathOf(const std::string& utf8) {
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string ReadAll(std::istream& stream) {
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
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
  return app.add_option_function<std::string>(name, parse,
                                              help + ": " + AllNames(set) + ", or a number");
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
  return app.add_option_function<std::string>(name, parse, help + ": on or off");
}

CLI::Option* AddProbe(CLI::App& app, std::string& probe) {
  return app.add_option("PROBE", probe, "The probe's name, as `wfx list` gives it")->required();
}

void AddTransferTarget(CLI::App& app, TransferTarget& target) {
  app.add_option("PROBE", target.probe, "The probe's name; in a script also $SESSION")->required();
  AddNumber(app, "--target", target.target, 0, INT32_MAX,
            "Number of the target behind the probe (default 0, the first)");
}

std::optional<Bytes> ReadBytes(Context& context, std::span<const std::string> words, bool text,
                               std::string& problem) {
  std::string hex;
  if (words.size() == 1 && words[0].size() > 1 && words[0][0] == '@') {
    const std::string path = words[0].substr(1);
    std::ifstream file(PathOf(path), std::ios::binary);
    hex = ReadAll(file);
    if (!file) {
      problem = "cannot read " + path;
      return std::nullopt;
    }
    if (!text) return Bytes(hex.begin(), hex.end());
  } else if (words.size() == 1 && words[0] == "-") {
    if (context.input == nullptr) {
      problem = "standard input is the script itself";
      return std::nullopt;
    }
    hex = ReadAll(*context.input);
  } else {
    for (const std::string& word : words) hex += word + " ";
  }
  auto bytes = BytesFromHex(hex);
  if (!bytes) problem = "bytes are pairs of hexadecimal digits";
  return bytes;
}

bool WriteFile(const std::string& path, std::span<const std::uint8_t> bytes) {
  std::ofstream file(PathOf(path), std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.close();
  return file.good();
}

}  // namespace client
