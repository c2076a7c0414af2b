#include <array>
#include <functional>

#include "device/device.h"
#include "device/device_status.h"
#include "tests/unit/device/probe_test.h"

namespace {

class CommandTest : public ProbeTest {
 protected:
  struct Command {
    const char* what;
    std::uint32_t status;  // that comes of it
    std::uint64_t elapsed_ms;
    std::function<std::uint32_t(CTzDevice&)> call;
    std::string script;
  };

  // Also: a command that succeeds fails when any of its requests fails, which is then its last.
  void ExpectExchanges(const std::vector<Command>& commands) {
    for (const auto& [what, status, elapsed_ms, call, script] : commands) {
      SCOPED_TRACE(what);
      bus_.Play(script);
      EXPECT_EQ(ElapsedMs([&] { EXPECT_EQ(call(device_), status); }), elapsed_ms);
      bus_.ExpectPlayed();
      if (status == 0) PlayUpToEachFailure(script, [&] { EXPECT_NE(call(device_), 0U); });
    }
  }

  CTzDevice device_{0, false};
};

constexpr char kJtagMode[] = R"(
    C0 41 00 00 00 00 03 00 -> 00*3    # idle
    C0 41 01 01 00 00 03 00 -> 00*3    # JTAG
    C0 61 00 00 00 00 03 00 -> 00*3    # connector 0
)";

TEST_F(CommandTest, ModeSwitchGoesThroughIdleAndPausesUnlessTheProbeStayedInItsMode) {
  ExpectExchanges({
      {"swd, external", 0, 70, [](CTzDevice& d) { return d.SetMode(4, true); },
       R"(C0 41 00 00 00 00 03 00 -> 00*3
          C0 41 04 01 00 00 03 00 -> 00*3)"},
      {"idle is asked for twice", 0, 70, [](CTzDevice& d) { return d.SetMode(0, false); },
       R"(C0 41 00 00 00 00 03 00 -> 00*3
          C0 41 00 00 00 00 03 00 -> 00*3)"},
      {"jtag selects connector 0", 0, 70, [](CTzDevice& d) { return d.SetMode(1, true); },
       kJtagMode},
      {"connector refused", 0x21, 70, [](CTzDevice& d) { return d.SetMode(1, true); },
       R"(C0 41 00 00 00 00 03 00 -> 00*3
          C0 41 01 01 00 00 03 00 -> 00*3
          C0 61 00 00 00 00 03 00 -> 21 00 00)"},
      {"idle refused", 7, 0, [](CTzDevice& d) { return d.SetMode(1, true); },
       "C0 41 00 00 00 00 03 00 -> 07 00 00"},
      {"mode refused", 9, 70, [](CTzDevice& d) { return d.SetMode(1, true); },
       R"(C0 41 00 00 00 00 03 00 -> 00*3
          C0 41 01 01 00 00 03 00 -> 09 00 00)"},
  });
}

