// The methods that configure and query one probe: what reaches the probe in which order, and what
// the client gets. Whom they refuse is in every_method_test.cpp.
#include <cstring>

#include "tests/unit/api/api_fixture.h"

namespace {

class Control : public ApiTest {
 protected:
  Control() : probe_(AddProbe(L"P1")) {}

  // The outcome of a call, which itself must go through.
  TzErrorCode Outcome(HRESULT called) {
    EXPECT_EQ(called, S_OK);
    return error_;
  }

  TzErrorCode SetMode(std::int32_t mode, CHAR port10) {
    return Outcome(object_->SetMode(name_, TzTransferMode(mode), port10, OwnPid(), &error_));
  }

  TzErrorCode SetJtagClock(TzJtagClock clock) {
    return Outcome(object_->SetJtagClock(name_, clock, OwnPid(), &error_));
  }

  ProbeEntry& probe_;
  Text name_{L"P1"};
};

TEST_F(Control, ModeReachesTheProbeByItsLowByteAndBitEightAsInternal) {
  const struct {
    std::int32_t mode;
    CHAR port10;
    Calls calls;
  } kCases[] = {
      {0, 1, {"SetMode(0, external)"}},
      {1, 1, {"SetMode(1, external)"}},
      {2, 0, {"SetMode(2, external)"}},
      {4, 0, {"SetMode(4, external)", "SetActiveIOConnector(0)"}},
      {4, 2, {"SetMode(4, external)", "SetActiveIOConnector(1)"}},
      {8, 1, {"SetMode(8, external)"}},
      {12, -1, {"SetMode(12, external)", "SetActiveIOConnector(1)"}},
      {12, 0, {"SetMode(12, external)", "SetActiveIOConnector(0)"}},
      {16, 1, {"SetMode(16, external)"}},
      {32, 1, {"SetMode(32, external)"}},
      {272, 1, {"SetMode(16, internal)"}},
      // Not checked: the probe decides. Only exactly 4 and 12 select a connector.
      {0x204, 1, {"SetMode(4, external)"}},
      {0x10C, 1, {"SetMode(12, internal)"}},
      {-1, 0, {"SetMode(255, internal)"}},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.mode);
    EXPECT_EQ(SetMode(test.mode, test.port10), TzErrorCode::SUCCESS);
    EXPECT_EQ(device_->TakeCalls(), test.calls);
    EXPECT_EQ(probe_.mode, static_cast<std::uint32_t>(test.mode));
  }
}

TEST_F(Control, RecordedModeFollowsTheProbeAndNotTheConnector) {
  probe_.mode = 1;
  device_->failing = {{"SetMode", 3}};
  EXPECT_EQ(SetMode(4, 0), TzErrorCode::WFX_ERROR);
  EXPECT_EQ(probe_.mode, 1u);
  EXPECT_EQ(device_->TakeCalls(), Calls{"SetMode(4, external)"});
  device_->failing = {{"SetActiveIOConnector", 5}};
  EXPECT_EQ(SetMode(4, 0), TzErrorCode::WFX_ERROR);
  EXPECT_EQ(probe_.mode, 4u);
}

TEST_F(Control, SupplyIsSwitchedOnlyAfterTheVoltageIsSet) {
  const auto set = [&](TzVTargVoltage voltage, CHAR supply) {
    return Outcome(object_->SetVTarg(name_, voltage, supply, OwnPid(), &error_));
  };
  EXPECT_EQ(set(TzVTargVoltage::VTARG_5_0, 1), TzErrorCode::SUCCESS);
  EXPECT_EQ(set(TzVTargVoltage(99), 0), TzErrorCode::SUCCESS);
  EXPECT_EQ(device_->TakeCalls(), (Calls{"SetVTargVal(7)", "TargetPowerOn(on)", "SetVTargVal(99)",
                                         "TargetPowerOn(off)"}));
}

