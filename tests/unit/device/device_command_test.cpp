#include <array>
#include <functional>

#include "device/device.h"
#include "device/device_status.h"
#include "tests/unit/device/device_fixture.h"
#include "usb/usb_device.h"
#include "usb/usb_endpoint.h"

namespace {

constexpr std::uint32_t kTimedOut = 997;

class CommandTest : public ScriptedProbeTest {
 protected:
  std::uint64_t Elapsed(const std::function<void()>& action) {
    const std::uint64_t begin = clock_.NowMs();
    action();
    return clock_.NowMs() - begin;
  }

  CTzDevice device_{0, false};
};

struct Command {
  const char* name;
  std::function<std::uint32_t(CTzDevice&)> call;
  const char* script;
  std::uint32_t status;
};

std::ostream& operator<<(std::ostream& out, const Command& command) { return out << command.name; }

class Commands : public CommandTest, public testing::WithParamInterface<Command> {};

TEST_P(Commands, MakeExactlyTheExchangeThatTheProbeExpects) {
  Play(GetParam().script);
  EXPECT_EQ(GetParam().call(device_), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(
    Mode, Commands,
    testing::Values(
        Command{"swd, external", [](CTzDevice& d) { return d.SetMode(4, true); },
                R"(C0 41 00 00 00 00 03 00 -> 00*3    # idle
                   C0 41 04 01 00 00 03 00 -> 00*3)",
                0},
        Command{"idle is asked for twice", [](CTzDevice& d) { return d.SetMode(0, false); },
                R"(C0 41 00 00 00 00 03 00 -> 00*3
                   C0 41 00 00 00 00 03 00 -> 00*3)",
                0},
        Command{"jtag selects connector 0", [](CTzDevice& d) { return d.SetMode(1, true); },
                R"(C0 41 00 00 00 00 03 00 -> 00*3
                   C0 41 01 01 00 00 03 00 -> 00*3
                   C0 61 00 00 00 00 03 00 -> 00*3)",
                0},
        Command{"jtag whose connector is refused", [](CTzDevice& d) { return d.SetMode(1, true); },
                R"(C0 41 00 00 00 00 03 00 -> 00*3
                   C0 41 01 01 00 00 03 00 -> 00*3
                   C0 61 00 00 00 00 03 00 -> 21 00 00)",
                0x21},
        Command{"idle refused", [](CTzDevice& d) { return d.SetMode(1, true); },
                "C0 41 00 00 00 00 03 00 -> 07 00 00", 7},
        Command{"mode refused", [](CTzDevice& d) { return d.SetMode(1, true); },
                R"(C0 41 00 00 00 00 03 00 -> 00*3
                   C0 41 01 01 00 00 03 00 -> 09 00 00)",
                9}));

INSTANTIATE_TEST_SUITE_P(
    Simple, Commands,
    testing::Values(Command{"led number keeps 8 bits",
                            [](CTzDevice& d) { return d.LedState(0x102, 1); },
                            "C0 48 01 02 00 00 02 00 -> 00 00", 0},
                    Command{"led refused", [](CTzDevice& d) { return d.LedState(9, 0); },
                            "C0 48 00 09 00 00 02 00 -> 05 00", 5},
                    Command{"identify", [](CTzDevice& d) { return d.Identify(2); },
                            "C0 49 02 00 00 00 02 00 -> 00 00", 0},
                    Command{"power on", [](CTzDevice& d) { return d.TargetPowerOn(true); },
                            "C0 51 01 00 00 00 02 00 -> 00 00", 0},
                    Command{"power off", [](CTzDevice& d) { return d.TargetPowerOn(false); },
                            "C0 52 00 00 00 00 02 00 -> 03 00", 3},
                    Command{"voltage code", [](CTzDevice& d) { return d.SetVTargVal(0x1000B); },
                            "C0 55 0B 00 00 00 02 00 -> 00 00", 0},
                    Command{"port acquire: 300 retries are 44",
                            [](CTzDevice& d) { return d.SetupPortAcquire(300, true); },
                            "C0 5F 2C 01 00 00 0A 00 -> 00*10", 0},
                    Command{"port acquire without reset pin",
                            [](CTzDevice& d) { return d.SetupPortAcquire(5, false); },
                            "C0 5F 05 00 00 00 0A 00 -> 02 00*9", 2},
                    Command{"port acquire begins",
                            [](CTzDevice& d) { return d.BeginPortAcquire(); },
                            "C0 60 00 00 00 00 0A 00 -> 00*10", 0},
                    Command{"a vendor request to the probe",
                            [](CTzDevice& d) {
                              std::array<std::uint8_t, 1> held{1};
                              return d.XferData(0, 0xA0, 0xE600, 0x1234, held.data(), 1);
                            },
                            "40 A0 00 E6 34 12 01 00 : 01 -> ok", 0},
                    Command{"a vendor request without data",
                            [](CTzDevice& d) { return d.XferData(1, 0x5C, 1, 2, nullptr, 0); },
                            "C0 5C 01 00 02 00 00 00 -> ok", 0}));

