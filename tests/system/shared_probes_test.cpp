// Eight client processes at once on the probes of one bench: what each is told, and what went over
// the wire.
#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <sstream>
#include <thread>

#include "tests/system/capture.h"
#include "tests/system/harness.h"
#include "tests/unit/random_seed.h"

namespace system_test {
namespace {

constexpr int kClients = 8;
// A transfer is four calls at least: status, acquire, the transfer itself, release.
constexpr int kLines = 250;

std::string Hex(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<std::uint8_t>(byte) >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string Word(std::uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift);
  return bytes;
}

struct Line {
  std::string command;
  std::string packet{};    // what goes to the probe's target; empty for other commands
  std::string expected{};  // its reply, from the offset on
  std::size_t offset = 0;
  std::size_t status_offset =
      0;  // of the status byte that tells whether the target listened; 0: none
};

// One client's script, made so that the reply of each packet is known whatever the others did
// before.
class Script {
 public:
  Script(int client, std::uint32_t seed) : client_(client), random_(seed) {
    // Modes and scans are few: the probe pauses in them.
    static constexpr Line (Script::*kWriters[])() = {
        &Script::Mode, &Script::Targets, &Script::Control, &Script::Jtag, &Script::Jtag,
        &Script::Jtag, &Script::Jtag,    &Script::Jtag,    &Script::Swd,  &Script::Swd,
        &Script::Swd,  &Script::Swd,     &Script::Swd,     &Script::Swd,  &Script::Swd};
    for (int i = 0; i < kLines; ++i)
      lines.push_back((this->*kWriters[Below(std::size(kWriters))])());
  }

  std::string Text() const {
    std::string text;
    for (const Line& line : lines) text += std::string("-") + line.command + "\n";
    return text;
  }

  std::vector<Line> lines;

 private:
  std::uint32_t Below(std::uint32_t end) { return static_cast<std::uint32_t>(random_() % end); }
  std::string AnyProbe() { return std::array{"WFX0001", "WFX0002", "EVK0001"}[Below(3)]; }

  Line Mode() {
    const std::string probe = AnyProbe();
    return {std::string("mode ") + probe +
            (probe == "WFX0001" || Below(8) == 0 ? " JTAG" : " SWD")};
  }
  Line Targets() { return {std::string("targets ") + AnyProbe()}; }
  Line Control() { return {std::string(std::array{"status ", "hwrev "}[Below(2)]) + AnyProbe()}; }

  // Through reset into Shift-DR: the ids of the chain come out, and then what went in.
  Line Jtag() {
    std::string packet("\xF0\xF0\xF0\x20", 4);
    const std::uint32_t pairs = 8 + Below(Below(8) == 0 ? 3000 : 100);
    std::string expected("\x7F\x61\x84\x06\x77\x14\xA0\x1B", 8);
    for (std::uint32_t i = 0; i < pairs; ++i) {
      const std::uint32_t bits = Below(256);
      packet += static_cast<char>(bits & 15);
      packet += static_cast<char>(bits >> 4);
      expected += static_cast<char>(bits);
    }
    expected.resize(pairs);
    return {std::string("jtag WFX0001 ") + Hex(packet), packet, expected, 2};
  }

  // Writes a word that no other client touches, and reads it back.
  Line Swd() {
    const std::uint32_t value = static_cast<std::uint32_t>(random_());
    const std::string address = Word(0x20000000 + 4 * static_cast<std::uint32_t>(client_));
    std::string packet = "\xA5";                           // IDCODE
    packet += std::string("\x81") + Word(0x1E);            // clear what is pending
    packet += std::string("\xB1") + Word(0);               // SELECT
    packet += std::string("\xA9") + Word(0x50000000);      // power up
    packet += std::string("\xA3") + Word(0x23000052);      // CSW: words
    packet += std::string("\x8B") + address;               // TAR
    packet += std::string("\xBB") + Word(value);           // DRW
    packet += std::string("\x8B") + address + "\x9F\xBD";  // DRW, RDBUFF
    const std::string probe = std::array{"WFX0002", "EVK0001"}[Below(2)];
    return {std::string("swd ") + probe + " " + Hex(packet), packet, Word(value), 5 + 7 + 5, 4};
  }

