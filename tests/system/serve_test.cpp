// Programs that we did not write work on a probe's targets through `wfx serve`.
#include <fstream>
#include <iomanip>
#include <random>
#include <sstream>

#include "tests/system/served_probe.h"

namespace system_test {
namespace {

// From TDO to TDI, as OpenOCD counts.
constexpr char kDefaultTaps[] =
    "jtag newtap b tap -irlen 5 -expected-id 0x0684617f; "
    "jtag newtap a tap -irlen 4 -expected-id 0x1ba01477";
constexpr char kDemoTaps[] =
    "jtag newtap fpga tap -irlen 6 -expected-id 0x04008093; "
    "jtag newtap core cpu -irlen 4 -expected-id 0x4ba00477; "
    "dap create core.dap -chain-position core.cpu; "
    "target create mem mem_ap -dap core.dap -ap-num 0; pld device virtex2 fpga.tap";

// OpenOCD's words when its socket is full, upon which it gives up.
constexpr char kCouldNotSend[] = "errno==11";

std::string RandomBytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

class Serve : public ServedProbe {
 protected:
  Finished RunOpenOcd(const std::string& taps, const std::string& commands) {
    const std::string host = where[0] == '/' ? where : "localhost";
    const std::string port = where[0] == '/' ? "0" : where;
    return Run({"/usr/bin/openocd", "-c",
                "adapter driver remote_bitbang; remote_bitbang port " + port +
                    "; remote_bitbang host " + host +
                    "; transport select jtag; adapter speed 6000; gdb_port disabled; tcl_port "
                    "disabled; telnet_port disabled; " +
                    taps + "; init; " + commands + "; shutdown"});
  }

  // The lines that the commands echo behind "= ".
  std::string OpenOcd(const std::string& taps, const std::string& commands) {
    const Finished finished = RunOpenOcd(taps, commands);
    EXPECT_EQ(finished.exit_status, 0) << finished.err;
    EXPECT_EQ(finished.err.find("Error"), std::string::npos) << finished.err;
    std::string results;
    std::istringstream lines(finished.err);
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("= ")) results += line.substr(2) + '\n';
    }
    return results;
  }

  Finished OpenFpgaLoader(Words more) {
    Words command = {
        "/usr/bin/openFPGALoader", "-c", "xvc-client", "--ip", "127.0.0.1", "--port", where};
    command.insert(command.end(), more.begin(), more.end());
    return Run(command);
  }

  // A stream for the FPGA, in the file format that both programs read; what its configuration has
  // to hold then.
  std::string WriteBitstream(unsigned seed) {
    const std::string stream = std::string("\xAA\x99\x55\x66") + RandomBytes(471000, seed);
    const auto big_endian = [](std::size_t value, int bytes) {
      std::string text;
      for (int i = bytes - 1; i >= 0; --i) text += static_cast<char>(value >> 8 * i);
      return text;
    };
    std::string file("\x00\x09\x0f\xf0\x0f\xf0\x0f\xf0\x0f\xf0\x00\x00\x01", 13);
    const Words fields = {"demo.ncd", "6slx45csg324", "2026/11/25", "12:00:00"};
    for (std::size_t i = 0; i < fields.size(); ++i) {
      file += static_cast<char>('a' + i) + big_endian(fields[i].size() + 1, 2) + fields[i] + '\0';
    }
    WriteFile(bitstream(),
              file + 'e' + big_endian(stream.size() + 16, 4) + std::string(16, '\xFF') + stream);
    return stream;
  }
  std::string bitstream() const { return (home() / "demo.bit").string(); }

  bool IsConfigured() {
    return Ctl({"show", "WFX0001"}).out.find("\"configuration_done\": true") != std::string::npos;
  }

  // Behind the stream the other TAP's bypass bit, and what a program adds, may follow.
  void ExpectConfiguration(const std::string& stream) {
    const std::string dump = (home() / "configuration").string();
    ASSERT_EQ(Ctl({"dump", "WFX0001", "configuration", dump}).exit_status, 0);
    const std::string came = ReadFile(dump);
    ASSERT_GE(came.size(), stream.size());
    EXPECT_LE(came.size(), stream.size() + 8);
    EXPECT_TRUE(came.starts_with(stream));
  }
};

