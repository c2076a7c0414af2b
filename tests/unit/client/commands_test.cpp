#include <gtest/gtest.h>

#include "client/no_probes.h"
#include "tests/unit/client/fake_wirefox.h"
#include "tests/unit/scratch_folder.h"

namespace client_test {
namespace {

constexpr TzErrorCode kWrong = TzErrorCode::INVALID_PARAM;
constexpr TzErrorCode kNone = TzErrorCode::INVALID_DEVICE;
constexpr TzErrorCode kFailed = TzErrorCode::WFX_ERROR;

constexpr char kNoAnswer[] =
    "wfx: no answer from the I2C device (is the target's supply on, is the address right?)\n= 1\n";

// What a transfer shows of itself between the begin and the end of its session.
std::string InSession(const std::string& call, const std::string& output = "") {
  return "> GetWirefoxStatus P\n> AcquireDevice P 0 1\n> " + call + "\n> ReleaseDevice 260\n" +
         output;
}

TEST(Commands, EachReachesItsMethodWithItsValues) {
  for (const char* text :
       {"mode P JTAG > SetMode P 1 0 1", "mode P swd_swv --port 10 > SetMode P 12 1 1",
        "mode P 272 --port 5 > SetMode P 272 0 1", "vtarg P 3.3 > SetVTarg P 11 0 1",
        "vtarg P 5 --supply on > SetVTarg P 7 1 1",
        "vtarg P VTARG_1_8 --supply off > SetVTarg P 14 0 1",
        "clock P FREQ_A_12_0 > SetJtagClock P 132 1", "clock P 0x84 > SetJtagClock P 132 1",
        "timeout P 0x84 700 > SetTimeOut P 132 700 1", "timeout P EP2 0 > SetTimeOut P 2 0 1",
        "led P LED_3_GREEN flash2 > SetLedState P 2 2", "led P 3 on > SetLedState P 3 3",
        "identify P chaser > VisualIdentify P 1", "xres P on > ToggleXres P 1",
        "xres P off > ToggleXres P 0", "swv-setup P 2000000 > SetupSWV P 2000000 0 0",
        "swv-setup P -1 --manchester --commit -7 > SetupSWV P -1 1 -7"}) {
    const std::string line = text;
    const std::size_t arrow = line.find('>');
    FakeService fake;
    EXPECT_EQ(Transcript(fake, line.substr(0, arrow)), line.substr(arrow) + "\n");
  }
}

TEST(Commands, EachTransferHasASessionAndShowsItsReply) {
  const std::string dump = "00000000  01 02 03 44 05                                   ...D.\n";
  const std::string part = "00000000  44 05                                            D.\n";
  const std::pair<const char*, std::string> cases[] = {
      {"jtag P f0 F0:20", InSession("SendJtagPacket 1 260 f0f020", dump)},
      {"jtag P f0 --no-read", InSession("SendJtagPacket 0 260 f0")},
      {"jtag P -", InSession("SendJtagPacket 1 260 f0f020", dump)},
      {"swd P a5", InSession("SendSwdPacket 260 a5", dump)},
      {"i2c P a0 10 a1 00 --restart 1", InSession("SendI2CPacket 1 260 a010a100", dump)},
      {"i2c P write 0x50 10", InSession("SendI2CPacket 0 260 a010", "done\n")},
      {"i2c P read 0x50 2 --after 10", InSession("SendI2CPacket 1 260 a010a10000", part)},
      {"bulk P EP1 write 01 02", InSession("BulkTransfer 1 0 260 0102")},
      {"i2c P read 0x50 3 --after 10", InSession("SendI2CPacket 1 260 a010a1000000", kNoAnswer)},
      {"bulk P 6 read 0", InSession("BulkTransfer 6 1 260", dump)},
      {"bulk P 6 read 3", InSession("BulkTransfer 6 1 260 000000", dump)},
      {"swv P", InSession("RequestSwvPackets 260", dump)},
      {"acquire-port P --mode voltage-sense --retries 50 --key 9 --test-key 0x11223344:0xAABBCCDD",
       "> PortAcquire P 2 9 1 287454020 -1430532899 50\n> GetPortAcquireStatus P 0\n"
       "the target answered\n"},
      {"acquire-port P --target 0",
       InSession("PortAcquire 0 0 0 0 0 10 260\n> GetPortAcquireStatus P 0",
                 "the target answered\n")}};
  FakeService fake;
  fake.acquire_status = 0;
  fake.reply = [](const client::Bytes&) { return client::Bytes{1, 2, 3, 0x44, 5}; };
  for (const auto& [line, transcript] : cases) {
    EXPECT_EQ(Transcript(fake, line, "f0 f0 # reset\n20\n"), transcript) << line;
  }
  const unit::ScratchFolder folder;
  Transcript(fake, "bulk P 6 read 1 --out " + folder.Path("read"));
  Transcript(fake, "bulk P 6 write 01 --out " + folder.Path("written"));
  EXPECT_EQ(folder.Read("read"), "\1\2\3\x44\5");
  EXPECT_FALSE(folder.Holds("written"));
  fake.outcomes["SendJtagPacket"] = {kFailed};
  EXPECT_TRUE(Transcript(fake, "--json jtag P 00")
                  .starts_with(InSession("SendJtagPacket 1 260 00",
                                         R"({"error":"WFX_ERROR","RESULT":"0102034405"})")));
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
  const unit::ScratchFolder folder;
  const std::string here = folder.Path("");
  const std::string empty = folder.Write("empty", "");
  const std::pair<std::string, std::string> cases[] = {
      {"jtag P f", "bytes are pairs of hexadecimal digits"},
      {"jtag P --text @" + folder.Write("text", "f0 f"), "bytes are pairs of hexadecimal digits"},
      {"jtag P ir 8", "ir wants BITS:VALUE with a value that fits, not '8'"},
      {"jtag P ir", "ir wants BITS:VALUE with a value that fits, not ''"},
      {"jtag P dr 4:16", "dr wants BITS or BITS:VALUE with a value that fits, not '4:16'"},
      {"jtag P dr 0", "dr wants BITS or BITS:VALUE with a value that fits, not '0'"},
      {"jtag P dr 99999999999",
       "dr wants BITS or BITS:VALUE with a value that fits, not '99999999999'"},
      {"jtag P idle x", "idle wants a number of cycles, not 'x'"},
      {"jtag P dr 8 f0", "'f0' is none of reset, idle, ir, dr"},
      {"jtag P @" + here, here + " is a folder"},
      {"script " + here, here + " is a folder"},
      {"script /no/such/file", "cannot read /no/such/file"},
      {"jtag P -", "there are no bytes to send"},
      {"swd P @" + empty, "there are no bytes to send"},
      {"i2c P -", "there are no bytes to send"},
      {"swd P read-dp 3", "read-dp wants an address that is a multiple of 4, not '3'"},
      {"swd P read-dp 0x10", "read-dp wants an address that is a multiple of 4, not '0x10'"},
      {"swd P write-ap 4", "write-ap wants a 32-bit value, not ''"},
      {"swd P read-mem 0 x", "read-mem wants a number of words, not 'x'"},
      {"swd P read-mem 0xfffffffc 2", "read-mem: the range goes beyond the address space"},
      {"swd P write-mem 0 @" + empty, "write-mem writes whole words of four bytes, at least one"},
      {"i2c P read 0x80 1", "'0x80' is no 7-bit I2C address"},
      {"i2c P read 0x50 1 2", "read wants ADDRESS COUNT"},
      {"i2c P write 0x50 @" + folder.Write("64", std::string(64, 'x')),
       "one transaction writes at most 63 bytes"},
      {"i2c P read 0x50 64", "one transaction reads 1 to 63 bytes"},
      {"bulk P 1 read x", "read wants the number of bytes"},
      {"acquire-port P --test-key 1", "--test-key wants ADDRESS:VALUE, 32 bits each"}};
  FakeService fake;
  for (const auto& [line, problem] : cases)
    EXPECT_EQ(Transcript(fake, line), "wfx: " + problem + "\n= 2\n") << line;
}

TEST(Commands, AWordThatIsNoneIsRefusedWithTheListOfThem) {
  const std::string all =
      "; the commands are list, watch, version, hold, status, mode, vtarg, clock, timeout, led, "
      "identify, xres, swv-setup, hwrev, targets, jtag, swd, i2c, bulk, swv, acquire-port, script; "
      "`wfx --help` tells more\n= 2\n";
  FakeService none;
  EXPECT_EQ(Transcript(none, ""), "wfx: no command given" + all);
  EXPECT_EQ(Transcript(none, "-RegSever"), "wfx: unknown command '-RegSever'" + all);
  const std::string overview = Transcript(none, "--help");
  EXPECT_EQ(Transcript(none, "help mode"), Transcript(none, "mode --help"));
  EXPECT_NE(Transcript(none, "mode --help").find("VSER_INT"), std::string::npos);
  for (const char* summary :
       {"  list          Name the probes\n", "  acquire-port  Catch a target"})
    EXPECT_NE(overview.find(summary), std::string::npos) << overview;
}

TEST(Failures, OfTheServiceExitWithTenPlusItsErrorAndSayWhatTheyMean) {
  for (const std::string begin :
       {"IN_USE (error 1): another program holds", "NOT_ACQUIRED (error 2): the session is not",
        "INVALID_DEVICE (error 3): no such probe", "INVALID_MODE (error 4): the probe is in a mode",
        "WFX_ERROR (error 6): the probe refused", "UNKNOWN (error 7): the service could not take",
        "8 (error 8): an error code that this client does not know"}) {
    const std::string code = begin.substr(begin.find("):") - 1, 1);
    FakeService fake;
    fake.outcomes["SetLedState"] = {static_cast<TzErrorCode>(code[0] - '0')};
    const std::string transcript = Transcript(fake, "led P 0 on");
    EXPECT_TRUE(transcript.starts_with("> SetLedState P 0 3\nwfx: " + begin)) << transcript;
    EXPECT_TRUE(transcript.ends_with("\n= 1" + code + "\n")) << transcript;
  }
}

TEST(Failures, TellAsJsonOnStandardOutputWhatTheyTellInWords) {
  FakeService none;
  none.connection_failure = static_cast<HRESULT>(0x80040154);
  const std::string unregistered =
      "cannot reach TzWirefoxService: the service is not registered on this computer; run "
      "`TzWirefoxService -RegServer` once (0x80040154)";
  EXPECT_EQ(Transcript(none, "list --json"), "{\"error\":\"UNREACHABLE\",\"problem\":\"" +
                                                 unregistered + "\"}\nwfx: " + unregistered +
                                                 "\n= 3\n");
  const std::string wrong = "mode: MODE is required; `wfx mode --help` tells more";
  const std::string usage =
      "{\"error\":\"USAGE\",\"problem\":\"" + wrong + "\"}\nwfx: " + wrong + "\n= 2\n";
  EXPECT_EQ(Transcript(none, "mode P --json"), usage);
  EXPECT_EQ(Transcript(none, "--json --json mode P"), usage);

  // Nothing more is asked of a service that is gone.
  FakeService fake;
  fake.call_failures["SendJtagPacket"] = static_cast<HRESULT>(0x800706BA);
  EXPECT_EQ(Transcript(fake, "jtag P 00"),
            "> GetWirefoxStatus P\n> AcquireDevice P 0 1\n> SendJtagPacket 1 260 00\nwfx: cannot "
            "reach TzWirefoxService: the service has ended (0x800706ba)\n= 3\n");
}

TEST(Failures, OutputThatCannotBeWrittenIsOne) {
  for (const char* line :
       {"list", "list --json", "--help", "mode --help", "--version", "i2c P read 0x50 1"}) {
    FakeService fake;
    fake.wirefoxs = {"A"};
    const std::string transcript = Transcript(fake, line, "", true);
    EXPECT_TRUE(transcript.ends_with("wfx: cannot write the output\n= 4\n")) << transcript;
  }
  FakeService fake;
  EXPECT_EQ(Transcript(fake, "script -", "-hwrev P\nhwrev P\n", true),
            "> GetHwRevID P\nwfx: stdin:1: cannot write the output\n= 4\n");
  // What the service answered is the more important of two failures.
  fake.outcomes["GetHwRevID"] = {kFailed};
  EXPECT_TRUE(Transcript(fake, "hwrev P", "", true).ends_with("\n= 16\n"));
}

TEST(Advice, NamesWhatIsWrongHereAndWhatToType) {
  using Outcomes = std::map<std::string, std::deque<TzErrorCode>>;
  const auto transcript = [](const Outcomes& outcomes, std::uint8_t mode, const char* line) {
    FakeService fake;
    fake.outcomes = outcomes;
    fake.status.ACTIVE_INTERFACE = mode;
    return Transcript(fake, line);
  };
  const std::string missing =
      "there is no probe 'P'; `wfx list` names the probes, letter case counts\n";
  EXPECT_EQ(transcript({{"SetVTarg", {kWrong}}, {"GetWirefoxStatus", {kWrong}}}, 0, "vtarg P 5"),
            "> SetVTarg P 7 0 1\n> GetWirefoxStatus P\nwfx: INVALID_PARAM (error 5): " + missing +
                "= 15\n");
  EXPECT_EQ(
      transcript({{"SetupSWV", {kWrong}}, {"GetWirefoxStatus", {kFailed}}}, 0, "swv-setup P 5"),
      "> SetupSWV P 5 0 0\n> GetWirefoxStatus P\nwfx: INVALID_PARAM (error 5): a value is "
      "out of its range; the probe P is there\n= 15\n");

  const std::string listing = "> EnumerateDevices P\n> GetWirefoxStatus P\nwfx: ";
  const std::string silent =
      "; check its wiring and power (`wfx status P`, `wfx vtarg P 3.3 --supply on`)\n";
  EXPECT_EQ(transcript({}, 0, "targets P"),
            listing +
                "no targets: P is in mode IDLE, this needs JTAG, SWD, SWD_SWV, I2C or VSER; "
                "type `wfx mode P JTAG` first\n");
  EXPECT_EQ(transcript({}, 4, "targets P"), listing + "no target answers P in mode SWD" + silent);
  EXPECT_EQ(transcript({{"GetWirefoxStatus", {kFailed}}}, 4, "targets P"),
            listing + "no target answers; the probe does not tell its mode\n");

  const std::string tried =
      "> GetWirefoxStatus P\n> AcquireDevice P 0 1\n> EnumerateDevices P\n> AcquireDevice P 0 1\n"
      "wfx: INVALID_DEVICE (error 3): ";
  const Outcomes none = {{"AcquireDevice", {kNone, kNone}}};
  EXPECT_EQ(transcript(none, 2, "jtag P 00"),
            tried + "P is in mode I2C, this needs JTAG; type `wfx mode P JTAG` first\n= 13\n");
  EXPECT_EQ(transcript(none, 12, "swd P a5"),
            tried + "no target answers P in mode SWD_SWV" + silent + "= 13\n");
  const std::pair<TzErrorCode, std::string> asked[] = {
      {kWrong, missing + "= 13\n"}, {kFailed, "no such probe, or no such target behind it; `wfx "}};
  for (const auto& [error, words] : asked) {
    EXPECT_TRUE(transcript({{"AcquireDevice", {kNone, kNone}}, {"GetWirefoxStatus", {error}}}, 0,
                           "bulk P 1 read 1")
                    .starts_with(tried + words));
  }

  EXPECT_EQ(transcript({{"RequestSwvPackets", {TzErrorCode::INVALID_MODE}}}, 8, "swv P"),
            InSession("RequestSwvPackets 260\n> GetWirefoxStatus P",
                      "wfx: INVALID_MODE (error 4): P is in mode SWV, this needs SWD_SWV; type "
                      "`wfx mode P SWD_SWV` first\n= 14\n"));
  EXPECT_EQ(transcript({}, 12, "swv P"),
            InSession("RequestSwvPackets 260", "wfx: no trace data\n"));
  EXPECT_EQ(transcript({}, 12, "swv P --json"),
            InSession("RequestSwvPackets 260", "{\"error\":\"SUCCESS\",\"RESULT\":\"\"}\n"));
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

TEST(PortAcquire, OnlyAnAnswerThatCameIsShown) {
  const std::string calls = "> PortAcquire P 0 0 0 0 0 10\n> GetPortAcquireStatus P 0\n";
  const std::string failed = "wfx: WFX_ERROR (error 6): ";
  FakeService fake;
  fake.outcomes["GetPortAcquireStatus"] = {kFailed, kFailed, kFailed, TzErrorCode::SUCCESS, kWrong};
  EXPECT_EQ(Transcript(fake, "acquire-port P --wait 0 --json"),
            calls + "{\"error\":\"WFX_ERROR\"}\n" + failed +
                "the probe does not tell how it went; plug it in again\n= 16\n");
  fake.acquire_status = 1;
  EXPECT_EQ(Transcript(fake, "acquire-port P --wait 0 --json"),
            calls + "{\"error\":\"WFX_ERROR\",\"acquireStatus\":1}\n" + failed +
                "the target did not answer; check its power and wiring, and how it is restarted "
                "(--mode, --retries, --test-key)\n= 16\n");
  fake.acquire_status = 0;
  EXPECT_EQ(Transcript(fake, "acquire-port P --json"),
            calls + "> GetPortAcquireStatus P 0\n{\"error\":\"SUCCESS\",\"acquireStatus\":0}\n");
  EXPECT_TRUE(
      Transcript(fake, "acquire-port P").starts_with(calls + "> GetWirefoxStatus P\nwfx: "));
}

TEST(Sessions, AnUnknownTargetIsLookedForOnceAndOneInUseNotAtAll) {
  FakeService fake;
  fake.status.ACTIVE_INTERFACE = 4;
  fake.devices = {"", ""};
  fake.outcomes["AcquireDevice"] = {kNone, TzErrorCode::SUCCESS, kNone, kNone, TzErrorCode::IN_USE};
  const std::string tried =
      "> GetWirefoxStatus P\n> AcquireDevice P 2 1\n> EnumerateDevices P\n> AcquireDevice P 2 1\n";
  EXPECT_EQ(Transcript(fake, "swd P a5 --target 2 --json"),
            tried + "> SendSwdPacket 260 a5\n> ReleaseDevice 260\n" +
                R"({"error":"SUCCESS","RESULT":""})" + "\n");
  EXPECT_EQ(Transcript(fake, "swd P a5 --target 2"),
            tried +
                "wfx: INVALID_DEVICE (error 3): the last target is number 1; `wfx targets P` "
                "lists them\n= 13\n");
  EXPECT_TRUE(
      Transcript(fake, "swd P a5 --json")
          .starts_with("> GetWirefoxStatus P\n> AcquireDevice P 0 1\n{\"error\":\"IN_USE\"}\n"));
}

TEST(Results, AreLinesForPeopleAndTheOutputsOfTheInterfaceAsJson) {
  FakeService fake;
  fake.wirefoxs = {"EVK0001", "W\xC3\xA4hl\"er"};
  fake.devices = {"1BA014770", "0684617F1"};
  fake.version = 0x02010304;
  fake.revision = -1;
  fake.status = {1, 11, -2, 12, 1, 0x0102, 0x0304, 200, -32768, 3, 0, 1, 0, 1, 1, 1, 224};
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"list", "EVK0001\nW\xC3\xA4hl\"er\n", "\"wirefoxs\":[\"EVK0001\",\"W\xC3\xA4hl\\\"er\"]"},
      {"targets P", "0  0x1BA01477  free\n1  0x0684617F  acquired\n",
       "\"devices\":[\"1BA014770\",\"0684617F1\"]"},
      {"version", "TzWirefoxService 2.1.3.4\n", "\"versionNum\":33620740"},
      {"hwrev P", "hardware revision -1\n", "\"revID\":-1"},
      {"status P",
       "P\n  mode                SWD_SWV\n  port                10\n"
       "  JTAG clock          FREQ_A_03_0\n  target supply       off, FAULT\n"
       "  target voltage      VTARG_3_3, measured -2\n  firmware            0x0102\n"
       "  bootloader          0x8000\n  Vorn                0x0304\n"
       "  FPGA                200, power state 3\n  software valid      no\n"
       "  1.3 V supply on     yes\n  problem             FPGA mailbox error\n"
       "  problem             Vorn I2C error\n  problem             status request answered 1\n",
       R"("status":{"RESULT":1,"VTARG_SET":11,"VTARG_MEASURED":-2,"ACTIVE_INTERFACE":12,)"
       R"("ACTIVE_PORT":1,"WFX_VERSION":258,"VORN_VERSION":772,"FPGA_VERSION":200,"BOOTL)"
       R"(OADER_VERSION":-32768,"WFX_FLAGS_FPGA_POWER_STATE":3,"WFX_FLAGS_SW_VALID":0,"W)"
       R"(FX_FLAGS_VTARG_FAULT":1,"WFX_FLAGS_VTARG_ON":0,"WFX_FLAGS_VCC1_3_ON":1,"WFX_FL)"
       R"(AGS_FPGA_MBX_ERR":1,"WFX_FLAGS_VORN_I2C_ERR":1,"CLOCK_FREQUENCY":224})"}};
  for (const auto& [line, text, json] : cases) {
    const std::string transcript = Transcript(fake, line);
    EXPECT_EQ(transcript.substr(transcript.find('\n') + 1), text);
    EXPECT_EQ(
        Transcript(fake, std::string("--json ") + line),
        transcript.substr(0, transcript.find('\n') + 1) + "{\"error\":\"SUCCESS\"," + json + "}\n");
  }
}