  const int client_;
  std::mt19937 random_;
};

// The OUT data of each device, and how far a client's packets have been found in each.
class Wire {
 public:
  explicit Wire(const std::vector<std::string>& streams)
      : streams_(streams), from_(streams.size()) {}

  bool Carries(const std::string& packet) {
    for (std::size_t i = 0; i < streams_.size(); ++i) {
      const std::size_t found = streams_[i].find(packet, from_[i]);
      if (found == std::string::npos) continue;
      from_[i] = found + packet.size();
      return true;
    }
    return false;
  }

 private:
  const std::vector<std::string>& streams_;
  std::vector<std::size_t> from_;
};

struct Answered {
  int jtag = 0;
  int swd = 0;
};

void Check(const Script& script, const std::string& output, const std::vector<std::string>& streams,
           Answered& answered) {
  std::istringstream text(output);
  Wire wire(streams);
  std::string json;
  for (const Line& line : script.lines) {
    SCOPED_TRACE(line.command.substr(0, 60));
    ASSERT_TRUE(std::getline(text, json));
    const auto result = nlohmann::json::parse(json);
    const std::string error = result["error"];
    static const Words kAllowed = {"SUCCESS", "IN_USE", "INVALID_MODE", "INVALID_DEVICE",
                                   "NOT_ACQUIRED"};
    EXPECT_NE(std::ranges::find(kAllowed, error), kAllowed.end()) << json;
    if (error != "SUCCESS" || line.packet.empty()) continue;
    EXPECT_TRUE(wire.Carries(line.packet)) << "not whole, or not in order";
    const std::string reply = result["RESULT"];
    ASSERT_EQ(reply.size() / 2, line.status_offset != 0 ? 22u : line.packet.size() / 2);
    // No serial-wire target listens before its line was reset, as another client may have left it.
    if (line.status_offset != 0 && reply.substr(2 * line.status_offset, 2) != "01") continue;
    EXPECT_EQ(reply.substr(2 * line.offset, 2 * line.expected.size()), Hex(line.expected));
    ++(line.status_offset != 0 ? answered.swd : answered.jtag);
  }
  EXPECT_FALSE(std::getline(text, json)) << json;
}

class SharedProbes : public SystemTest {};

TEST_F(SharedProbes, EightProcessesLoseAndMixNothing) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
  const std::uint32_t seed = unit::RandomSeed();
  std::vector<Script> scripts;
  std::vector<std::unique_ptr<Process>> clients;
  for (int i = 0; i < kClients; ++i) {
    scripts.emplace_back(i, seed + static_cast<std::uint32_t>(i));
    clients.push_back(StartWfx({"script", "-", "--json"}, scripts.back().Text()));
  }
  std::array<std::string, kClients> outputs;
  {
    std::vector<std::jthread> readers;
    for (std::size_t i = 0; i < kClients; ++i) {
      readers.emplace_back([&, i] { outputs[i] = clients[i]->ReadAll(5 * kPatience); });
    }
  }
  for (const auto& client : clients) EXPECT_EQ(client->Wait(), 0);
  ASSERT_EQ(Ctl({"stop"}).exit_status, 0);
  ASSERT_EQ(bench->Wait(), 0);

  const std::vector<std::string> streams = ReadBulkOut(capture_path(), 0x02);
  Answered answered;
  for (std::size_t i = 0; i < kClients; ++i) Check(scripts[i], outputs[i], streams, answered);
  EXPECT_GT(answered.jtag, 50);
  EXPECT_GT(answered.swd, 50);
}

}  // namespace
}  // namespace system_test