TEST_F(Serve, OpenOcdScansTheDefaultBenchOverALocalSocket) {
  ASSERT_NO_FATAL_FAILURE(Bring({}));
  ASSERT_NO_FATAL_FAILURE(Start("--remote-bitbang", (home() / "ocd").string()));
  for (int round = 0; round < 50; ++round) {
    ASSERT_EQ(OpenOcd(kDefaultTaps,
                      "irscan a.tap 8; drscan a.tap 32 0x12345678; "
                      "echo \"= [drscan a.tap 32 0xdeadbeef]\"; "
                      "echo \"= [drscan a.tap 32 0]\"; irscan b.tap 0x1e; "
                      "echo \"= [drscan b.tap 32 0]\""),
              "12345678\ndeadbeef\n0684617f\n");
  }
}

// Others see their own probe as if the first one were idle, and may not change the one that is
// served.
TEST_F(Serve, OpenOcdPlaysASvfAndUsesTheDebugPortWhileAnotherClientWorks) {
  ASSERT_NO_FATAL_FAILURE(Bring({"--bench", "demo"}));
  ASSERT_NO_FATAL_FAILURE(Start("--remote-bitbang"));
  std::string svf = "TRST OFF;\nENDIR IDLE;\nENDDR IDLE;\nSTATE RESET IDLE;\n";
  svf += "HIR 0;\nTIR 4 TDI (F);\nHDR 0;\nTDR 1 TDI (0);\nSIR 6 TDI (02) TDO (11) MASK (03);\n";
  std::mt19937 random(7);
  std::ostringstream scans;
  for (std::uint32_t i = 0, last = 0; i < 1000; ++i) {
    // The last one leaves what the first one of the next round finds.
    const std::uint32_t value = i == 999 ? 0 : static_cast<std::uint32_t>(random());
    scans << "SDR 32 TDI (" << std::hex << value << ") TDO (" << last << ") MASK (FFFFFFFF);\n";
    last = value;
  }
  WriteFile(home() / "scans.svf", svf + scans.str());
  const std::string memory = RandomBytes(32768, 8);
  WriteFile(home() / "memory", memory);
  const std::string played = (home() / "scans.svf").string();

  // A scan of 32 bits waits for the one before it, which makes 18 KiB/s: the whole memory goes
  // once, the rest of the fifty rounds are shorter.
  WriteFile(home() / "part", memory.substr(1000, 1000));
  const std::string part = (home() / "part").string();
  const auto other = StartWfx({"script", "-", "--json"}, [] {
    std::string lines = "mode WFX0002 SWD\n";
    for (int i = 0; i < 3000; ++i) lines += "swd WFX0002 read-dp 0\n";
    return lines + "-mode WFX0001 SWD\n";
  }());
  const std::string read = (home() / "read").string();
  const std::string at = " [expr {0x20000000 + 4 * $i}] ";
  EXPECT_EQ(OpenOcd(kDemoTaps, "for {set i 1} {$i < 50} {incr i} { svf -quiet " + played +
                                   "; load_image " + part + at + "bin; dump_image " + read + "$i" +
                                   at + "1000 }; svf -quiet " + played + "; load_image " +
                                   (home() / "memory").string() + " 0x20000000 bin; dump_image " +
                                   read + " 0x20000000 32768; echo \"= $i rounds\""),
            "50 rounds\n");
  for (int i = 1; i < 50; ++i) {
    EXPECT_TRUE(ReadFile(read + std::to_string(i)) == ReadFile(part)) << i;
  }
  EXPECT_TRUE(ReadFile(home() / "read") == memory);
  std::istringstream lines(other->ReadAll());
  std::string last;
  int good = 0;
  for (std::string line; std::getline(lines, line); last = line) {
    good += line.find("0x2ba01477") != std::string::npos;
  }
  EXPECT_EQ(good, 3000);
  EXPECT_EQ(last, R"({"error":"IN_USE","holders":[{"target":0,"pid":)" +
                      std::to_string(server->id()) + R"(,"program":"wfx"}]})");

  // The same memory from the serial-wire side, once the chain is given back.
  server.reset();
  Json({"mode", "WFX0001", "SWD"});
  Json({"targets", "WFX0001"});
  const std::string swd = (home() / "swd").string();
  Json({"swd", "WFX0001", "read-mem", "0x20000000", "8192", "--out", swd});
  EXPECT_TRUE(ReadFile(swd) == memory);
}

