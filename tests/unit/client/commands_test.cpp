#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/unit/client/fake_wirefox.h"

namespace client_test {
namespace {

using Calls = std::vector<std::string>;
using Words = std::vector<std::string>;

ClientRun RunWithoutService(const Words& words, HRESULT failure = E_FAIL) {
  FakeService none;
  none.connection_failure = failure;
  return RunClient(none, words);
}

TEST(Commands, EachReachesItsMethodWithItsValues) {
  const auto in_session = [](const std::string& call) {
    return Calls{"GetWirefoxStatus P", "AcquireDevice P 0 1", call, "ReleaseDevice 260"};
  };
  const std::pair<Words, Calls> cases[] = {
      {{"list"}, {"EnumerateWirefoxs"}},
      {{"version"}, {"GetVersion"}},
      {{"status", "P"}, {"GetWirefoxStatus P"}},
      {{"targets", "P"}, {"EnumerateDevices P"}},
      {{"mode", "P", "JTAG"}, {"SetMode P 1 0 1"}},
      {{"mode", "P", "swd_swv", "--port", "10"}, {"SetMode P 12 1 1"}},
      {{"mode", "P", "272", "--port", "5"}, {"SetMode P 272 0 1"}},
      {{"vtarg", "P", "3.3"}, {"SetVTarg P 11 0 1"}},
      {{"vtarg", "P", "5", "--supply", "on"}, {"SetVTarg P 7 1 1"}},
      {{"vtarg", "P", "VTARG_1_8", "--supply", "off"}, {"SetVTarg P 14 0 1"}},
      {{"clock", "P", "FREQ_A_12_0"}, {"SetJtagClock P 132 1"}},
      {{"clock", "P", "0x84"}, {"SetJtagClock P 132 1"}},
      {{"timeout", "P", "0x84", "700"}, {"SetTimeOut P 132 700 1"}},
      {{"timeout", "P", "EP2", "0"}, {"SetTimeOut P 2 0 1"}},
      {{"led", "P", "LED_3_GREEN", "flash2"}, {"SetLedState P 2 2"}},
      {{"led", "P", "3", "on"}, {"SetLedState P 3 3"}},
      {{"identify", "P", "chaser"}, {"VisualIdentify P 1"}},
      {{"xres", "P", "on"}, {"ToggleXres P 1"}},
      {{"xres", "P", "off"}, {"ToggleXres P 0"}},
      {{"swv-setup", "P", "2000000"}, {"SetupSWV P 2000000 0 0"}},
      {{"swv-setup", "P", "-1", "--manchester", "--commit", "-7"}, {"SetupSWV P -1 1 -7"}},
      {{"hwrev", "P"}, {"GetHwRevID P"}},
      {{"jtag", "P", "f0", "F0:20"}, in_session("SendJtagPacket 1 260 f0f020")},
      {{"jtag", "P", "f0", "--no-read"}, in_session("SendJtagPacket 0 260 f0")},
      {{"swd", "P", "a5"}, in_session("SendSwdPacket 260 a5")},
      {{"i2c", "P", "a0", "10", "a1", "00", "--restart", "1"},
       in_session("SendI2CPacket 1 260 a010a100")},
      {{"i2c", "P", "read", "0x50", "2", "--after", "10"},
       in_session("SendI2CPacket 1 260 a010a10000")},
      {{"bulk", "P", "EP1", "write", "01", "02"}, in_session("BulkTransfer 1 0 260 0102")},
      {{"bulk", "P", "6", "read", "3"}, in_session("BulkTransfer 6 1 260 000000")},
      {{"swv", "P"}, in_session("RequestSwvPackets 260")},
      {{"acquire-port", "P", "--mode", "voltage-sense", "--retries", "50", "--key", "9",
        "--test-key", "0x11223344:0xAABBCCDD"},
       {"PortAcquire P 2 9 1 287454020 -1430532899 50", "GetPortAcquireStatus P 0"}},
      {{"acquire-port", "P", "--target", "0"},
       {"GetWirefoxStatus P", "AcquireDevice P 0 1", "PortAcquire 0 0 0 0 0 10 260",
        "GetPortAcquireStatus P 0", "ReleaseDevice 260"}},
  };
  for (const auto& [words, calls] : cases) {
    FakeService fake;
    fake.reply = [](const client::Bytes&) { return client::Bytes(16, 1); };
    const ClientRun run = RunClient(fake, words);
    EXPECT_EQ(run.exit_status, 0) << words[0] << ": " << run.err;
    EXPECT_EQ(fake.calls, calls);
  }
}

TEST(Commands, WrongWordsAreUsageBeforeTheServiceIsAskedForAnything) {
  // Here not even a connection is made.
  const Words wrong_words[] = {
      {},
      {"frobnicate"},
      {"acquire", "P"},
      {"status"},
      {"status", "P", "Q"},
      {"list", "--colour"},
      {"mode", "P"},
      {"mode", "P", "SWIM"},
      {"mode", "P", "JTAG", "--port", "7"},
      {"vtarg", "P", "4.2"},
      {"vtarg", "P", "3.3", "--supply", "maybe"},
      {"timeout", "P", "EP3", "1"},
      {"led", "P", "1"},
      {"swv-setup", "P", "2147483648"},
      {"bulk", "P", "1", "sideways", "1"},
      {"jtag", "P"},
      {"jtag", "P", "00", "--target", "-1"},
  };
  const Words wrong_packets[] = {
      {"jtag", "P", "f"},
      {"jtag", "P", "ir", "4"},
      {"jtag", "P", "@/no/such/file"},
      {"swd", "P", "read-dp", "3"},
      {"swd", "P", "read-dp", "0x10"},
      {"swd", "P", "write-ap", "4"},
      {"swd", "P", "read-mem", "0xfffffffc", "2"},
      {"swd", "P", "write-mem", "0"},
      {"i2c", "P", "read", "0x80", "1"},
      {"i2c", "P", "read", "0x50", "64"},
      {"bulk", "P", "1", "read", "x"},
      {"acquire-port", "P", "--test-key", "1"},
  };
  const auto expect_usage = [](FakeService& fake, const Words& words) {
    SCOPED_TRACE(testing::PrintToString(words));
    const ClientRun run = RunClient(fake, words);
    EXPECT_EQ(run.exit_status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err.substr(0, 5), "wfx: ");
    EXPECT_EQ(fake.calls, Calls{});
  };
  for (const Words& words : wrong_words) {
    FakeService none;
    none.connection_failure = E_FAIL;
    expect_usage(none, words);
  }
  for (const Words& words : wrong_packets) {
    FakeService fake;
    expect_usage(fake, words);
  }
}

TEST(Commands, HelpNeedsNoServiceAndNamesTheOptions) {
  const ClientRun overview = RunWithoutService({"--help"});
  EXPECT_EQ(overview.exit_status, 0);
  for (const char* name :
       {"list",    "watch", "version",  "hold", "status",       "mode",  "vtarg",   "clock",
        "timeout", "led",   "identify", "xres", "swv-setup",    "hwrev", "targets", "jtag",
        "swd",     "i2c",   "bulk",     "swv",  "acquire-port", "script"}) {
    EXPECT_NE(overview.out.find(std::string("\n  ") + name + " "), std::string::npos) << name;
    EXPECT_EQ(RunWithoutService({name, "--help"}).exit_status, 0) << name;
  }
  EXPECT_NE(RunWithoutService({"mode", "--help"}).out.find("VSER_INT"), std::string::npos);
}

TEST(ExitStatus, IsTenPlusTheErrorTheServiceAnswered) {
  for (int code = 0; code <= 7; ++code) {
    FakeService fake;
    fake.outcomes["GetHwRevID"] = {static_cast<TzErrorCode>(code)};
    EXPECT_EQ(RunClient(fake, {"hwrev", "P"}).exit_status, code == 0 ? 0 : 10 + code);
  }
}

TEST(ExitStatus, IsThreeWhenTheServiceCannotBeReachedOrIsLost) {
  const ClientRun unregistered =
      RunWithoutService({"list", "--json"}, static_cast<HRESULT>(0x80040154));
  EXPECT_EQ(unregistered.exit_status, 3);
  EXPECT_EQ(unregistered.out, "");
  EXPECT_NE(unregistered.err.find("-RegServer"), std::string::npos);

  FakeService fake;
  fake.call_failures["SendJtagPacket"] = static_cast<HRESULT>(0x800706BA);
  const ClientRun lost = RunClient(fake, {"jtag", "P", "00", "--json"});
  EXPECT_EQ(lost.exit_status, 3);
  EXPECT_EQ(lost.out, "");
  // Nothing more is asked of a service that is gone.
  EXPECT_EQ(fake.calls.back(), "SendJtagPacket 1 260 00");
}

TEST(Sessions, AnUnknownTargetIsLookedForOnce) {
  FakeService fake;
  fake.outcomes["AcquireDevice"] = {TzErrorCode::INVALID_DEVICE, TzErrorCode::SUCCESS};
  EXPECT_EQ(RunClient(fake, {"swd", "P", "a5", "--target", "2"}).exit_status, 0);
  EXPECT_EQ(fake.calls,
            (Calls{"GetWirefoxStatus P", "AcquireDevice P 2 1", "EnumerateDevices P",
                   "AcquireDevice P 2 1", "SendSwdPacket 260 a5", "ReleaseDevice 260"}));

  FakeService empty;
  empty.outcomes["AcquireDevice"] = {TzErrorCode::INVALID_DEVICE, TzErrorCode::INVALID_DEVICE};
  EXPECT_EQ(RunClient(empty, {"swd", "P", "a5"}).exit_status, 13);
  EXPECT_EQ(empty.calls.size(), 4u);
}

TEST(Sessions, ATargetInUseIsNotLookedForAndNothingIsReleased) {
  FakeService fake;
  fake.outcomes["AcquireDevice"] = {TzErrorCode::IN_USE};
  const ClientRun run = RunClient(fake, {"swd", "P", "a5", "--json"});
  EXPECT_EQ(run.exit_status, 11);
  EXPECT_EQ(run.out, "{\"error\":\"IN_USE\"}\n");
  EXPECT_EQ(fake.calls, (Calls{"GetWirefoxStatus P", "AcquireDevice P 0 1"}));
}

TEST(Sessions, AFailedTransferGivesItsReplyAndReleasesTheTarget) {
  FakeService fake;
  fake.outcomes["SendJtagPacket"] = {TzErrorCode::WFX_ERROR};
  fake.reply = [](const client::Bytes&) { return client::Bytes{0xAB, 0x00}; };
  const ClientRun run = RunClient(fake, {"--json", "jtag", "P", "00", "00", "00"});
  EXPECT_EQ(run.exit_status, 16);
  EXPECT_EQ(run.out, "{\"error\":\"WFX_ERROR\",\"RESULT\":\"ab00\"}\n");
  EXPECT_EQ(fake.calls.back(), "ReleaseDevice 260");
}

TEST(Json, ResultsCarryTheOutputsOfTheInterface) {
  FakeService fake;
  fake.wirefoxs = {"EVK0001", "W\xC3\xA4hl\"er"};
  fake.devices = {"1BA014770", "0684617F1"};
  fake.version = 0x02000200;
  fake.revision = -1;
  fake.reply = [](const client::Bytes&) { return client::Bytes{0x00, 0xFF}; };
  const std::pair<Words, const char*> cases[] = {
      {{"list"}, "{\"error\":\"SUCCESS\",\"wirefoxs\":[\"EVK0001\",\"W\xC3\xA4hl\\\"er\"]}\n"},
      {{"targets", "P"}, "{\"error\":\"SUCCESS\",\"devices\":[\"1BA014770\",\"0684617F1\"]}\n"},
      {{"version"}, "{\"error\":\"SUCCESS\",\"versionNum\":33554944}\n"},
      {{"hwrev", "P"}, "{\"error\":\"SUCCESS\",\"revID\":-1}\n"},
      {{"mode", "P", "JTAG"}, "{\"error\":\"SUCCESS\"}\n"},
      {{"swv", "P"}, "{\"error\":\"SUCCESS\",\"RESULT\":\"00ff\"}\n"},
      {{"acquire-port", "P"}, "{\"error\":\"SUCCESS\",\"acquireStatus\":0}\n"},
  };
  for (auto [words, line] : cases) {
    words.push_back("--json");
    EXPECT_EQ(RunClient(fake, words).out, line);
  }
}

TEST(Json, TheStatusHasItsSeventeenFieldsWithTheirSigns) {
  FakeService fake;
  fake.status = {1, 11, -2, 12, 1, 0x0102, 0x0304, 200, -32768, 3, 0, 0, 0, 0, 0, 1, 224};
  const auto line = nlohmann::json::parse(RunClient(fake, {"status", "P", "--json"}).out);
  const auto expected = nlohmann::json::parse(R"({
    "RESULT": 1, "VTARG_SET": 11, "VTARG_MEASURED": -2, "ACTIVE_INTERFACE": 12, "ACTIVE_PORT": 1,
    "WFX_VERSION": 258, "VORN_VERSION": 772, "FPGA_VERSION": 200, "BOOTLOADER_VERSION": -32768,
    "WFX_FLAGS_FPGA_POWER_STATE": 3, "WFX_FLAGS_SW_VALID": 0, "WFX_FLAGS_VTARG_FAULT": 0,
    "WFX_FLAGS_VTARG_ON": 0, "WFX_FLAGS_VCC1_3_ON": 0, "WFX_FLAGS_FPGA_MBX_ERR": 0,
    "WFX_FLAGS_VORN_I2C_ERR": 1, "CLOCK_FREQUENCY": 224})");
  EXPECT_EQ(line["status"], expected);
}

TEST(Json, FriendlyFormsAddWhatTheyHaveRead) {
  FakeService fake;
  // Every cycle's TDO is high.
  fake.reply = [](const client::Bytes& packet) {
    return client::Bytes((packet.size() + 1) / 2, 0xFF);
  };
  const auto jtag =
      nlohmann::json::parse(RunClient(fake, {"jtag", "P", "ir", "4:15", "dr", "9", "--json"}).out);
  EXPECT_EQ(jtag["scans"], nlohmann::json::parse(R"([
    {"scan": "ir", "bits": 4, "tdo": "0xf"}, {"scan": "dr", "bits": 9, "tdo": "0x1ff"}])"));

  fake.reply = [](const client::Bytes&) { return client::Bytes{0x77, 0x14, 0xA0, 0x2B, 0x01}; };
  const auto swd =
      nlohmann::json::parse(RunClient(fake, {"swd", "P", "read-dp", "0", "--json"}).out);
  EXPECT_EQ(swd["RESULT"], "7714a02b01");
  EXPECT_EQ(swd["operations"], nlohmann::json::parse(R"([
    {"operation": "read-dp", "address": "0x00000000", "value": "0x2ba01477"}])"));
}

TEST(Friendly, ATargetThatDoesNotAnswerIsExitStatusOne) {
  FakeService fake;
  fake.reply = [](const client::Bytes&) { return client::Bytes{0, 0, 0, 0, 0x04}; };
  const ClientRun swd = RunClient(fake, {"swd", "P", "read-dp", "0", "--json"});
  EXPECT_EQ(swd.exit_status, 1);
  EXPECT_NE(swd.out.find("\"error\":\"SUCCESS\""), std::string::npos);
  EXPECT_NE(swd.out.find("\"problem\":\"read-dp 0x00000000: request 1 of 1: FAULT"),
            std::string::npos);
  EXPECT_EQ(RunClient(fake, {"i2c", "P", "read", "0x50", "1"}).exit_status, 1);
}

TEST(Friendly, AScanOfTheI2cBusReadsFromEveryAddressThatIsNotReserved) {
  FakeService fake;
  fake.reply = [](const client::Bytes& packet) {
    const bool present = packet[0] == 0x50 * 2 + 1 || packet[0] == 0x77 * 2 + 1;
    return client::Bytes{static_cast<std::uint8_t>(present ? 1 : 0), 0x12, 0, 0};
  };
  const ClientRun run = RunClient(fake, {"i2c", "P", "scan"});
  EXPECT_EQ(run.out, "0x50\n0x77\n");
  EXPECT_EQ(fake.calls.size(), 2u + 112 + 1);
}

TEST(Friendly, HexadecimalTextComesFromStandardInput) {
  FakeService fake;
  EXPECT_EQ(RunClient(fake, {"jtag", "P", "-"}, "f0 f0 # reset\n20\n").exit_status, 0);
  EXPECT_EQ(fake.calls[2], "SendJtagPacket 1 260 f0f020");
}

}  // namespace
}  // namespace client_test