TEST(Friendly, FormsTellWhatTheyHaveReadInWordsAndAsJson) {
  FakeService fake;
  // Every cycle's TDO is high.
  fake.reply = [](const client::Bytes& packet) {
    return client::Bytes((packet.size() + 1) / 2, 0xFF);
  };
  EXPECT_EQ(Transcript(fake, "jtag P ir 4:15 dr 9 --from-idle"),
            InSession("SendJtagPacket 1 260 308f50000060", "ir 4  0xf\ndr 9  0x1ff\n"));
  EXPECT_EQ(Transcript(fake, "jtag P dr 1 --json"),
            InSession("SendJtagPacket 1 260 f0506000",
                      R"({"error":"SUCCESS","RESULT":"ffff","scans":[{"scan":"dr","bits":1,)"
                      R"("tdo":"0x1"}]})"
                      "\n"));
  fake.reply = nullptr;
  EXPECT_EQ(Transcript(fake, "jtag P dr 8:0x83"),
            InSession("SendJtagPacket 1 260 f05006003100",
                      "wfx: the reply is shorter than the program\n= 1\n"));

  fake.reply = [](const client::Bytes&) { return client::Bytes{0x77, 0x14, 0xA0, 0x2B, 0x01}; };
  EXPECT_EQ(Transcript(fake, "swd P read-dp 0 read-dp 4"),
            "> GetWirefoxStatus P\n> AcquireDevice P 0 1\n> SendSwdPacket 260 a5\n"
            "> SendSwdPacket 260 8d\n> ReleaseDevice 260\nread-dp 0x00000000  0x2ba01477\n"
            "read-dp 0x00000004  0x2ba01477\n");
  EXPECT_EQ(Transcript(fake, "swd P read-dp 0 --json"),
            InSession("SendSwdPacket 260 a5",
                      R"({"error":"SUCCESS","RESULT":"7714a02b01","operations":[{"operation":)"
                      R"("read-dp","address":"0x00000000","value":"0x2ba01477"}]})"
                      "\n"));
}

