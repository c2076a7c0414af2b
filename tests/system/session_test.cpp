// The way from a fresh probe to replies of its targets, seen from the client, from the probe, and
// on the wire.
#include <algorithm>
#include <sstream>

#include "tests/system/capture.h"
#include "tests/system/harness.h"

namespace system_test {
namespace {

class Session : public SystemTest {};

TEST_F(Session, AFreshProbeIsBroughtUpAndItsJtagChainAnswers) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
  EXPECT_EQ(Json({"version"})["versionNum"], 33554944);
  EXPECT_EQ(Json({"mode", "WFX0001", "JTAG"}), nlohmann::json({{"error", "SUCCESS"}}));
  EXPECT_EQ(Json({"status", "WFX0001"})["status"]["ACTIVE_INTERFACE"], 1);
  EXPECT_EQ(Json({"targets", "WFX0001"})["devices"], Words({"1BA014770", "0684617F0"}));

  const Finished script = Wfx({"script", "-", "--json"},
                              "s = acquire WFX0001 --target 1\n"
                              "jtag $s dr 64\n"
                              "targets WFX0001\n"
                              "release $s\n");
  ASSERT_EQ(script.exit_status, 0) << script.err;
  std::vector<nlohmann::json> lines;
  std::istringstream text(script.out);
  for (std::string line; std::getline(text, line);) lines.push_back(nlohmann::json::parse(line));
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_GT(lines[0]["wfxHandle"].get<std::int64_t>(), 0);
  // The device next to TDO comes out first: the low half of the number.
  EXPECT_EQ(lines[1]["scans"][0]["tdo"], "0x1ba014770684617f");
  EXPECT_EQ(lines[2]["devices"], Words({"1BA014770", "0684617F1"}));
  EXPECT_EQ(Json({"targets", "WFX0001"})["devices"], Words({"1BA014770", "0684617F0"}));
}

TEST_F(Session, EachCommandOnItsOwnStartsTheServiceAgainAndStillReachesTheTarget) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
  ASSERT_TRUE(ServiceEnds());
  EXPECT_EQ(Wfx({"mode", "WFX0002", "SWD"}).exit_status, 0);
  ASSERT_TRUE(ServiceEnds());
  const Finished id = Wfx({"swd", "WFX0002", "read-dp", "0"});
  EXPECT_EQ(id.exit_status, 0) << id.err;
  EXPECT_EQ(id.out, "read-dp 0x00000000  0x2ba01477\n");
}

TEST_F(Session, MemoryBehindSwdAndI2cKeepsWhatIsWritten) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
  std::string image;
  for (int i = 0; i < 3000; ++i) image += static_cast<char>(i * 7 >> 2);
  WriteFile(home() / "image", image);
  const std::string out = home() / "out";
  for (const std::string probe : {"WFX0002", "EVK0001"}) {
    EXPECT_EQ(Json({"mode", probe, "SWD"})["error"], "SUCCESS");
    EXPECT_EQ(Json({"targets", probe})["devices"], Words({"2BA014770"}));
    Json({"swd", probe, "write-mem", "0x20000100", std::string("@") + (home() / "image").string()});
    Json({"swd", probe, "read-mem", "0x20000100", "750", "--out", out});
    EXPECT_TRUE(ReadFile(out) == image) << probe;
  }
  EXPECT_EQ(Json({"mode", "WFX0002", "I2C"})["error"], "SUCCESS");
  Json({"vtarg", "WFX0002", "3.3", "--supply", "on"});
  EXPECT_EQ(Json({"i2c", "WFX0002", "scan"})["addresses"], std::vector<int>({0x50}));
  Json({"i2c", "WFX0002", "write", "0x50", "10", "aa", "bb"});
  EXPECT_EQ(Json({"i2c", "WFX0002", "read", "0x50", "2", "--after", "10"})["data"], "aabb");
}

TEST_F(Session, RamAndFpgaHoldTheImageFiles) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
  const std::filesystem::path ram = home() / "ram";
  const std::filesystem::path expected = home() / "expected";
  ASSERT_EQ(Ctl({"dump", "WFX0001", "ram", ram}).exit_status, 0);
  const Finished objcopy = Run({"/usr/bin/objcopy", "-I", "ihex", "-O", "binary", "--gap-fill",
                                "0xff", home() / "bin" / "wirefox.hex", expected});
  ASSERT_EQ(objcopy.exit_status, 0) << objcopy.err;
  ASSERT_EQ(ReadFile(expected).size(), 65536u);
  EXPECT_TRUE(ReadFile(ram) == ReadFile(expected));
  for (const std::string probe : {"WFX0001", "WFX0002"}) {
    const std::filesystem::path fpga = home() / ("fpga." + probe);
    ASSERT_EQ(Ctl({"dump", probe, "fpga", fpga}).exit_status, 0);
    EXPECT_TRUE(ReadFile(fpga) == ReadFile(home() / "bin" / "wirefox.fpga")) << probe;
  }
}