TEST_F(CommandTest, CommandsOfOneRequestPutTheirArgumentsIntoIt) {
  std::array<std::uint8_t, 1> held{1};
  ExpectExchanges({
      {"led number keeps 8 bits", 0, 0, [](CTzDevice& d) { return d.LedState(0x102, 1); },
       "C0 48 01 02 00 00 02 00 -> 00 00"},
      {"a reply that is too long fails the transfer", kTimedOut, 0,
       [](CTzDevice& d) { return d.LedState(0, 1); }, "C0 48 01 00 00 00 02 00 -> 05 00 00"},
      {"no reply counts as zeros", 0, 0, [](CTzDevice& d) { return d.LedState(0, 1); },
       "C0 48 01 00 00 00 02 00 -> "},
      {"silence ends at the control time-out", kTimedOut, 10'000,
       [](CTzDevice& d) { return d.Identify(1); }, "C0 49 01 00 00 00 02 00 -> silent\n abort 00"},
      {"a status word without a system error counts as success", 0, 0,
       [](CTzDevice& d) { return d.Identify(3); }, "C0 49 03 00 00 00 02 00 -> flagged"},
      {"power on", 0, 0, [](CTzDevice& d) { return d.TargetPowerOn(true); },
       "C0 51 01 00 00 00 02 00 -> 00 00"},
      {"power off", 3, 0, [](CTzDevice& d) { return d.TargetPowerOn(false); },
       "C0 52 00 00 00 00 02 00 -> 03 00"},
      {"voltage code", 0, 0, [](CTzDevice& d) { return d.SetVTargVal(0x1000B); },
       "C0 55 0B 00 00 00 02 00 -> 00 00"},
      {"port acquire: 300 retries are 44", 0, 0,
       [](CTzDevice& d) { return d.SetupPortAcquire(300, true); },
       "C0 5F 2C 01 00 00 0A 00 -> 00*10"},
      {"port acquire without reset pin", 2, 0,
       [](CTzDevice& d) { return d.SetupPortAcquire(261, false); },
       "C0 5F 05 00 00 00 0A 00 -> 02 00*9"},
      {"port acquire begins", 0, 0, [](CTzDevice& d) { return d.BeginPortAcquire(); },
       "C0 60 00 00 00 00 0A 00 -> 00*10"},
      {"a vendor request to the probe", 0, 0,
       [&](CTzDevice& d) { return d.XferData(0, 0xA0, 0xE600, 0x1234, held.data(), 1); },
       "40 A0 00 E6 34 12 01 00 : 01 -> ok"},
      {"a vendor request without data", 0, 0,
       [](CTzDevice& d) { return d.XferData(1, 0x5C, 1, 2, nullptr, 0); },
       "C0 5C 01 00 02 00 00 00 -> ok"},
  });
}

TEST_F(CommandTest, CommandsThatGoByTheProbesStateReadItFirst) {
  std::string clock_never_runs = R"(C0 57 01 00 00 00 02 00 -> 00 00
                                    C0 43 B9 FD 00 00 10 00 -> 00*16
                                    C0 43 B9 01 00 00 10 00 -> 00*16)";
  for (int i = 0; i < 50; ++i) clock_never_runs += "\nC0 43 3A 00 00 00 08 00 -> 00 00 00 02 00*4";
  ExpectExchanges({
      {"register written", 0, 0, [](CTzDevice& d) { return d.WriteFPGAReg(0x39, 0xFD); },
       "C0 43 B9 FD 00 00 10 00 -> 00*16"},
      {"its address is masked", 0, 0, [](CTzDevice& d) { return d.WriteFPGAReg(0x91, 0x30); },
       "C0 43 91 30 00 00 10 00 -> 00*16"},
      {"register refused", 6, 0, [](CTzDevice& d) { return d.WriteFPGAReg(0x11, 0); },
       "C0 43 91 00 00 00 10 00 -> 06 00*15"},
      {"register stalls", 1, 0, [](CTzDevice& d) { return d.WriteFPGAReg(0x11, 0); },
       "C0 43 91 00 00 00 10 00 -> stall"},
      {"reset line driven", 0, 0, [](CTzDevice& d) { return d.ResetTarget(true); },
       R"(C0 43 11 00 00 00 08 00 -> 00 00 00 C1 00*4
          C0 43 91 F1 00 00 10 00 -> 00*16)"},
      {"reset line driven high, then let go", 0, 0,
       [](CTzDevice& d) { return d.ResetTarget(false); },
       R"(C0 43 11 00 00 00 08 00 -> 00 00 00 F1 00*4
          C0 43 91 D1 00 00 10 00 -> 00*16
          C0 43 91 C1 00 00 10 00 -> 00*16)"},
      {"connector in swd mode", 0, 0, [](CTzDevice& d) { return d.SetActiveIOConnector(1); },
       R"(C0 44 00 00 00 00 0E 00 -> 00*5 04 00*8
          C0 61 01 00 00 00 0A 00 -> 00*10)"},
      {"connector in jtag mode", 5, 0, [](CTzDevice& d) { return d.SetActiveIOConnector(1); },
       "C0 44 00 00 00 00 0E 00 -> 00*5 01 00*8"},
      {"clock runs at the second look; the first reply does not count", 0, 2,
       [](CTzDevice& d) { return d.JTAG_SetClock(0x305); },
       R"(C0 57 05 03 00 00 02 00 -> 09 00
          C0 43 B9 FD 00 00 10 00 -> 00*16
          C0 43 B9 05 00 00 10 00 -> 00*16
          C0 43 3A 00 00 00 08 00 -> 00 00 00 01 00*4
          C0 43 3A 00 00 00 08 00 -> 00 00 00 83 00*4)"},
      {"clock that never runs is given up without an error", 0, 50,
       [](CTzDevice& d) { return d.JTAG_SetClock(1); }, clock_never_runs},
  });
}

