// What clients get to see: changes, files, log lines, errors, large data, and the message bus.
#include <signal.h>

#include <algorithm>
#include <regex>

#include "tests/system/harness.h"

namespace system_test {
namespace {

class Clients : public SystemTest {};

TEST_F(Clients, AWatcherSeesProbesComeAndGo) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
  const auto watch = StartWfx({"watch", "--json"});
  const auto next = [&] {
    const auto line = watch->ReadLine();
    if (!line) return Words({"no line"});
    auto names = nlohmann::json::parse(*line)["wirefoxs"].get<Words>();
    std::ranges::sort(names);
    return names;
  };
  EXPECT_EQ(next(), Words({"EVK0001", "WFX0001", "WFX0002"}));
  ASSERT_EQ(Ctl({"unplug", "EVK0001"}).exit_status, 0);
  EXPECT_EQ(next(), Words({"WFX0001", "WFX0002"}));
  ASSERT_EQ(Ctl({"unplug", "WFX0002"}).exit_status, 0);
  EXPECT_EQ(next(), Words({"WFX0001"}));
  ASSERT_EQ(Ctl({"plug", "EVK0001"}).exit_status, 0);
  EXPECT_EQ(next(), Words({"EVK0001", "WFX0001"}));
  watch->Signal(SIGINT);
  EXPECT_EQ(watch->Wait(), 0);
  EXPECT_EQ(watch->ReadAll(), "");
}

TEST_F(Clients, TheDevicesChangedFileNamesEachProbeOnALineOfItsOwn) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
  ASSERT_EQ(Ctl({"unplug", "WFX0001"}).exit_status, 0);
  const auto becomes = [&](const std::string& content) {
    return WaitUntil([&] { return ReadFile(devices_changed_path()) == content; });
  };
  EXPECT_TRUE(becomes("EVK0001\r\nWFX0002\r\n")) << ReadFile(devices_changed_path());
  ASSERT_EQ(Ctl({"unplug", "EVK0001"}).exit_status, 0);
  EXPECT_TRUE(becomes("WFX0002\r\n")) << ReadFile(devices_changed_path());
  ASSERT_EQ(Ctl({"unplug", "WFX0002"}).exit_status, 0);
  EXPECT_TRUE(becomes("")) << ReadFile(devices_changed_path());
}

TEST_F(Clients, TheLogHoldsWholeLinesOfTimeSourceAndMessage) {
  const std::string log = home() / "service.log";
  ASSERT_NO_FATAL_FAILURE(InstallAll(std::string("LOGFILE=") + log + "\r\nLOGLEVEL=31\r\n"));
  {
    const auto hold = Hold();
    ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
    Json({"mode", "WFX0001", "JTAG"});
    Json({"targets", "WFX0001"});
    EXPECT_EQ(Wfx({"status", "nobody"}).exit_status, 15);
  }
  ASSERT_TRUE(ServiceEnds());
  std::string text = ReadFile(log);
  const std::regex form(
      "(Mon|Tue|Wed|Thu|Fri|Sat|Sun) "
      "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) "
      "[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9] 20[0-9]{2} "
      "(\\[[^\\]]+\\][^\\r]*)");
  Words messages;
  while (!text.empty()) {
    const std::size_t end = text.find("\r\n");
    ASSERT_NE(end, std::string::npos) << text;
    const std::string line = text.substr(0, end);
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
    messages.push_back(parts[3]);
    text.erase(0, end + 2);
  }
  const auto has = [&](const std::string& message) {
    return std::ranges::find(messages, message) != messages.end();
  };
  EXPECT_TRUE(has("[CTzWirefox::SetMode]"));
  EXPECT_TRUE(has("[CTzDevice::SetMode()]mode=1 external=1"));
  EXPECT_TRUE(has("[CTzWirefox::GetWirefoxStatus]Error 5 occured."));
  std::string programming =
      "[CTzWfxConfigure::ConfigureKX7())]Programming KX7 of device VID=0F0F, PID=1001 with hex "
      "file ";
  programming += (home() / "bin" / "wirefox.hex").string();
  EXPECT_TRUE(has(programming));
  EXPECT_TRUE(has("[CTzDevice::JTAG_Reset()]"));
}

