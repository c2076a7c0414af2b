// The commands of the client, against a service that answers as a test says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <utility>

#include "client/doctor/checks.h"
#include "tests/unit/client/fake_wirefox.h"
#include "tests/unit/scratch_folder.h"

namespace client_test {
namespace {

// The service of a transcript, and whether what the client prints goes nowhere.
struct Setting {
  FakeService fake;
  bool closed = false;

  void Prepare(const std::string& line) {
    std::istringstream in(line);
    std::string name;
    std::string method;
    in >> name;
    if (name == "outcomes" || name == "failure") in >> method;
    const std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
    if (name == "closed") closed = true;
    if (name == "colours") fake.colours = true;
    if (name == "wirefoxs") fake.wirefoxs = words;
    if (name == "devices") fake.devices = words;
    if (name == "status") {
      fake.status = {1, 11, -2, 12, 1, 0x0102, 0x0304, 200, -32768, 3, 0, 1, 0, 1, 1, 1, 224};
    }
    if (name == "reply") {
      const auto bytes = client::BytesFromHex(line.substr(name.size())).value();
      fake.reply = [bytes](const client::Bytes&) { return bytes; };
    }
    if (name == "outcomes") {
      for (const std::string& word : words) {
        fake.outcomes[method].push_back(static_cast<TzErrorCode>(std::stol(word)));
      }
    }
    const auto number = [&] { return static_cast<LONG>(std::stoll(words.at(0), nullptr, 0)); };
    if (name == "acquire") fake.acquire_status = number();
    if (name == "failure") fake.call_failures[method] = number();
    if (name == "unreachable") fake.connection_failure = number();
    if (name == "version") fake.version = number();
    if (name == "revision") fake.revision = number();
    if (name == "mode") fake.status.ACTIVE_INTERFACE = static_cast<std::uint8_t>(number());
  }
};

// The transcript with what the client says now.
std::string Replayed(const std::string& transcript) {
  std::istringstream lines(transcript);
  std::string replayed;
  std::string input;
  auto setting = std::make_unique<Setting>();
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) setting = std::make_unique<Setting>();
    if (line.empty() || std::string_view("#@<$").find(line[0]) != std::string_view::npos) {
      replayed.append(line).append("\n");
    }
    const std::string rest = line.size() > 2 ? line.substr(2) : "";
    if (line.starts_with('@')) setting->Prepare(rest);
    if (line.starts_with('<')) input.append(rest).append("\n");
    if (line.starts_with('$')) {
      replayed += Transcript(setting->fake, rest, std::exchange(input, ""), setting->closed);
    }
  }
  return replayed;
}