TEST_F(CommandTest, TraceRateIsADivisorOfTheBaseClockThatTheProbeRunsAt) {
  ExpectExchanges({
      {"48 MHz", 0, 0, [](CTzDevice& d) { return d.SetupSWV(2'000'000, 1, 0x1234); },
       R"(C0 43 20 00 00 00 08 00 -> 00 00 00 02 00*4
          C0 43 A3 18 00 00 10 00 -> 00*16
          C0 43 A0 03 00 00 10 00 -> 00*16
          C0 67 34 12 00 00 02 00 -> 00 00)"},
      {"24 MHz", 11, 0, [](CTzDevice& d) { return d.SetupSWV(2'000'000, 0, 0); },
       R"(C0 43 20 00 00 00 08 00 -> 00 00 00 01 00*4
          C0 43 A3 0C 00 00 10 00 -> 00*16
          C0 43 A0 02 00 00 10 00 -> 00*16
          C0 67 00 00 00 00 02 00 -> 0B 00)"},
      {"faster than the base clock", 0, 0, [](CTzDevice& d) { return d.SetupSWV(~0U, 0, 0); },
       R"(C0 43 20 00 00 00 08 00 -> 00*8
          C0 43 A3 00 00 00 10 00 -> 00*16
          C0 43 A0 02 00 00 10 00 -> 00*16
          C0 67 00 00 00 00 02 00 -> 00 00)"},
      {"divisor 480 keeps 8 bits", 4, 0, [](CTzDevice& d) { return d.SetupSWV(100'000, 0, 0); },
       R"(C0 43 20 00 00 00 08 00 -> 00*8
          C0 43 A3 E0 00 00 10 00 -> 04 00*15)"},
      {"rate 0", 5, 0, [](CTzDevice& d) { return d.SetupSWV(0, 0, 0); }, ""},
  });
}

TEST_F(CommandTest, TargetsPortIsSwitchedByAStringOfTmsLevelsInJtagMode) {
  // Status of a probe in some mode with SWD, on connector 1: the way back leads there.
  const std::string status = "C0 44 00 00 00 00 0E 00 -> 00*5 0E 00*5 01 00 00\n";
  ExpectExchanges({
      {"to jtag: 52 high, 0xE73C, 52 high", 0, 70, [](CTzDevice& d) { return d.JTAG_Reset(); },
       std::string(kJtagMode) + R"(
           C0 43 81 78 00 00 10 00 -> 00*16
           C0 43 82 80 00 00 10 00 -> 00*16
           out 02 : F0*13 C0 30 70 E0 F0*13 -> ok
           in 84 15 -> 00*15)"},
      {"to swd: 52 high, 0xE79E, 52 high", 0, 140,
       [](CTzDevice& d) { return d.SWD_CReset(); }, status + kJtagMode + R"(
           C0 43 11 00 00 00 08 00 -> 00 00 00 D5 00*4
           C0 43 91 15 00 00 10 00 -> 00*16        # bits 6 and 7 off
           C0 43 81 78 00 00 10 00 -> 00*16
           C0 43 82 80 00 00 10 00 -> 00*16
           out 02 : F0*13 E0 90 70 E0 F0*13 -> ok
           in 84 15 -> 00*15
           C0 43 91 D5 00 00 10 00 -> 00*16
           C0 41 00 00 00 00 03 00 -> 00*3
           C0 41 0E 01 00 00 03 00 -> 00*3
)" + status + "C0 61 01 00 00 00 0A 00 -> 00*10"},
      {"to swd outside the swd modes", 5, 0, [](CTzDevice& d) { return d.SWD_CReset(); },
       "C0 44 00 00 00 00 0E 00 -> 00*5 0B 00*8"},
  });
}

TEST_F(CommandTest, ClockCodeIsStoredAlsoWhenTheProbeReportsAnError) {
  std::uint32_t code = 77;
  const auto status_of = [&](const std::string& reply) {
    bus_.Play("C0 58 00 00 00 00 04 00 -> " + reply);
    return device_.JTAG_GetClock(&code);
  };
  EXPECT_EQ(status_of("00 00 00 0C"), 0U);
  EXPECT_EQ(code, 12U);
  EXPECT_EQ(status_of("03 00 00 0E"), 3U);
  EXPECT_EQ(code, 14U);
  EXPECT_NE(status_of("stall"), 0U);
  EXPECT_EQ(code, 0U);
}

TEST_F(CommandTest, RegisterValueIsStoredOnlyOnSuccessAndTheAddressHasSevenBits) {
  std::uint8_t value = 0x5A;
  const auto status_of = [&](const std::string& reply) {
    bus_.Play("C0 43 11 00 00 00 08 00 -> " + reply);
    return device_.ReadFPGAReg(0x91, &value);
  };
  EXPECT_EQ(status_of("stall"), device_status::kTransferFailed);
  EXPECT_EQ(status_of("07 00 00 44 00*4"), 7U);
  EXPECT_EQ(value, 0x5A);
  EXPECT_EQ(status_of("00 00 00 44 00*4"), 0U);
  EXPECT_EQ(value, 0x44);
  EXPECT_EQ(status_of("00"), 0U);
  EXPECT_EQ(value, 0) << "a reply that is too short to hold a value";
}

TEST_F(CommandTest, ImplausibleVoltageInTheStatusIsReplacedAndTheResultByteLeftToTheCaller) {
  const struct {
    const char* reply;
    const char* status;
  } cases[] = {
      {"05 00 00 FF 1E 04 00*8", "05 00 00 FF 1E 04 00*8"},
      {"05 00 00 00 1F 04 00*8", "05 00 00 FA 00 04 00*8"},
      {"05 00 00 FF FF 04 00*8", "05 00 00 FA 00 04 00*8"},
      {"stall", "EE EE EE FA 00 EE*9"},  // leaves the buffer, but for the voltage
  };
  for (const auto& [reply, expected] : cases) {
    bus_.Play(std::string("C0 44 00 00 00 00 0E 00 -> ") + reply);
    std::array<std::uint8_t, 14> status;
    status.fill(0xEE);
    EXPECT_EQ(device_.GetDeviceStatus(status) == 0, std::string(reply) != "stall");
    EXPECT_EQ(HexText(Bytes(status.begin(), status.end())), expected);
  }
}

TEST_F(CommandTest, OnlyAProbeInUseGetsItsTimeouts) {
  EXPECT_EQ(Timeouts(device_), "10000 10000 10000 10000 10000 10000 ");
  CTzDevice in_use(0, true);
  EXPECT_EQ(Timeouts(in_use), "10000 2000 1000 1000 2000 100 ");
}

}  // namespace