TEST_F(Control, ClockChangePutsTheActiveInterfaceAndConnectorBack) {
  device_->status_reply[5] = 12;
  device_->status_reply[11] = 1;
  EXPECT_EQ(SetJtagClock(TzJtagClock::FREQ_A_03_0), TzErrorCode::SUCCESS);
  EXPECT_EQ(device_->TakeCalls(), (Calls{"GetDeviceStatus()", "JTAG_SetClock(224)",
                                         "SetMode(12, external)", "SetActiveIOConnector(1)"}));
  device_->status_reply[5] = 1;
  EXPECT_EQ(SetJtagClock(TzJtagClock(-2)), TzErrorCode::SUCCESS);
  EXPECT_EQ(device_->TakeCalls(),
            (Calls{"GetDeviceStatus()", "JTAG_SetClock(4294967294)", "SetMode(1, external)"}));
}

// VSER towards the internal controller is no VSER here: failures count, and nothing is put back.
TEST_F(Control, ClockChangeOutsideVserFailsWithTheConnector) {
  probe_.mode = 272;
  device_->status_reply[5] = 4;
  device_->failing = {{"SetActiveIOConnector", 997}};
  EXPECT_EQ(SetJtagClock(TzJtagClock::FREQ_A_24_0), TzErrorCode::WFX_ERROR);
  EXPECT_EQ(device_->TakeCalls(), (Calls{"GetDeviceStatus()", "JTAG_SetClock(4)",
                                         "SetMode(4, external)", "SetActiveIOConnector(0)"}));
  EXPECT_EQ(probe_.mode, 272u);
}

TEST_F(Control, ClockChangeInVserGoesThroughIdleAndAlwaysComesBack) {
  probe_.mode = 16;
  device_->status_reply[5] = 16;
  EXPECT_EQ(SetJtagClock(TzJtagClock::FREQ_A_24_0), TzErrorCode::SUCCESS);
  EXPECT_EQ(device_->TakeCalls(),
            (Calls{"GetDeviceStatus()", "SetMode(0, external)", "JTAG_SetClock(4)",
                   "SetMode(16, external)", "SetMode(16, external)"}));
  // Neither an unreadable status nor a refused clock shows: the last switch is what counts.
  device_->failing = {{"GetDeviceStatus", 31}, {"JTAG_SetClock", 2}};
  EXPECT_EQ(SetJtagClock(TzJtagClock::FREQ_A_24_0), TzErrorCode::SUCCESS);
  EXPECT_EQ(device_->TakeCalls(), (Calls{"GetDeviceStatus()", "SetMode(0, external)",
                                         "JTAG_SetClock(4)", "SetMode(16, external)"}));
  device_->failing = {{"SetMode", 2}};
  EXPECT_EQ(SetJtagClock(TzJtagClock::FREQ_A_24_0), TzErrorCode::WFX_ERROR);
  EXPECT_EQ(device_->TakeCalls(),
            (Calls{"GetDeviceStatus()", "SetMode(0, external)", "SetMode(16, external)"}));
}

TEST_F(Control, TimeOutGoesToTheEndpointAddressAsGiven) {
  for (const std::int32_t address : {0, 1, 2, 4, 6, 0x81, 0x84, 0x86}) {
    EXPECT_EQ(
        Outcome(object_->SetTimeOut(name_, TzWirefoxEndPoint(address), 1234, OwnPid(), &error_)),
        TzErrorCode::SUCCESS);
  }
  EXPECT_EQ(device_->TakeCalls(),
            (Calls{"SetTimeout(00, 1234)", "SetTimeout(01, 1234)", "SetTimeout(02, 1234)",
                   "SetTimeout(04, 1234)", "SetTimeout(06, 1234)", "SetTimeout(81, 1234)",
                   "SetTimeout(84, 1234)", "SetTimeout(86, 1234)"}));
}

TEST_F(Control, LedsAndResetLineAreSetAsAsked) {
  EXPECT_EQ(Outcome(object_->SetLedState(name_, TzLed(3), TzLedState(300), &error_)),
            TzErrorCode::SUCCESS);
  EXPECT_EQ(Outcome(object_->VisualIdentify(name_, TzLedIdentifyState::ID_OFF, &error_)),
            TzErrorCode::SUCCESS);
  EXPECT_EQ(Outcome(object_->ToggleXres(name_, -1, &error_)), TzErrorCode::SUCCESS);
  EXPECT_EQ(Outcome(object_->ToggleXres(name_, 0, &error_)), TzErrorCode::SUCCESS);
  EXPECT_EQ(device_->TakeCalls(), (Calls{"LedState(3, 300)", "Identify(3)", "ResetTarget(drive)",
                                         "ResetTarget(release)"}));
}

