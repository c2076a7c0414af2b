// The shipped service where only this host has it: under the service manager, and with the settings
// beside it.
#include "tests/system/harness.h"

namespace system_test {
namespace {

using namespace system_windows;

TEST_F(SystemTest, TheServiceManagerStartsTheServiceThatFindsTheProbesAndServesOnWithoutClients) {
  Install();
  ASSERT_NO_FATAL_FAILURE(Installation::Register("-Service"));
  ASSERT_NO_FATAL_FAILURE(StartBench());
  ASSERT_TRUE(StartInstalledService());
  ASSERT_TRUE(ProbesBecome(kAllProbes));
  const auto servers = ProcessesOf(program());
  EXPECT_EQ(Wfx({"mode", "WFX0002", "SWD"}).exit_status, 0);
  EXPECT_EQ(Wfx({"swd", "WFX0002", "read-dp", "0"}).out, "read-dp 0x00000000  0x2ba01477\n");
  EXPECT_EQ(ProcessesOf(program()), servers) << "the same process as before";
  // Neither a control that it knows nor one that it does not ends it.
  EXPECT_TRUE(SendControl(SERVICE_CONTROL_INTERROGATE));
  EXPECT_TRUE(SendControl(200));
  EXPECT_EQ(ServiceState(), static_cast<DWORD>(SERVICE_RUNNING));
  EXPECT_TRUE(SendControl(SERVICE_CONTROL_STOP));
  EXPECT_TRUE(ServiceProcessesEnd());
  EXPECT_TRUE(WaitUntil([] { return ServiceState() == SERVICE_STOPPED; }));
}

TEST_F(SystemTest, TheSettingsBesideTheExecutableAreRead) {
  Install("0F0F_1002_WFXDEVICE=none\n0F0F_1001_WFXDEVICE=none\nLOGLEVEL=2\nLOGFILE=service.txt\n");
  // Those in the directory that the service is started from would find no board.
  const std::filesystem::path elsewhere = bin / "elsewhere";
  std::filesystem::create_directory(elsewhere);
  WriteFile(elsewhere / "wfxusb.ini", "0F0F_1002_WFXDEVICE=CONFIGURED\n");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(elsewhere);
  Register();
  StartBench();
  Process server({program().string()});
  std::filesystem::current_path(before);
  ASSERT_TRUE(ProbesBecome({"EVK0001"}));
  EXPECT_EQ(Json({"list"})["wirefoxs"], Words({"EVK0001"}));
  EXPECT_EQ(server.Wait(), 0) << "the client talked to another one";
  // A relative log, on the other hand, lies where the service was started.
  const std::string log = ReadFile(elsewhere / "service.txt");
  EXPECT_NE(log.find("available for use\r\n"), std::string::npos) << log;
}

}  // namespace
}  // namespace system_test
