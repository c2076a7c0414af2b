// Programs that we did not write work on a probe's targets through `wfx serve`.
#include <sstream>

#include "tests/system/harness.h"

namespace system_test {
namespace {

class Serve : public OnBench {
 protected:
  // Serves the probe's chain; the tools find it at `where`.
  std::unique_ptr<Client> Start(const std::string& probe, const Words& how) {
    Words words = {"serve", probe, "--json"};
    words.insert(words.end(), how.begin(), how.end());
    auto server = StartWfx(words);
    const auto line = server->ReadLine();
    where = line ? nlohmann::json::parse(*line, nullptr, false).value("listening", *line) : "";
    EXPECT_NE(where, "");
    return server;
  }

  std::unique_ptr<Client> StartBitbang(const std::string& probe) {
    return Start(probe, {"--remote-bitbang", (home() / "ocd").string()});
  }

  // What OpenOCD says on the way, a line for each command's result.
  std::string OpenOcd(const std::string& taps, const std::string& commands) {
    const Finished finished =
        Run({"/usr/bin/openocd", "-c",
             "adapter driver remote_bitbang; remote_bitbang port 0; remote_bitbang host " + where +
                 "; transport select jtag; adapter speed 6000; gdb_port disabled; " +
                 "tcl_port disabled; telnet_port disabled; " + taps + "; init; " + commands +
                 "; shutdown"});
    EXPECT_EQ(finished.exit_status, 0) << finished.err;
    EXPECT_EQ(finished.err.find("Error"), std::string::npos) << finished.err;
    // Results of `echo` stand between its own messages.
    std::string results;
    std::istringstream lines(finished.err);
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("= ")) results += line.substr(2) + '\n';
    }
    return results;
  }

  std::string where;
};

// From TDO to TDI, as OpenOCD counts.
constexpr char kTaps[] =
    "jtag newtap b tap -irlen 5 -expected-id 0x0684617f; "
    "jtag newtap a tap -irlen 4 -expected-id 0x1ba01477";

TEST_F(Serve, OpenOcdFindsTheChainAndItsRegistersKeepWhatItScans) {
  const auto server = StartBitbang("WFX0001");
  EXPECT_EQ(OpenOcd(kTaps,
                    "irscan a.tap 8; drscan a.tap 32 0x12345678; "
                    "echo \"= [drscan a.tap 32 0xdeadbeef]\"; echo \"= [drscan a.tap 32 0]\""),
            "12345678\ndeadbeef\n");
}

}  // namespace
}  // namespace system_test