TEST(Commands, GoAsTheTranscriptHasThem) {
  for (const char* name : {"commands.txt", "mistyped.txt", "terminal.txt"}) {
    std::ifstream file(std::string(WIREFOX_SOURCE_DIR "/tests/unit/client/") + name,
                       std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(Replayed(text), text) << name;
  }
}

TEST(Commands, ReadTheirBytesFromFilesAndWriteThemThere) {
  FakeService fake;
  fake.reply = [](const client::Bytes&) { return client::Bytes{1, 2, 3, 0x44, 5}; };
  const unit::ScratchFolder folder;
  Transcript(fake, "bulk P 6 read 1 --out " + folder.Path("read"));
  Transcript(fake, "bulk P 6 write 01 --out " + folder.Path("written"));
  EXPECT_EQ(folder.Read("read"), "\1\2\3\x44\5");
  EXPECT_FALSE(folder.Holds("written"));
  const std::string here = folder.Path("");
  const std::string empty = folder.Write("empty", "");
  const std::pair<std::string, std::string> cases[] = {
      {"jtag P --text @" + folder.Write("text", "f0 f"), "bytes are pairs of hexadecimal digits"},
      {"jtag P @" + here, here + " is a folder"},
      {"script " + here, here + " is a folder"},
      {"swd P @" + empty, "there are no bytes to send"},
      {"swd P write-mem 0 @" + empty, "write-mem writes whole words of four bytes, at least one"},
      {"i2c P write 0x50 @" + folder.Write("64", std::string(64, 'x')),
       "one transaction writes at most 63 bytes"}};
  for (const auto& [line, problem] : cases)
    EXPECT_EQ(Transcript(fake, line), "wfx: " + problem + "\n= 2\n") << line;
}

TEST(Commands, PlayHoldsTheChainSetsItsClockAndNamesFileAndLine) {
  FakeService fake;
  fake.reply = [](const client::Bytes& packet) { return client::Bytes(packet.size() / 2); };
  const unit::ScratchFolder folder;
  const auto play = [&](const std::string& svf, const std::string& options = "") {
    return Transcript(fake, "play P " + folder.Write("f", svf) + options);
  };
  const std::string held =
      "> EnumerateWirefoxs\n> SetMode P 272 0 1\n> EnumerateDevices P\n> AcquireDevice P 0 1\n"
      "> SetMode P 1 0 1\n> ToggleXres P 0\n> SetJtagClock P ";
  const std::string reset = "> SendJtagPacket 1 260 f0f0f0f0\n";
  const std::string end = "> ReleaseDevice 260\n> EnumerateDevices P\n";
  const std::string at = "wfx: " + folder.Path("f");
  EXPECT_EQ(play("FREQUENCY 2E6 HZ;FREQUENCY;\nSDR 3 TDI (5) TDO (0);"),
            held + "96 1\n" + reset + "> SetJtagClock P 152 1\n> SetJtagClock P 96 1\n" +
                "> SendJtagPacket 1 260 f0f020c50000\n" + end +
                "3 steps played, the TDO bits of 1 scans are as they should be\n");
  EXPECT_EQ(
      play("FREQUENCY 1 HZ;FREQUENCY 2E6 HZ;\nSDR 3 TDI (5) TDO (2);",
           " --clock FREQ_B_24_0 --json"),
      held + "1 1\n" + reset + "> SendJtagPacket 1 260 f0f020c50000\n" + end +
          R"({"error":"SUCCESS","line":2,"scan":"SDR","bits":3,"tdo":"0x0","expected":"0x2",)" +
          R"("mask":"0x7","problem":)" +
          nlohmann::json(folder.Path("f") + ":2: SDR 3: TDO is 0x0, not 0x2 (mask 0x7)").dump() +
          "}\n" + at + ":2: SDR 3: TDO is 0x0, not 0x2 (mask 0x7)\n= 1\n");
  // Sixteen cycles of the reset at 6 MHz, as many of the way to Idle at 3 MHz, and 0.02 s of rest.
  const auto begin = std::chrono::steady_clock::now();
  play("FREQUENCY 3E6 HZ;RUNTEST 0.02 SEC;", " --vcd " + folder.Path("v"));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
  EXPECT_THAT(folder.Read("v"), testing::EndsWith("#7833332\n1!\n#7999999\n0!\n#20007999999\n"));
  if (std::filesystem::exists("/dev/full")) {
    EXPECT_THAT(play("STATE IDLE;", " --vcd /dev/full"),
                testing::EndsWith("wfx: cannot write /dev/full\n= 2\n"));
  }
  EXPECT_EQ(play("\nFREQUENCY 199999 HZ;"),
            at + ":2: FREQUENCY: the slowest clock is FREQ_C_00_2 (200000 Hz); --clock sets one "
                 "whatever the file says\n= 2\n");
  fake.outcomes["SendJtagPacket"] = {TzErrorCode::WFX_ERROR};
  EXPECT_THAT(play("STATE IDLE;"),
              testing::HasSubstr("WFX_ERROR (error 6): " + folder.Path("f") + ": the probe"))
      << "before its first line";
  EXPECT_EQ(play("\nPIO (H);"), at + ":2: PIO: the probe has no parallel pins\n= 2\n");
  fake.outcomes["SendJtagPacket"] = {TzErrorCode::SUCCESS, TzErrorCode::NOT_ACQUIRED};
  EXPECT_EQ(play("STATE IDLE;"),
            held + "96 1\n" + reset + "> SendJtagPacket 1 260 f0f00000\n" + end +
                "wfx: NOT_ACQUIRED (error 2): " + folder.Path("f") +
                ":1: another program has looked for targets, which moves the chain (or the probe "
                "was unplugged)\n= 12\n");
  // What each packet looks for first is a bypass register where the chain should wait.
  fake.reply = [](const client::Bytes& packet) { return client::Bytes(packet.size() / 2, 0xD2); };
  EXPECT_THAT(play("STATE IDLE;FREQUENCY;\nSTATE IDLE;"),
              testing::EndsWith(":2: another program has looked for targets, which moves the chain "
                                "(or the probe was unplugged)\n= 12\n"));
  fake.outcomes["SetJtagClock"] = {TzErrorCode::SUCCESS, TzErrorCode::WFX_ERROR};
  EXPECT_TRUE(play("\nFREQUENCY 2E5 HZ;").ends_with("plug the probe in again\n= 16\n"));
  const std::string nowhere = " --vcd " + folder.Path("no/file");
  for (const std::string& command : {"play P " + folder.Path("f"), std::string("jtag P 00")}) {
    EXPECT_EQ(Transcript(fake, command + nowhere),
              "wfx: cannot write " + folder.Path("no/file") + "\n= 2\n");
  }
  // The clock is asked for, and what was not read is unknown.
  Transcript(fake, "jtag P 05 00 --no-read --vcd " + folder.Path("vcd"));
  EXPECT_TRUE(
      folder.Read("vcd").ends_with("#0\n0!\n0\"\n1#\n#10416\n1!\n#20833\n0!\n0#\n"
                                   "#31250\n1!\n#41666\n0!\n1#\n#52083\n1!\n#62500\n"
                                   "0!\n0#\n#72916\n1!\n#83333\n0!\n#93750\n1!\n"
                                   "#104166\n0!\n#114583\n1!\n#125000\n0!\n#135416\n"
                                   "1!\n#145833\n0!\n#156250\n1!\n#166666\n0!\n"))
      << folder.Read("vcd");
}

TEST(Commands, WrongWordsAreUsageBeforeTheServiceIsAskedForAnything) {
  // Of those that the command line's own reading refuses, not even a connection is made.
  FakeService none;
  none.connection_failure = E_FAIL;
  for (const char* line :
       {"acquire P", "status", "status P Q", "list --colour", "mode P", "mode P SWIM",
        "mode P JTAG --port 7", "vtarg P 4.2", "vtarg P 3.3 --supply maybe",
        "vtarg P 3.3 --supply=", "timeout P EP3 1", "led P 1", "swv-setup P 2147483648",
        "bulk P 1 sideways 1", "jtag P", "jtag P 00 --target -1"}) {
    const std::string transcript = Transcript(none, line);
    EXPECT_EQ(transcript.substr(0, 5), "wfx: ") << line;
    EXPECT_NE(transcript.find("--help` tells more\n= 2\n"), std::string::npos) << line;
  }
}

TEST(Commands, AreDescribedByTheirHelp) {
  FakeService none;
  const std::string overview = Transcript(none, "--help");
  EXPECT_EQ(Transcript(none, "help mode"), Transcript(none, "mode --help"));
  EXPECT_NE(Transcript(none, "mode --help").find("VSER_INT"), std::string::npos);
  for (const char* summary :
       {"  list          Name the probes\n", "  acquire-port  Catch a target"})
    EXPECT_NE(overview.find(summary), std::string::npos) << overview;
  const std::string colours = Transcript(none, "--color=always --help");
  for (const char* heading : {"\n^[[1mUsage:^[[0m wfx [", "\n^[[1mCommands:^[[0m\n"})
    EXPECT_NE(colours.find(heading), std::string::npos) << colours;
  EXPECT_EQ(std::regex_replace(colours, std::regex(R"(\^\[\[[01]m)"), ""), overview);
  // Nothing runs it here: it is well formed as far as brackets go, and asks in the common way.
  const std::string script = Transcript(none, "completion powershell");
  for (const auto& [open, close] : {std::pair('{', '}'), std::pair('(', ')'), std::pair('[', ']')})
    EXPECT_EQ(std::ranges::count(script, open), std::ranges::count(script, close)) << script;
  for (const char* part : {"-Native -CommandName wfx, wfx.exe -ScriptBlock {\n",
                           "& $program __complete \"=$wordToComplete\" @before 2>$null |"})
    EXPECT_NE(script.find(part), std::string::npos) << script;
}

TEST(Advice, AProbeThatIsNotThereIsLookedForInEveryPlaceThatCouldHideIt) {
  const std::pair<client::ProbeSources, const char*> cases[] = {
      {{"/s/wfxusb.ini", true, true, "", false},
       "no probe: the service's settings file /s/wfxusb.ini is missing; put it there, with the "
       "firmware and FPGA files that it names, and start the service again"},
      {{"", false, false, "", false},
       "no probe is attached; plug one in (`wfx watch` tells when it is ready), and see that "
       "wfxusb.ini lists its USB ids"},
      {{"/s", false, true, "sim:/b", true},
       "no probe is attached; plug one in (`wfx watch` tells when it is ready), and see that /s "
       "lists its USB ids; the service was given its WIREFOX_BUS when it was registered, this "
       "shell's does not reach it"},
      {{"/s", false, false, "/b", false},
       "no probe: WIREFOX_BUS is '/b', which names no bus; set it to sim:SOCKET for a simulated "
       "bench, or unset it"},
      {{"/s", false, false, "sim:/b", false},
       "no probe: no bench listens at /b, which WIREFOX_BUS names; start `wfxsim --socket /b`"},
      {{"/s", false, false, "sim:/b", true},
       "no probe of the bench at /b is ready; `wfxsim ctl --socket /b list` shows what is plugged "
       "in, /s must list its USB ids, and a service that other clients keep has the WIREFOX_BUS of "
       "the first"},
  };
  for (const auto& [sources, note] : cases) EXPECT_EQ(client::NoProbesNote(sources), note);
  FakeService fake;
  EXPECT_TRUE(Transcript(fake, "list").starts_with("> EnumerateWirefoxs\nwfx: no probe"));
}

TEST(Friendly, AScanOfTheI2cBusReadsFromEveryAddressThatIsNotReserved) {
  FakeService fake;
  fake.reply = [](const client::Bytes& packet) {
    const bool present = packet[0] == 0x50 * 2 + 1 || packet[0] == 0x77 * 2 + 1;
    return client::Bytes{static_cast<std::uint8_t>(present ? 1 : 0), 0x12, 0, 0};
  };
  std::string calls = "> GetWirefoxStatus P\n> AcquireDevice P 0 1\n";
  for (unsigned address = 0x08; address <= 0x77; ++address) {
    const auto byte = static_cast<std::uint8_t>(address * 2 + 1);
    calls += "> SendI2CPacket 260 0 " + client::HexFromBytes(client::Bytes{byte, 0}) + "\n";
  }
  calls += "> ReleaseDevice 260\n";
  EXPECT_EQ(Transcript(fake, "i2c P scan"), calls + "0x50\n0x77\n");
  fake.reply = nullptr;
  EXPECT_EQ(Transcript(fake, "i2c P scan"),
            calls + "wfx: no I2C device answers; check the bus's wiring and the target's power\n");
}

}  // namespace
}  // namespace client_test