INSTANTIATE_TEST_SUITE_P(
    Registers, Commands,
    testing::Values(Command{"write", [](CTzDevice& d) { return d.WriteFPGAReg(0x39, 0xFD); },
                            "C0 43 B9 FD 00 00 10 00 -> 00*16", 0},
                    Command{"write masks the address",
                            [](CTzDevice& d) { return d.WriteFPGAReg(0x91, 0x30); },
                            "C0 43 91 30 00 00 10 00 -> 00*16", 0},
                    Command{"write refused", [](CTzDevice& d) { return d.WriteFPGAReg(0x11, 0); },
                            "C0 43 91 00 00 00 10 00 -> 06 00*15", 6},
                    Command{"write stalls", [](CTzDevice& d) { return d.WriteFPGAReg(0x11, 0); },
                            "C0 43 91 00 00 00 10 00 -> stall", 1},
                    Command{"reset line driven", [](CTzDevice& d) { return d.ResetTarget(true); },
                            R"(C0 43 11 00 00 00 08 00 -> 00 00 00 C1 00*4
                   C0 43 91 F1 00 00 10 00 -> 00*16)",
                            0},
                    Command{"reset line driven high, then let go",
                            [](CTzDevice& d) { return d.ResetTarget(false); },
                            R"(C0 43 11 00 00 00 08 00 -> 00 00 00 F1 00*4
                   C0 43 91 D1 00 00 10 00 -> 00*16
                   C0 43 91 C1 00 00 10 00 -> 00*16)",
                            0}));

INSTANTIATE_TEST_SUITE_P(
    Swv, Commands,
    testing::Values(
        Command{"48 MHz base clock", [](CTzDevice& d) { return d.SetupSWV(2'000'000, 1, 0x1234); },
                R"(C0 43 20 00 00 00 08 00 -> 00 00 00 02 00*4
                   C0 43 A3 18 00 00 10 00 -> 00*16
                   C0 43 A0 03 00 00 10 00 -> 00*16
                   C0 67 34 12 00 00 02 00 -> 00 00)",
                0},
        Command{"24 MHz base clock", [](CTzDevice& d) { return d.SetupSWV(2'000'000, 0, 0); },
                R"(C0 43 20 00 00 00 08 00 -> 00 00 00 01 00*4
                   C0 43 A3 0C 00 00 10 00 -> 00*16
                   C0 43 A0 02 00 00 10 00 -> 00*16
                   C0 67 00 00 00 00 02 00 -> 0B 00)",
                11},
        Command{"faster than the base clock", [](CTzDevice& d) { return d.SetupSWV(~0U, 0, 0); },
                R"(C0 43 20 00 00 00 08 00 -> 00*8
                   C0 43 A3 00 00 00 10 00 -> 00*16
                   C0 43 A0 02 00 00 10 00 -> 00*16
                   C0 67 00 00 00 00 02 00 -> 00 00)",
                0},
        Command{"divisor 480 keeps 8 bits", [](CTzDevice& d) { return d.SetupSWV(100'000, 0, 0); },
                R"(C0 43 20 00 00 00 08 00 -> 00*8
                   C0 43 A3 E0 00 00 10 00 -> 04 00*15)",
                4},
        Command{"rate 0", [](CTzDevice& d) { return d.SetupSWV(0, 0, 0); }, "", 5}));