TEST_F(Control, SwvRateHasALimitByCodingAndIsNeverZero) {
  const struct {
    LONG rate;
    CHAR manchester;
    const char* call;  // null: refused
  } kCases[] = {
      {12000000, 1, "SetupSWV(12000000, 1, 65535)"},
      {12000001, 1, nullptr},
      {24000000, 0, "SetupSWV(24000000, 0, 65535)"},
      {24000001, 0, nullptr},
      {12000001, 0, "SetupSWV(12000001, 0, 65535)"},
      {0, 0, nullptr},
      {0, 1, nullptr},
      {-1, 0, "SetupSWV(4294967295, 0, 65535)"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.rate);
    EXPECT_EQ(Outcome(object_->SetupSWV(name_, test.rate, test.manchester, -1, &error_)),
              test.call != nullptr ? TzErrorCode::SUCCESS : TzErrorCode::INVALID_PARAM);
    EXPECT_EQ(device_->TakeCalls(), test.call != nullptr ? Calls{test.call} : Calls{});
  }
}

TEST_F(Control, StatusReplyIsTakenApartFieldByField) {
  device_->status_reply = {0x21, 0xAB, 0x0E, 0x34, 0x12, 0x04, 0xFE,
                           0xFF, 0x78, 0x56, 0x9A, 0x01, 0xBC, 0x0A};
  device_->clock_code = 0x184;
  probe_.mode = 1;
  TzWFXStatus status = {};
  EXPECT_EQ(Outcome(object_->GetWirefoxStatus(name_, &status, &error_)), TzErrorCode::SUCCESS);
  EXPECT_EQ(device_->TakeCalls(), (Calls{"GetDeviceStatus()", "JTAG_GetClock()"}));
  EXPECT_EQ(status.RESULT, 0x21);
  EXPECT_EQ(status.VTARG_SET, 0x0E);
  EXPECT_EQ(status.VTARG_MEASURED, 0x1234);
  EXPECT_EQ(status.ACTIVE_INTERFACE, 4);
  EXPECT_EQ(status.ACTIVE_PORT, 1);
  EXPECT_EQ(status.WFX_VERSION, -2);
  EXPECT_EQ(status.VORN_VERSION, 0x5678);
  EXPECT_EQ(status.FPGA_VERSION, 0x9A);
  EXPECT_EQ(status.BOOTLOADER_VERSION, 0x0ABC);
  EXPECT_EQ(status.CLOCK_FREQUENCY, 0x84);
  // 0xAB: power state 3, not bit 2, fault, not bit 4, VCC, not bit 6, bit 7.
  EXPECT_EQ(status.WFX_FLAGS_FPGA_POWER_STATE, 3);
  EXPECT_EQ(status.WFX_FLAGS_SW_VALID, 0);
  EXPECT_EQ(status.WFX_FLAGS_VTARG_FAULT, 1);
  EXPECT_EQ(status.WFX_FLAGS_VTARG_ON, 0);
  EXPECT_EQ(status.WFX_FLAGS_VCC1_3_ON, 1);
  EXPECT_EQ(status.WFX_FLAGS_FPGA_MBX_ERR, 0);
  EXPECT_EQ(status.WFX_FLAGS_VORN_I2C_ERR, 1);
  EXPECT_EQ(probe_.mode, 4u) << "the mode that the probe reports is the one that counts from now";

  device_->status_reply[1] = 0x54;
  EXPECT_EQ(Outcome(object_->GetWirefoxStatus(name_, &status, &error_)), TzErrorCode::SUCCESS);
  EXPECT_EQ(status.WFX_FLAGS_FPGA_POWER_STATE, 0);
  EXPECT_EQ(status.WFX_FLAGS_SW_VALID, 1);
  EXPECT_EQ(status.WFX_FLAGS_VTARG_FAULT, 0);
  EXPECT_EQ(status.WFX_FLAGS_VTARG_ON, 1);
  EXPECT_EQ(status.WFX_FLAGS_VCC1_3_ON, 0);
  EXPECT_EQ(status.WFX_FLAGS_FPGA_MBX_ERR, 1);
  EXPECT_EQ(status.WFX_FLAGS_VORN_I2C_ERR, 0);
}

