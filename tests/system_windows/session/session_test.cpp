// The way from a fresh probe to replies of its targets, seen from the client and from the probe.
#include <fstream>
#include <sstream>

#include "tests/system_windows/programs.h"
#include "tests/system_windows/session/session.h"

namespace system_windows {
namespace {

// The controller's RAM as the data records of an Intel HEX file fill it.
std::string RamOf(const std::filesystem::path& path) {
  std::string ram(65536, '\xFF');
  std::ifstream file(path);
  for (std::string line; file >> line;) {
    const auto number = [&line](std::size_t at, std::size_t digits) {
      return std::stoul(line.substr(at, digits), nullptr, 16);
    };
    if (number(7, 2) != 0) continue;
    for (std::size_t i = 0; i < number(1, 2); ++i) {
      ram.at(number(3, 4) + i) = static_cast<char>(number(9 + 2 * i, 2));
    }
  }
  return ram;
}

TEST_F(Session, AFreshProbeIsLoadedWithItsImagesAndItsJtagChainAnswers) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  // Nobody asks for the probes: what comes back is found by its arrival.
  ASSERT_TRUE(AllProbesCome());
  const auto dump = [&](const std::string& probe, const std::string& memory) {
    const std::string path = Path(probe + "." + memory);
    EXPECT_EQ(bench->Control("dump " + probe + " " + memory + " \"" + path + "\""), 0);
    return ReadFile(path);
  };
  EXPECT_TRUE(dump("WFX0001", "ram") == RamOf(Path("wirefox.hex")));
  for (const std::string probe : {"WFX0001", "WFX0002"}) {
    EXPECT_TRUE(dump(probe, "fpga") == ReadFile(Path("wirefox.fpga"))) << probe;
  }

  EXPECT_EQ(Json("list")["wirefoxs"], Words({"EVK0001", "WFX0001", "WFX0002"}));
  EXPECT_EQ(Json("version")["versionNum"], 33554944);
  EXPECT_EQ(Json("mode WFX0001 JTAG"), nlohmann::json({{"error", "SUCCESS"}}));
  EXPECT_EQ(Json("status WFX0001")["status"]["ACTIVE_INTERFACE"], 1);
  EXPECT_EQ(Json("targets WFX0001")["devices"], Words({"1BA014770", "0684617F0"}));

  const auto script = StartScript(
      "s = acquire WFX0001 --target 1\n"
      "jtag $s dr 64\n"
      "targets WFX0001\n"
      "release $s\n");
  std::vector<nlohmann::json> lines;
  std::istringstream text(script->ReadAll());
  for (std::string line; std::getline(text, line);) {
    lines.push_back(nlohmann::json::parse(line, nullptr, false));
  }
  EXPECT_EQ(script->Wait(), 0);
  ASSERT_EQ(lines.size(), 4u) << text.str();
  EXPECT_NE(lines[0]["wfxHandle"], 0);
  // The device next to TDO comes out first: the low half of the number.
  EXPECT_EQ(lines[1]["scans"][0]["tdo"], "0x1ba014770684617f");
  EXPECT_EQ(lines[2]["devices"], Words({"1BA014770", "0684617F1"}));
  EXPECT_EQ(Json("targets WFX0001")["devices"], Words({"1BA014770", "0684617F0"}));
}

TEST_F(Session, MemoryBehindSwdAndI2cKeepsWhatIsWritten) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  ASSERT_TRUE(AllProbesCome());
  std::string image;
  for (int i = 0; i < 3000; ++i) image += static_cast<char>(i * 7 >> 2);
  std::ofstream(Path("image"), std::ios::binary) << image;
  for (const std::string probe : {"WFX0002", "EVK0001"}) {
    EXPECT_EQ(Json("mode " + probe + " SWD")["error"], "SUCCESS");
    EXPECT_EQ(Json("targets " + probe)["devices"], Words({"2BA014770"}));
    EXPECT_EQ(Wfx("swd " + probe + " read-dp 0").out, "read-dp 0x00000000  0x2ba01477\r\n");
    Json("swd " + probe + " write-mem 0x20000100 \"@" + Path("image") + "\"");
    Json("swd " + probe + " read-mem 0x20000100 750 --out \"" + Path("out") + "\"");
    EXPECT_TRUE(ReadFile(Path("out")) == image) << probe;
  }
  EXPECT_EQ(Json("mode WFX0002 I2C")["error"], "SUCCESS");
  Json("vtarg WFX0002 3.3 --supply on");
  EXPECT_EQ(Json("i2c WFX0002 scan")["addresses"], std::vector<int>({0x50}));
  Json("i2c WFX0002 write 0x50 10 aa bb");
  EXPECT_EQ(Json("i2c WFX0002 read 0x50 2 --after 10")["data"], "aabb");
}

TEST_F(Session, EachCommandOnItsOwnStartsTheServiceAgainAndStillReachesTheTarget) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  // While the fresh probe leaves, the pass may miss the one behind it until the next arrival.
  ASSERT_TRUE(WaitUntil([&] { return Wfx("mode WFX0002 SWD").exit_status == 0; }));
  ASSERT_TRUE(ServiceProcessesEnd());
  const Finished id = Wfx("swd WFX0002 read-dp 0");
  EXPECT_EQ(id.exit_status, 0);
  EXPECT_EQ(id.out, "read-dp 0x00000000  0x2ba01477\r\n");
  EXPECT_TRUE(ServiceProcessesEnd());
}

TEST_F(Session, TheServiceManagerStartsTheServiceThatFindsTheProbes) {
  InstallFiles();
  ASSERT_NO_FATAL_FAILURE(Register("-Service"));
  ASSERT_NO_FATAL_FAILURE(StartBench());
  ASSERT_TRUE(StartInstalledService());
  ASSERT_TRUE(AllProbesCome());
  EXPECT_EQ(ServiceState(), static_cast<DWORD>(SERVICE_RUNNING));
  EXPECT_EQ(Wfx("mode WFX0002 SWD").exit_status, 0);
  EXPECT_EQ(Wfx("swd WFX0002 read-dp 0").out, "read-dp 0x00000000  0x2ba01477\r\n");
  EXPECT_TRUE(SendControl(SERVICE_CONTROL_STOP));
}

TEST_F(Session, TheSettingsBesideTheExecutableAreRead) {
  InstallFiles(
      "0F0F_1002_WFXDEVICE=none\n0F0F_1001_WFXDEVICE=none\nLOGLEVEL=2\nLOGFILE=service.txt\n");
  // Those in the directory that the service is started from would find no board.
  const std::filesystem::path elsewhere = Path("elsewhere");
  std::filesystem::create_directory(elsewhere);
  std::ofstream(elsewhere / "wfxusb.ini") << "0F0F_1002_WFXDEVICE=CONFIGURED\n";
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(elsewhere);
  Register("-RegServer");
  StartBench();
  Program server(program());
  std::filesystem::current_path(before);
  ASSERT_TRUE(FileBecomes("EVK0001\r\n"));
  EXPECT_EQ(Json("list")["wirefoxs"], Words({"EVK0001"}));
  EXPECT_EQ(server.Wait(), 0) << "the client talked to another one";
  // A relative log, on the other hand, lies where the service was started.
  const std::string log = ReadFile(elsewhere / "service.txt");
  EXPECT_NE(log.find("available for use\r\n"), std::string::npos) << log;
}

}  // namespace
}  // namespace system_windows
