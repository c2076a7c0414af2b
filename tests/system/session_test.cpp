// The way from a fresh probe to replies of its targets, seen from the client and from the probe.
#include <gmock/gmock.h>

#include <regex>

#include "tests/system/harness.h"

namespace system_test {
namespace {

using Session = OnBench;

TEST_F(Session, AFreshProbeIsLoadedWithItsImagesAndItsJtagChainAnswers) {
  const auto dump = [&](const std::string& probe, const std::string& memory) {
    const auto path = home() / (probe + "." + memory);
    EXPECT_EQ(Ctl({"dump", probe, memory, path.string()}).exit_status, 0);
    return ReadFile(path);
  };
  // As objcopy has unpacked it.
  const std::string image = ReadFile(WIREFOX_FIRMWARE_IMAGE);
  ASSERT_EQ(image.size(), 65536u);
  EXPECT_TRUE(dump("WFX0001", "ram") == image);
  for (const std::string probe : {"WFX0001", "WFX0002"}) {
    EXPECT_TRUE(dump(probe, "fpga") == ReadFile(bin / "wirefox.fpga")) << probe;
  }

  EXPECT_EQ(Json({"version"})["versionNum"], 33554944);
  EXPECT_EQ(Json({"mode", "WFX0001", "JTAG"}), nlohmann::json({{"error", "SUCCESS"}}));
  EXPECT_EQ(Json({"status", "WFX0001"})["status"]["ACTIVE_INTERFACE"], 1);
  EXPECT_EQ(Json({"targets", "WFX0001"})["devices"], Words({"1BA014770", "0684617F0"}));
  const auto lines = RunScript(
      "s = acquire WFX0001 --target 1\n"
      "jtag $s dr 64\n"
      "targets WFX0001\n"
      "release $s\n");
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_NE(lines[0]["wfxHandle"], 0);
  // The device next to TDO comes out first: the low half of the number.
  EXPECT_EQ(lines[1]["scans"][0]["tdo"], "0x1ba014770684617f");
  EXPECT_EQ(lines[2]["devices"], Words({"1BA014770", "0684617F1"}));
  EXPECT_EQ(Json({"targets", "WFX0001"})["devices"], Words({"1BA014770", "0684617F0"}));
}

TEST_F(Session, MemoryBehindSwdAndI2cKeepsWhatIsWritten) {
  std::string image;
  for (int i = 0; i < 3000; ++i) image += static_cast<char>(i * 7 >> 2);
  WriteFile(home() / "image", image);
  const std::string out = (home() / "out").string();
  for (const std::string probe : {"WFX0002", "EVK0001"}) {
    EXPECT_EQ(Json({"mode", probe, "SWD"})["error"], "SUCCESS");
    EXPECT_EQ(Json({"targets", probe})["devices"], Words({"2BA014770"}));
    Json({"swd", probe, "write-mem", "0x20000100", std::string("@") + (home() / "image").string()});
    Json({"swd", probe, "read-mem", "0x20000100", "750", "--out", out});
    EXPECT_TRUE(ReadFile(out) == image) << probe;
  }
  EXPECT_EQ(Json({"mode", "WFX0002", "I2C"})["error"], "SUCCESS");
  Json({"vtarg", "WFX0002", "3.3", "--supply", "on"});
  // As one record, each field in its place.
  EXPECT_EQ(Wfx({"--json", "status", "WFX0002"}).out,
            R"({"error":"SUCCESS","status":{"RESULT":0,"VTARG_SET":11,"VTARG_MEASURED":330,)"
            R"("ACTIVE_INTERFACE":2,"ACTIVE_PORT":0,"WFX_VERSION":515,"VORN_VERSION":260,)"
            R"("FPGA_VERSION":17,"BOOTLOADER_VERSION":256,"WFX_FLAGS_FPGA_POWER_STATE":3,)"
            R"("WFX_FLAGS_SW_VALID":1,"WFX_FLAGS_VTARG_FAULT":0,"WFX_FLAGS_VTARG_ON":1,)"
            R"("WFX_FLAGS_VCC1_3_ON":1,"WFX_FLAGS_FPGA_MBX_ERR":0,"WFX_FLAGS_VORN_I2C_ERR":0,)"
            R"("CLOCK_FREQUENCY":0}})"
            "\n");
  EXPECT_EQ(Json({"i2c", "WFX0002", "scan"})["addresses"], std::vector<int>({0x50}));
  Json({"i2c", "WFX0002", "write", "0x50", "10", "aa", "bb"});
  EXPECT_EQ(Json({"i2c", "WFX0002", "read", "0x50", "2", "--after", "10"})["data"], "aabb");
}

TEST_F(Session, PacketsOfNoBytesAndOf16MebibytesGoThrough) {
  Json({"mode", "WFX0001", "JTAG"});
  WriteFile(home() / "empty", "");
  EXPECT_EQ(Json({"bulk", "WFX0001", "EP1", "write",
                  std::string("@") + (home() / "empty").string()})["RESULT"],
            "");
  // Into Shift-DR, where the id registers of both devices carry a pattern through the chain.
  static constexpr std::size_t kSize = 16 << 20;
  std::string packet("\xF0\xF0\xF0\x20", 4);
  packet.resize(kSize);
  for (std::size_t i = 4; i < kSize; ++i) packet[i] = static_cast<char>(i * i >> 5 & 0x0F);
  WriteFile(home() / "large", packet);
  const std::string reply =
      Json({"jtag", "WFX0001", std::string("@") + (home() / "large").string()})["RESULT"]
          .get<std::string>();
  ASSERT_EQ(reply.size(), kSize);  // half as many bytes, two digits each
  // What enters the chain leaves it 64 cycles, 16 bytes of the packet and 8 of the reply, later.
  const auto expected_byte = [&](std::size_t i) {
    return (packet[i * 2 - 16] & 0x0F) | (packet[i * 2 - 15] & 0x0F) << 4;
  };
  std::size_t wrong = 0;
  for (std::size_t i = 10; i < kSize / 2; ++i) {
    wrong += std::stoi(reply.substr(i * 2, 2), nullptr, 16) != expected_byte(i);
  }
  EXPECT_EQ(wrong, 0u);
}

TEST_F(SystemTest, TheLogHoldsWholeLinesOfTimeSourceAndMessage) {
  const std::string log = (home() / "service.log").string();
  ASSERT_NO_FATAL_FAILURE(Begin(std::string("LOGFILE=") + log + "\r\nLOGLEVEL=31\r\n"));
  Json({"mode", "WFX0001", "JTAG"});
  Json({"targets", "WFX0001"});
  EXPECT_EQ(Wfx({"status", "nobody"}).exit_status, 15);
  holder.reset();
  ASSERT_TRUE(ServiceEnds());
  const std::string text = ReadFile(log);
  const std::regex line(
      "(Mon|Tue|Wed|Thu|Fri|Sat|Sun) "
      "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) "
      "[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9] 20[0-9]{2} "
      "(\\[[^\\]]+\\][^\r\n]*)\r\n");
  Words messages;
  std::ptrdiff_t matched = 0;
  for (std::sregex_iterator found(text.begin(), text.end(), line), end; found != end; ++found) {
    matched += found->length();
    messages.push_back((*found)[3]);
  }
  EXPECT_EQ(matched, std::ssize(text)) << "something else stands in it";
  EXPECT_THAT(messages,
              testing::IsSupersetOf<std::string>(
                  {"[CTzWirefox::SetMode]", "[CTzDevice::SetMode()]mode=1 external=1",
                   "[CTzWirefox::GetWirefoxStatus]Error 5 occured.", "[CTzDevice::JTAG_Reset()]",
                   "[CTzWfxConfigure::ConfigureKX7())]Programming KX7 of device VID=0F0F, PID=1001 "
                   "with hex file " +
                       (bin / "wirefox.hex").string()}));
}

TEST_F(SystemTest, EachCommandOnItsOwnStartsTheServiceAgainAndStillReachesTheTarget) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  // While the fresh probe leaves, the pass may miss the one behind it until the next arrival.
  ASSERT_TRUE(WaitUntil([&] { return Wfx({"mode", "WFX0002", "SWD"}).exit_status == 0; }));
  ASSERT_TRUE(ServiceEnds());
  const Finished id = Wfx({"swd", "WFX0002", "read-dp", "0"});
  EXPECT_EQ(id.exit_status, 0) << id.err;
  EXPECT_EQ(id.out, "read-dp 0x00000000  0x2ba01477\n");
  EXPECT_TRUE(ServiceEnds());
}

}  // namespace
}  // namespace system_test