INSTANTIATE_TEST_SUITE_P(
    Connector, Commands,
    testing::Values(Command{"in swd mode", [](CTzDevice& d) { return d.SetActiveIOConnector(1); },
                            R"(C0 44 00 00 00 00 0E 00 -> 00*5 04 00*8
                   C0 61 01 00 00 00 0A 00 -> 00*10)",
                            0},
                    Command{"in swd mode with swv, refused",
                            [](CTzDevice& d) { return d.SetActiveIOConnector(3); },
                            R"(C0 44 00 00 00 00 0E 00 -> 00*5 0C 00*8
                   C0 61 03 00 00 00 0A 00 -> 08 00*9)",
                            8},
                    Command{"not in jtag mode",
                            [](CTzDevice& d) { return d.SetActiveIOConnector(1); },
                            "C0 44 00 00 00 00 0E 00 -> 00*5 01 00*8", 5}));

TEST_F(CommandTest, ModeSwitchPausesUnlessTheProbeStayedInItsMode) {
  Play(R"(C0 41 00 00 00 00 03 00 -> 00*3
                 C0 41 04 01 00 00 03 00 -> 00*3)");
  EXPECT_EQ(Elapsed([&] { EXPECT_EQ(device_.SetMode(4, true), 0U); }), 70U);
  Play(R"(C0 41 00 00 00 00 03 00 -> 00*3
                 C0 41 04 01 00 00 03 00 -> 01 00 00)");
  EXPECT_EQ(Elapsed([&] { EXPECT_EQ(device_.SetMode(4, true), 1U); }), 70U);
  Play("C0 41 00 00 00 00 03 00 -> 01 00 00");
  EXPECT_EQ(Elapsed([&] { EXPECT_EQ(device_.SetMode(4, true), 1U); }), 0U);
}

TEST_F(CommandTest, ClockSwitchEndsWhenTheNewClockRunsWhateverTheFirstReplySays) {
  Play(R"(C0 57 05 03 00 00 02 00 -> 09 00
                 C0 43 B9 FD 00 00 10 00 -> 00*16
                 C0 43 B9 05 00 00 10 00 -> 00*16
                 C0 43 3A 00 00 00 08 00 -> 00 00 00 01 00*4
                 C0 43 3A 00 00 00 08 00 -> 00 00 00 83 00*4)");
  EXPECT_EQ(Elapsed([&] { EXPECT_EQ(device_.JTAG_SetClock(0x305), 0U); }), 2U);
}

TEST_F(CommandTest, ClockThatNeverRunsIsGivenUpAfterFiftyReadsWithoutAnError) {
  std::string script = R"(C0 57 01 00 00 00 02 00 -> 00 00
                          C0 43 B9 FD 00 00 10 00 -> 00*16
                          C0 43 B9 01 00 00 10 00 -> 00*16
)";
  for (int i = 0; i < 50; ++i) script += "C0 43 3A 00 00 00 08 00 -> 00 00 00 02 00*4\n";
  Play(script);
  EXPECT_EQ(Elapsed([&] { EXPECT_EQ(device_.JTAG_SetClock(1), 0U); }), 50U);
}