TEST_F(Clients, ErrorsOfTheServiceAreExitStatuses) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
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
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
  Json({"mode", "WFX0002", "SWD_SWV"});
  const auto owner = StartWfx({"script", "-"}, "s = acquire WFX0002\nswv $s --seconds 60\n");
  ASSERT_TRUE(WaitUntil([&] {
    return Json({"targets", "WFX0002"})["devices"] == Words({"2BA014771"});
  }));
  EXPECT_EQ(Wfx({"swd", "WFX0002", "a5"}).exit_status, 11);
  EXPECT_EQ(Wfx({"mode", "WFX0002", "SWD"}).exit_status, 11);
  EXPECT_EQ(Wfx({"led", "WFX0002", "0", "on"}).exit_status, 0);
  owner->Signal(SIGINT);  // ends the fetching, and with it the script
  EXPECT_EQ(owner->Wait(), 0);
  EXPECT_EQ(Wfx({"swd", "WFX0002", "a5"}).exit_status, 0);
}

TEST_F(Clients, PacketsOfNoBytesAndOf16MebibytesGoThrough) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
  Json({"mode", "WFX0001", "JTAG"});
  WriteFile(home() / "empty", "");
  EXPECT_EQ(Json({"jtag", "WFX0001", std::string("@") + (home() / "empty").string()})["RESULT"],
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

TEST_F(Clients, TraceDataArrivesAsItWasSent) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
  Json({"mode", "WFX0002", "SWD_SWV"});
  Json({"swv-setup", "WFX0002", "2000000"});
  // Listing targets switches modes, which empties the probe's buffer: not between data and request.
  Json({"targets", "WFX0002"});
  ASSERT_EQ(Ctl({"swv", "WFX0002", "010203fffe"}).exit_status, 0);
  EXPECT_EQ(Json({"swv", "WFX0002"})["RESULT"], "010203fffe");
  EXPECT_EQ(Wfx({"swv", "WFX0002"}).exit_status, 16);  // nothing waits in the probe
}

TEST_F(Clients, AnyToolOfTheMessageBusCanCallTheService) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  // A bus of the test's own, with its processes.
  Process daemon({"/usr/bin/dbus-daemon", "--session", "--nofork", "--print-address"}, environment,
                 home() / "dbus.err");
  const auto address = daemon.ReadLine();
  ASSERT_TRUE(address);
  environment["DBUS_SESSION_BUS_ADDRESS"] = *address;
  const auto hold = Hold();
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0001", "WFX0002"}));
  const auto call = [&](Words arguments) {
    Words command = {"/usr/bin/busctl", "--user", "call", "org.wirefox.TzWirefox",
                     "/org/wirefox/TzWirefox"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Finished finished = Run(command);
    EXPECT_EQ(finished.exit_status, 0) << finished.err;
    return finished.out;
  };
  EXPECT_EQ(call({"org.wirefox.ITzWirefox_v1", "GetVersion"}), "i 33554944\n");
  EXPECT_EQ(call({"org.wirefox.ITzWirefox_v1", "GetDevicesChangedLocation"}),
            std::string("s \"") + devices_changed_path().string() + "\"\n");
  EXPECT_EQ(call({"org.wirefox.ITzWirefox_v1", "SetLedState", "sii", "WFX0001", "2", "3"}),
            "i 0\n");
  EXPECT_EQ(call({"org.wirefox.ITzWirefox_v1", "EnumerateDevices", "s", "nobody"}), "asi 0 5\n");
  EXPECT_EQ(call({"org.wirefox.ITzWirefox_v3", "GetHwRevID", "s", "nobody"}), "ii 0 5\n");
  EXPECT_EQ(
      call({"org.wirefox.ITzWirefox_v2", "SendI2CPacket", "ayxi", "2", "160", "16", "0", "0"}),
      "ayi 0 2\n");
}

}  // namespace
}  // namespace system_test
