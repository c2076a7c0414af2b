// What clients get to see: notes, versions, errors, and trace data.
#include "tests/system/harness.h"

namespace system_test {
namespace {

using Clients = OnBench;

TEST_F(SystemTest, AListWithoutProbesTellsWhichPartIsMissing) {
  ASSERT_NO_FATAL_FAILURE(Install());
  ASSERT_NO_FATAL_FAILURE(Register());
  const auto expect_note = [&](const std::string& note) {
    const Finished list = Wfx({"list"});
    EXPECT_EQ(list.exit_status, 0);
    EXPECT_EQ(list.out, "");
    EXPECT_EQ(list.err.substr(0, list.err.find(';')), "wfx: " + note);
    ASSERT_TRUE(ServiceEnds());
  };
  const std::string socket = home() / "bench.socket";
  const std::string nobody =
      "no probe: no bench listens at " + socket + ", which WIREFOX_BUS names";
  expect_note(nobody);
  ASSERT_NO_FATAL_FAILURE(StartBench());
  for (const char* probe : {"WFX0001", "WFX0002", "EVK0001"}) Ctl({"unplug", probe});
  expect_note("no probe of the bench at " + socket + " is ready");
  bench->Kill();  // which leaves the socket's file behind
  expect_note(nobody);
  environment["WIREFOX_BUS"] = socket;
  expect_note("no probe: WIREFOX_BUS is '" + socket + "', which names no bus");
  environment.erase("WIREFOX_BUS");
  expect_note("no probe is attached");
  std::filesystem::remove(bin / "wfxusb.ini");
  expect_note("no probe: the service's settings file " + (bin / "wfxusb.ini").string() +
              " is missing");
}

TEST_F(SystemTest, OutputThatCannotBeWrittenIsAFailure) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  environment["wfx"] = std::string(WIREFOX_BIN_DIR) + "/wfx";
  const auto run = [&](const char* script) { return Run({"/bin/sh", "-c", script}); };
  for (const char* script :
       {"\"$wfx\" version >/dev/full", "\"$wfx\" version >&-", "\"$wfx\" version <&- >&-",
        "\"$wfx\" --help >/dev/full", "\"$wfx\" watch --json >&-"}) {
    const Finished finished = run(script);
    EXPECT_EQ(finished.exit_status, 4) << script;
    EXPECT_EQ(finished.err, "wfx: cannot write the output\n") << script;
  }
  for (const char* script : {"\"${wfx}sim\" --help >/dev/full", "\"${wfx}sim\" --version >&-"}) {
    EXPECT_EQ(run(script).exit_status, 1) << script;
  }
  EXPECT_EQ(run("\"$wfx\" version 2>&- <&-").out, "TzWirefoxService 2.0.2.0\n");
}

TEST_F(SystemTest, EachProgramTellsItsVersionAndHelpsWithoutBeginningToWork) {
  const std::filesystem::path log = home() / "service.log";
  ASSERT_NO_FATAL_FAILURE(Install("LOGFILE=" + log.string() + "\r\nLOGLEVEL=31\r\n"));
  WriteFile(log, "kept");
  const std::pair<std::filesystem::path, std::string> programs[] = {
      {service_path(), "TzWirefoxService"}, {Program("wfx"), "wfx"}, {Program("wfxsim"), "wfxsim"}};
  for (const auto& [program, name] : programs) {
    const Finished version = Run({program, "--version"});
    EXPECT_EQ(version.exit_status, 0);
    EXPECT_EQ(version.out, name + " " WIREFOX_VERSION "\n");
    const Finished help = Run({program, "--help"});
    EXPECT_EQ(help.exit_status, 0);
    EXPECT_NE(help.out.find("--version"), std::string::npos) << help.out;
  }
  EXPECT_EQ(ReadFile(log), "kept");
  // With anything beside it, it is one of the arguments that the service ignores.
  EXPECT_EQ(Run({service_path(), "--version", "now"}).exit_status, 2) << "not registered";
  EXPECT_NE(ReadFile(log), "kept");
  const Finished refused = Run({programs[2].first, "ctl", "frobnicate"});
  EXPECT_EQ(refused.exit_status, 2);
  EXPECT_NE(refused.err.find("those of wfxsim ctl are list, show, plug, unplug, "),
            std::string::npos)
      << refused.err;
}

TEST_F(Clients, ErrorsOfTheServiceAreExitStatuses) {
  EXPECT_EQ(Wfx({"status", "nobody"}).exit_status, 15);
  EXPECT_EQ(Wfx({"status", "wfx0001"}).exit_status, 15);
  EXPECT_EQ(Wfx({"targets", "nobody"}).exit_status, 15);
  EXPECT_EQ(Wfx({"jtag", "nobody", "00"}).exit_status, 13);
  EXPECT_EQ(Wfx({"jtag", "WFX0001", "00"}).exit_status, 13);  // no target in idle mode
  EXPECT_EQ(Wfx({"swv-setup", "WFX0001", "24000001"}).exit_status, 15);
  EXPECT_EQ(Wfx({"timeout", "WFX0001", "EP4", "100"}).exit_status, 16);
  Json({"mode", "WFX0002", "SWD"});
  EXPECT_EQ(Wfx({"jtag", "WFX0002", "00"}).exit_status, 14);
  // The probe's mode changes under a session: its targets are others then, and it ends.
  const Finished script = Wfx({"script", "-"},
                              "s = acquire WFX0002\n"
                              "mode WFX0002 IDLE\n"
                              "targets WFX0002\n"
                              "swd $s a5\n");
  EXPECT_EQ(script.exit_status, 12) << script.err;
  EXPECT_NE(script.err.find("stdin:4: NOT_ACQUIRED"), std::string::npos) << script.err;
}

TEST_F(Clients, AHeldTargetIsInUseForOthersUntilItsOwnerEnds) {
  Json({"mode", "WFX0002", "SWD_SWV"});
  const auto owner = StartWfx({"script", "-"}, "s = acquire WFX0002\nswv $s --seconds 60\n");
  ASSERT_TRUE(WaitUntil([&] {
    return Json({"targets", "WFX0002"})["devices"] == Words({"2BA014771"});
  }));
  EXPECT_EQ(Wfx({"swd", "WFX0002", "a5"}).exit_status, 11);
  const Finished refused = Wfx({"mode", "WFX0002", "SWD"});
  EXPECT_EQ(refused.exit_status, 11);
  const auto waits = StartWfx({"--wait", "60", "swd", "WFX0002", "a5"});
  const Finished expired = Wfx({"--wait", "1", "mode", "WFX0002", "SWD"});
  EXPECT_EQ(expired.exit_status, 11);
  EXPECT_EQ(expired.err, refused.err);
  EXPECT_TRUE(waits->IsRunning());
  EXPECT_EQ(Wfx({"led", "WFX0002", "0", "on"}).exit_status, 0);
  owner->Interrupt();  // ends the fetching, and with it the script
  EXPECT_EQ(owner->Wait(), 0);
  EXPECT_EQ(waits->Wait(), 0);
  EXPECT_EQ(Wfx({"swd", "WFX0002", "a5"}).exit_status, 0);
}

TEST_F(Clients, TraceDataArrivesAsItWasSent) {
  Json({"mode", "WFX0002", "SWD_SWV"});
  Json({"swv-setup", "WFX0002", "2000000"});
  // Listing targets switches modes, which empties the probe's buffer: not between data and request.
  Json({"targets", "WFX0002"});
  ASSERT_EQ(Ctl({"swv", "WFX0002", "010203fffe"}).exit_status, 0);
  EXPECT_EQ(Json({"swv", "WFX0002"})["RESULT"], "010203fffe");
  EXPECT_EQ(Wfx({"swv", "WFX0002"}).exit_status, 16);  // nothing waits in the probe
}

}  // namespace
}  // namespace system_test