// The setup packets on the wire, of one kind: the second byte of each is among `requests`.
Words SetupsOf(const std::vector<ControlRequest>& traffic, const Words& requests) {
  Words setups;
  for (const ControlRequest& request : traffic) {
    if (std::ranges::find(requests, request.setup.substr(3, 2)) != requests.end()) {
      setups.push_back(request.setup);
    }
  }
  return setups;
}

TEST_F(Session, TheWireCarriesTheseRequests) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  {
    const auto hold = Hold();
    ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
    Json({"mode", "WFX0001", "JTAG"});
    Json({"mode", "WFX0002", "SWD", "--port", "10"});
  }
  ASSERT_EQ(Ctl({"stop"}).exit_status, 0);
  ASSERT_EQ(bench->Wait(), 0);

  const std::vector<ControlRequest> traffic = ReadControlRequests(capture_path());
  EXPECT_EQ(SetupsOf(traffic, {"A0"}), Words({"40 A0 00 E6 00 00 01 00",  // hold the processor
                                              "40 A0 00 00 00 00 00 08",  // 2048 bytes
                                              "40 A0 00 08 00 00 00 08",  // 2048
                                              "40 A0 00 10 00 00 99 03",  // 5017 in all
                                              "40 A0 00 1B 00 00 01 00",  // 1
                                              "40 A0 00 20 00 00 00 08",  // 4096 in two
                                              "40 A0 00 28 00 00 00 08",
                                              "40 A0 00 38 00 00 00 08",     // 2048
                                              "40 A0 F0 FF 00 00 10 00",     // 16
                                              "40 A0 00 E6 00 00 01 00"}));  // let it run
  const auto control = [&](char value) {
    return std::ranges::count_if(traffic, [&](const ControlRequest& request) {
      return request.setup == "40 A0 00 E6 00 00 01 00" && request.data == std::string(1, value);
    });
  };
  EXPECT_EQ(control(1), 1);
  EXPECT_EQ(control(0), 1);
  // 48999 bytes, announced as one less. Both Wirefox probes are loaded.
  EXPECT_EQ(
      SetupsOf(traffic, {"45", "46", "47"}),
      Words({"C0 47 00 00 00 00 10 00", "C0 45 66 BF 00 00 10 00", "C0 46 00 00 00 00 10 00",
             "C0 47 00 00 00 00 10 00", "C0 45 66 BF 00 00 10 00", "C0 46 00 00 00 00 10 00"}));
  EXPECT_EQ(
      SetupsOf(traffic, {"41", "61"}),
      Words({"C0 41 00 00 00 00 03 00", "C0 41 01 01 00 00 03 00", "C0 61 00 00 00 00 03 00",
             "C0 41 00 00 00 00 03 00", "C0 41 04 01 00 00 03 00", "C0 61 01 00 00 00 0A 00"}));
}

TEST_F(Session, OtherToolsReadTheCaptureWithoutComplaint) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  {
    const auto hold = Hold();
    ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
    Json({"mode", "WFX0001", "JTAG"});
    Json({"targets", "WFX0001"});
  }
  ASSERT_EQ(Ctl({"stop"}).exit_status, 0);
  ASSERT_EQ(bench->Wait(), 0);
  const std::string tshark = "/usr/bin/tshark";
  environment["HOME"] = home();
  const Finished malformed = Run(
      {tshark, "-n", "-r", capture_path(), "-Y", "_ws.malformed || _ws.expert.severity == error"});
  EXPECT_EQ(malformed.exit_status, 0) << malformed.err;
  EXPECT_EQ(malformed.out, "");
  const Finished modes =
      Run({tshark, "-n", "-r", capture_path(), "-Y",
           "usb.urb_type == 'S' && usb.setup.bRequest == 0x41", "-T", "fields", "-e",
           "usb.bmRequestType", "-e", "usb.setup.wValue", "-e", "usb.setup.wLength"});
  EXPECT_EQ(modes.exit_status, 0) << modes.err;
  EXPECT_EQ(modes.out.substr(0, 28), "0xc0\t0x0000\t3\n0xc0\t0x0101\t3\n");
}

}  // namespace
}  // namespace system_test