TEST(Friendly, ATargetThatDoesNotAnswerIsExitStatusOne) {
  FakeService fake;
  fake.reply = [](const client::Bytes&) { return client::Bytes{0, 0, 0, 0, 0x04}; };
  const std::string problem =
      "read-dp 0x00000000: request 1 of 1: FAULT (an earlier error is pending: write 0x1e to DP "
      "register 0)";
  EXPECT_EQ(Transcript(fake, "swd P read-dp 0 --json"),
            InSession("SendSwdPacket 260 a5",
                      "{\"error\":\"SUCCESS\",\"RESULT\":\"0000000004\",\"operations\":[],"
                      "\"problem\":\"" +
                          problem + "\"}\nwfx: " + problem + "\n= 1\n"));
  EXPECT_TRUE(Transcript(fake, "swd P read-ap 4 --ap 2")
                  .starts_with(InSession("SendSwdPacket 260 b100000002afbd", "wfx: read-ap 0x")));
  for (const char* line : {"write-dp 4 0x50000000", "read-mem 0xfffffffc"}) {
    EXPECT_TRUE(Transcript(fake, std::string("swd P ") + line)
                    .ends_with(": the reply's length does not fit the requests\n= 1\n"));
  }
  EXPECT_EQ(Transcript(fake, "i2c P read 0x50 1"),
            InSession("SendI2CPacket 0 260 a100", kNoAnswer));
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
    calls += "> SendI2CPacket 0 260 " + client::HexFromBytes(client::Bytes{byte, 0}) + "\n";
  }
  calls += "> ReleaseDevice 260\n";
  EXPECT_EQ(Transcript(fake, "i2c P scan"), calls + "0x50\n0x77\n");
  fake.reply = nullptr;
  EXPECT_EQ(Transcript(fake, "i2c P scan"),
            calls + "wfx: no I2C device answers; check the bus's wiring and the target's power\n");
}

}  // namespace
}  // namespace client_test