TEST_F(Serve, AWholeBitstreamReachesTheFpgaBitByBit) {
  ASSERT_NO_FATAL_FAILURE(Bring({"--bench", "demo"}));
  ASSERT_NO_FATAL_FAILURE(Start("--xvc"));
  for (unsigned round = 0; round < 50; ++round) {
    const Finished found = OpenFpgaLoader({"--detect"});
    ASSERT_EQ(found.exit_status, 0) << found.err;
    ASSERT_NE(found.out.find("idcode   0x4ba00477"), std::string::npos) << found.out;
    ASSERT_NE(found.out.find("xc6slx45"), std::string::npos) << found.out;
    const std::string stream = WriteBitstream(round);
    const Finished loaded = OpenFpgaLoader({"--index-chain", "1", bitstream()});
    ASSERT_EQ(loaded.exit_status, 0) << loaded.err;
    ASSERT_TRUE(IsConfigured());
    ASSERT_NO_FATAL_FAILURE(ExpectConfiguration(stream));
  }
  // OpenOCD does not wait for the end of its load.
  server.reset();
  ASSERT_NO_FATAL_FAILURE(Start("--remote-bitbang"));
  int gave_up = 0;
  for (unsigned round = 0; round < 50; ++round) {
    const std::string stream = WriteBitstream(1000 + round);
    const Finished loaded = RunOpenOcd(kDemoTaps, "pld load 0 " + bitstream());
    if (loaded.err.find(kCouldNotSend) != std::string::npos) {
      ASSERT_LE(++gave_up, 10);
      continue;
    }
    ASSERT_EQ(loaded.exit_status, 0) << loaded.err;
    // A scan behind it comes back when everything before it is done.
    OpenOcd(kDemoTaps, "irscan fpga.tap 1");
    ASSERT_TRUE(IsConfigured());
    ASSERT_NO_FATAL_FAILURE(ExpectConfiguration(stream));
  }
}

// The last 32 bits of the number behind a word that OpenOCD prints: it shows the trailer as well.
std::string BitsBehind(const std::string& text, const std::string& word) {
  const std::size_t at = text.find(word);
  if (at == std::string::npos) return "";
  const std::string line = text.substr(at, text.find('\n', at) - at);
  return line.substr(line.size() - 8);
}

// OpenOCD reads one statement of a line.
TEST_F(Serve, OpenOcdAndPlayFindTheSameInAnSvf) {
  ASSERT_NO_FATAL_FAILURE(Bring({"--bench", "demo"}));
  const std::string begin =
      "TRST OFF;\nENDIR IDLE;\nENDDR IDLE;\nSTATE RESET IDLE;\nSDR 64 TDI (0) TDO "
      "(4BA0047704008093);\nTIR 4 TDI (F);\nTDR 1 TDI (0);\nSIR 6 TDI (02) TDO (11) MASK (03);\n"
      "SDR 32 TDI (12345678);\n";
  const std::string pauses =
      "ENDDR DRPAUSE;\nSDR 32 TDI (DEADBEEF) TDO (12345678) MASK (FFFFFF00);\nSTATE DRPAUSE;\n"
      "STATE IDLE;\nRUNTEST IDLE 50 TCK 1.0E-3 SEC ENDSTATE IRPAUSE;\nRUNTEST DRPAUSE 10 TCK "
      "ENDSTATE IDLE;\nENDDR IDLE;\n";
  struct Case {
    std::string svf;
    std::size_t line;
    std::string tdo, expected, mask;  // of the scan that fails
  };
  const Case cases[] = {
      {begin + "SDR 32 TDO (12345678);\n", 0, "", "", ""},
      {begin + "SDR 32 TDO (12345679) MASK (0000FFFE);\nSDR 32 TDO (92345678) MASK (7FFFFFFF);\n",
       0, "", "", ""},
      {begin + "SDR 32 TDO (12345678);\nSDR 32 TDO (12345679) MASK (0000FFFF);\nSDR 32;\n", 11,
       "12345678", "12345679", "0000ffff"},
      {begin + pauses + "SDR 32 TDO (DEADBEEF) MASK (FFFFFFFF);\n", 17, "7ab6fbbc", "deadbeef",
       "ffffffff"},
      {begin + pauses + "SDR 32 TDO (7AB6FBBC) MASK (FFFFFFFF);\n", 0, "", "", ""},
  };
  const std::string file = (home() / "file.svf").string();
  for (const Case& one : cases) {
    WriteFile(file, one.svf);
    ASSERT_NO_FATAL_FAILURE(Start("--remote-bitbang"));
    const std::string said = RunOpenOcd(kDemoTaps, "svf -quiet " + file).err;
    server.reset();
    EXPECT_EQ(BitsBehind(said, "READ = "), one.tdo) << said;
    EXPECT_EQ(BitsBehind(said, "WANT = "), one.expected) << said;
    EXPECT_EQ(BitsBehind(said, "MASK = "), one.mask) << said;
    const Finished played = Wfx({"play", "WFX0001", file, "--json"});
    EXPECT_EQ(played.exit_status, one.line == 0 ? 0 : 1) << played.err;
    const auto result = nlohmann::json::parse(played.out, nullptr, false);
    EXPECT_EQ(result.value("line", std::size_t{0}), one.line) << played.out;
    EXPECT_EQ(result.value("tdo", "0x").substr(2), one.tdo);
    EXPECT_EQ(result.value("expected", "0x").substr(2), one.expected);
    EXPECT_EQ(result.value("mask", "0x").substr(2), one.mask);
  }
}