TEST_F(CommandTest, OperationsOfSeveralStepsEndAtTheOneThatFails) {
  struct {
    const char* what;
    std::function<std::uint32_t(CTzDevice&)> call;
    const char* script;
  } const cases[] = {
      {"mode", [](CTzDevice& d) { return d.SetMode(1, true); },
       R"(C0 41 00 00 00 00 03 00 -> 00*3
          C0 41 01 01 00 00 03 00 -> 00*3
          C0 61 00 00 00 00 03 00 -> 00*3)"},
      {"clock", [](CTzDevice& d) { return d.JTAG_SetClock(1); },
       R"(C0 57 01 00 00 00 02 00 -> 00 00
          C0 43 B9 FD 00 00 10 00 -> 00*16
          C0 43 B9 01 00 00 10 00 -> 00*16
          C0 43 3A 00 00 00 08 00 -> 00*8
          C0 43 3A 00 00 00 08 00 -> 00*8)"},
      {"reset line driven", [](CTzDevice& d) { return d.ResetTarget(true); },
       R"(C0 43 11 00 00 00 08 00 -> 00*8
          C0 43 91 30 00 00 10 00 -> 00*16)"},
      {"reset line let go", [](CTzDevice& d) { return d.ResetTarget(false); },
       R"(C0 43 11 00 00 00 08 00 -> 00*8
          C0 43 91 10 00 00 10 00 -> 00*16
          C0 43 91 00 00 00 10 00 -> 00*16)"},
      {"swv", [](CTzDevice& d) { return d.SetupSWV(2'000'000, 1, 3); },
       R"(C0 43 20 00 00 00 08 00 -> 00*8
          C0 43 A3 18 00 00 10 00 -> 00*16
          C0 43 A0 03 00 00 10 00 -> 00*16
          C0 67 03 00 00 00 02 00 -> 00 00)"},
      {"connector", [](CTzDevice& d) { return d.SetActiveIOConnector(1); },
       R"(C0 44 00 00 00 00 0E 00 -> 00*5 04 00*8
          C0 61 01 00 00 00 0A 00 -> 00*10)"},
  };
  for (const auto& [what, call, script] : cases) {
    SCOPED_TRACE(what);
    ExpectEndsAtEachFailure([&] { return call(device_); }, script);
  }
}

TEST_F(CommandTest, ClockCodeIsStoredAlsoWhenTheProbeReportsAnError) {
  std::uint32_t code = 77;
  Play("C0 58 00 00 00 00 04 00 -> 00 00 00 0C");
  EXPECT_EQ(device_.JTAG_GetClock(&code), 0U);
  EXPECT_EQ(code, 12U);
  Play("C0 58 00 00 00 00 04 00 -> 03 00 00 0E");
  EXPECT_EQ(device_.JTAG_GetClock(&code), 3U);
  EXPECT_EQ(code, 14U);
  Play("C0 58 00 00 00 00 04 00 -> stall");
  EXPECT_NE(device_.JTAG_GetClock(&code), 0U);
  EXPECT_EQ(code, 0U);
}