TEST_F(Control, ClockIsNotAskedForInVser) {
  ASSERT_EQ(SetMode(16, 0), TzErrorCode::SUCCESS);
  device_->TakeCalls();
  device_->clock_code = 99;
  device_->status_reply[5] = 16;
  TzWFXStatus status = {};
  EXPECT_EQ(Outcome(object_->GetWirefoxStatus(name_, &status, &error_)), TzErrorCode::SUCCESS);
  EXPECT_EQ(status.CLOCK_FREQUENCY, 0);
  EXPECT_EQ(device_->TakeCalls(), Calls{"GetDeviceStatus()"});
  probe_.mode = 272;
  EXPECT_EQ(Outcome(object_->GetWirefoxStatus(name_, &status, &error_)), TzErrorCode::SUCCESS);
  EXPECT_EQ(status.CLOCK_FREQUENCY, 99);
}

TEST_F(Control, UnreadableStatusGivesZerosAndKeepsTheRecordedMode) {
  probe_.mode = 12;
  device_->status_reply.fill(0x55);
  device_->failing = {{"GetDeviceStatus", 31}};
  TzWFXStatus status;
  std::memset(&status, 0xEE, sizeof(status));
  EXPECT_EQ(Outcome(object_->GetWirefoxStatus(name_, &status, &error_)), TzErrorCode::WFX_ERROR);
  EXPECT_EQ(status.ACTIVE_INTERFACE, 0);
  EXPECT_EQ(status.CLOCK_FREQUENCY, 0);
  EXPECT_EQ(status.VTARG_MEASURED, 0);
  EXPECT_EQ(probe_.mode, 12u);
}

TEST_F(Control, UnreadableClockStillGivesTheRestOfTheStatus) {
  device_->status_reply[5] = 1;
  device_->failing = {{"JTAG_GetClock", 2}};
  TzWFXStatus status = {};
  EXPECT_EQ(Outcome(object_->GetWirefoxStatus(name_, &status, &error_)), TzErrorCode::WFX_ERROR);
  EXPECT_EQ(status.ACTIVE_INTERFACE, 1);
  EXPECT_EQ(probe_.mode, 1u);
}

TEST_F(Control, HardwareRevisionIsASignedByte) {
  LONG revision = 77;
  device_->reply = {0, 0, 0, 0x80, 0x7F};
  EXPECT_EQ(Outcome(object_->GetHwRevID(name_, &revision, &error_)), TzErrorCode::SUCCESS);
  EXPECT_EQ(revision, -128);
  EXPECT_EQ(device_->TakeCalls(), Calls{"XferData(in, 5C, 6416, 0, 64)"});
}

TEST_F(Control, VendorRequestKeepsTheLengthOfItsData) {
  device_->reply = {9, 8};
  Result read;
  EXPECT_EQ(Outcome(object_->VendorRequest(name_, 0x144, 0x12345, -1, Array({1, 2, 3}), 0, &read,
                                           &error_)),
            TzErrorCode::SUCCESS);
  EXPECT_EQ(read.AsBytes(), (Bytes{9, 8, 3}));
  Result written;
  EXPECT_EQ(
      Outcome(object_->VendorRequest(name_, 0xA0, 0xE600, 0, Array({1, 2}), 1, &written, &error_)),
      TzErrorCode::SUCCESS);
  EXPECT_EQ(written.AsBytes(), (Bytes{1, 2}));
  Result empty;
  EXPECT_EQ(Outcome(object_->VendorRequest(name_, 1, 2, 3, Array({}), 0, &empty, &error_)),
            TzErrorCode::SUCCESS);
  EXPECT_EQ(empty.AsBytes(), Bytes{});
  EXPECT_EQ(device_->TakeCalls(),
            (Calls{"XferData(in, 44, 9029, 65535, 3)", "XferData(out, 01 02, A0, 58880, 0, 2)",
                   "XferData(in, 01, 2, 3, 0)"}));
}

}  // namespace