TEST_F(Serve, PlayThatIsInterruptedGivesTheChainBack) {
  ASSERT_NO_FATAL_FAILURE(Bring());
  const std::string file = (home() / "file.svf").string();
  // What the clock is set to shows how far it is.
  const std::pair<const char*, int> cases[] = {
      {"FREQUENCY 1.6E6 HZ;\nRUNTEST 4000000000 TCK;", 152},
      {"FREQUENCY 1.5E6 HZ;\nRUNTEST 80000 SEC;", 192}};
  for (const auto& [svf, clock] : cases) {
    WriteFile(file, svf);
    auto play = StartWfx({"play", "WFX0001", file, "--json"});
    EXPECT_TRUE(WaitUntil([&] {
      return Json({"status", "WFX0001"})["status"]["CLOCK_FREQUENCY"] == clock;
    })) << svf;
    EXPECT_EQ(Wfx({"mode", "WFX0001", "JTAG"}).exit_status, 11);
    play->Interrupt();
    EXPECT_EQ(play->ReadLine(), R"({"error":"SUCCESS","line":2,"problem":)" +
                                    nlohmann::json(file + ":2: interrupted").dump() + "}");
    EXPECT_EQ(play->Wait(), 1);
    EXPECT_EQ(Wfx({"mode", "WFX0001", "JTAG"}).exit_status, 0);
  }
}

// One scan of nearly four million bits.
TEST_F(Serve, PlayBringsAWholeBitstreamIntoTheFpga) {
  ASSERT_NO_FATAL_FAILURE(Bring({"--bench", "demo"}));
  const std::string stream = WriteBitstream(5);
  std::ostringstream svf;
  svf << "TIR 4 TDI (F);TDR 1 TDI (0);\nFREQUENCY 4.8E7 HZ;SIR 6 TDI (0B);SIR 6 TDI (05);\nSDR "
      << stream.size() * 8 << " TDI (" << std::hex << std::setfill('0');
  for (std::size_t i = stream.size(); i > 0; --i) {
    unsigned reversed = 0;
    for (unsigned bit = 0; bit < 8; ++bit) {
      reversed |= (static_cast<std::uint8_t>(stream[i - 1]) >> bit & 1u) << (7 - bit);
    }
    svf << std::setw(2) << reversed << (i % 64 == 0 ? "\n" : "");
  }
  WriteFile(home() / "load.svf", svf.str() + ");\nSIR 6 TDI (0C);\nRUNTEST 100 TCK;\n");
  EXPECT_EQ(Json({"play", "WFX0001", (home() / "load.svf").string()})["steps"], 6);
  EXPECT_TRUE(IsConfigured());
  ExpectConfiguration(stream);
}

}  // namespace
}  // namespace system_test