TEST_F(CommandTest, ImplausibleVoltageInTheStatusIsReplacedAndTheResultByteLeftToTheCaller) {
  struct {
    const char* reply;
    std::array<std::uint8_t, 2> voltage;
  } const cases[] = {
      {"C0 44 00 00 00 00 0E 00 -> 05 00 00 FF 1E 04 00*8", {0xFF, 0x1E}},
      {"C0 44 00 00 00 00 0E 00 -> 05 00 00 00 1F 04 00*8", {0xFA, 0x00}},
      {"C0 44 00 00 00 00 0E 00 -> 05 00 00 FF FF 04 00*8", {0xFA, 0x00}},
  };
  for (const auto& [reply, voltage] : cases) {
    Play(reply);
    std::array<std::uint8_t, 14> status{};
    EXPECT_EQ(device_.GetDeviceStatus(status), 0U);
    EXPECT_EQ(status[0], 5);
    EXPECT_EQ(status[3], voltage[0]) << reply;
    EXPECT_EQ(status[4], voltage[1]) << reply;
    EXPECT_EQ(status[5], 4);
  }
  // A failed read leaves the buffer, but for the voltage.
  Play("C0 44 00 00 00 00 0E 00 -> stall");
  std::array<std::uint8_t, 14> status;
  status.fill(0xEE);
  EXPECT_NE(device_.GetDeviceStatus(status), 0U);
  const std::array<std::uint8_t, 14> expected = {0xEE, 0xEE, 0xEE, 0xFA, 0x00, 0xEE, 0xEE,
                                                 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
  EXPECT_EQ(status, expected);
}

TEST_F(CommandTest, RegisterValueIsStoredOnlyOnSuccessAndTheAddressHasSevenBits) {
  std::uint8_t value = 0x5A;
  Play("C0 43 11 00 00 00 08 00 -> stall");
  EXPECT_EQ(device_.ReadFPGAReg(0x91, &value), device_status::kTransferFailed);
  EXPECT_EQ(value, 0x5A);
  Play("C0 43 11 00 00 00 08 00 -> 07 00 00 44 00*4");
  EXPECT_EQ(device_.ReadFPGAReg(0x91, &value), 7U);
  EXPECT_EQ(value, 0x5A);
  Play("C0 43 11 00 00 00 08 00 -> 00 00 00 44 00*4");
  EXPECT_EQ(device_.ReadFPGAReg(0x91, &value), 0U);
  EXPECT_EQ(value, 0x44);
}

TEST_F(CommandTest, ReplyThatIsTooShortToHoldAValueCountsAsZeros) {
  std::uint8_t value = 0x5A;
  Play("C0 43 11 00 00 00 08 00 -> 00");
  EXPECT_EQ(device_.ReadFPGAReg(0x11, &value), 0U);
  EXPECT_EQ(value, 0);
  Play("C0 48 01 00 00 00 02 00 -> ");
  EXPECT_EQ(device_.LedState(0, 1), 0U);
}

TEST_F(CommandTest, SilentProbeEndsACommandAtTheControlTimeout) {
  Play(R"(C0 49 01 00 00 00 02 00 -> silent
                 abort 00)");
  EXPECT_EQ(Elapsed([&] { EXPECT_EQ(device_.Identify(1), kTimedOut); }), 10'000U);
  ExpectPlayed();
  // And the next command works.
  Play("C0 49 01 00 00 00 02 00 -> 00 00");
  EXPECT_EQ(device_.Identify(1), 0U);
}

TEST_F(CommandTest, EndpointsAreFoundByTheirAddressAndAMissIsLogged) {
  for (const std::uint8_t address : {0x00, 0x01, 0x81, 0x02, 0x84, 0x86}) {
    CTzUSBEndPoint* const endpoint = device_.GetEndPoint(address);
    ASSERT_NE(endpoint, nullptr) << int{address};
    EXPECT_EQ(endpoint->Address(), address);
  }
  log_.Take();
  EXPECT_EQ(device_.GetEndPoint(0x06), nullptr);
  EXPECT_EQ(log_.Take(),
            (std::vector<std::string>{"[CTzDevice::GetEndPoint]Endpoint ep=6 does not exist"}));
}

TEST_F(CommandTest, OnlyAProbeInUseGetsItsTimeouts) {
  const auto timeouts = [](CTzDevice& device) {
    std::vector<std::uint32_t> all;
    for (const std::uint8_t address : {0x00, 0x01, 0x81, 0x02, 0x84, 0x86}) {
      all.push_back(device.GetEndPoint(address)->TimeoutMs());
    }
    return all;
  };
  EXPECT_EQ(timeouts(device_),
            (std::vector<std::uint32_t>{10000, 10000, 10000, 10000, 10000, 10000}));
  CTzDevice in_use(0, true);
  EXPECT_EQ(timeouts(in_use), (std::vector<std::uint32_t>{10000, 2000, 1000, 1000, 2000, 100}));
}

}  // namespace
