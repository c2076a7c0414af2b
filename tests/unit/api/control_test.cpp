// The methods that configure and query one probe: what reaches the probe in which order, and what
// the client gets. Whom they refuse is in every_method_test.cpp.
#include <cstring>
#include <functional>

#include "tests/unit/api/api_fixture.h"

namespace {

class Control : public ApiTest {
 protected:
  Control() : probe_(AddProbe(L"P1")) {}

  TzErrorCode SetMode(std::int32_t mode, CHAR port10) {
    return Outcome(object_->SetMode(name_, TzTransferMode(mode), port10, OwnPid(), &error_));
  }

  // What a change of the clock calls behind its look at the status, in a recorded mode and with an
  // interface that the probe reports. The clock's code is not checked.
  Calls ChangeClock(std::uint32_t mode, std::uint8_t active) {
    probe_.mode = mode;
    device_->status_reply[5] = active;
    EXPECT_EQ(object_->SetJtagClock(name_, TzJtagClock(0x12345), OwnPid(), &error_), S_OK);
    EXPECT_EQ(probe_.mode, mode);
    Calls calls = device_->TakeCalls();
    EXPECT_EQ(calls.at(0), "GetDeviceStatus()");
    calls.erase(calls.begin());
    return calls;
  }

  TzErrorCode GetStatus() { return Outcome(object_->GetWirefoxStatus(name_, &status_, &error_)); }

  ProbeEntry& probe_;
  Text name_{L"P1"};
  TzWFXStatus status_ = {};
};

TEST_F(Control, ModeReachesTheProbeByItsLowByteAndBitEightAsInternal) {
  const struct {
    std::int32_t mode;
    CHAR port10;
    Calls calls;
  } kCases[] = {
      {0, 1, {"SetMode(0, external)"}},
      {1, 1, {"SetMode(1, external)"}},
      {4, 0, {"SetMode(4, external)", "SetActiveIOConnector(0)"}},
      {4, 2, {"SetMode(4, external)", "SetActiveIOConnector(1)"}},
      {8, 1, {"SetMode(8, external)"}},
      {12, -1, {"SetMode(12, external)", "SetActiveIOConnector(1)"}},
      {12, 0, {"SetMode(12, external)", "SetActiveIOConnector(0)"}},
      {16, 1, {"SetMode(16, external)"}},
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

TEST_F(Control, ArgumentsReachTheProbeAsGiven) {
  const auto set_voltage = [&](std::int32_t voltage, CHAR supply) {
    return object_->SetVTarg(name_, TzVTargVoltage(voltage), supply, OwnPid(), &error_);
  };
  const auto set_timeout = [&](std::int32_t address) {
    return object_->SetTimeOut(name_, TzWirefoxEndPoint(address), 1234, OwnPid(), &error_);
  };
  const struct {
    std::function<HRESULT()> call;
    Calls calls;
  } kCases[] = {
      // The supply is switched only after the voltage is set.
      {[&] { return set_voltage(7, 1); }, {"SetVTargVal(7)", "TargetPowerOn(on)"}},
      {[&] { return set_voltage(99, 0); }, {"SetVTargVal(99)", "TargetPowerOn(off)"}},
      // An endpoint's address gets no direction bit.
      {[&] { return set_timeout(0); }, {"SetTimeout(00, 1234)"}},
      {[&] { return set_timeout(4); }, {"SetTimeout(04, 1234)"}},
      {[&] { return set_timeout(0x86); }, {"SetTimeout(86, 1234)"}},
      {[&] { return object_->SetLedState(name_, TzLed(3), TzLedState(300), &error_); },
       {"LedState(3, 300)"}},
      {[&] { return object_->VisualIdentify(name_, TzLedIdentifyState(3), &error_); },
       {"Identify(3)"}},
      {[&] { return object_->ToggleXres(name_, -1, &error_); }, {"ResetTarget(drive)"}},
      {[&] { return object_->ToggleXres(name_, 0, &error_); }, {"ResetTarget(release)"}},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.calls[0]);
    EXPECT_EQ(Outcome(test.call()), TzErrorCode::SUCCESS);
    EXPECT_EQ(device_->TakeCalls(), test.calls);
  }
}

TEST_F(Control, ClockChangePutsTheActiveInterfaceAndConnectorBack) {
  device_->status_reply[11] = 1;
  EXPECT_EQ(ChangeClock(0, 12),
            (Calls{"JTAG_SetClock(74565)", "SetMode(12, external)", "SetActiveIOConnector(1)"}));
  EXPECT_EQ(ChangeClock(0, 1), (Calls{"JTAG_SetClock(74565)", "SetMode(1, external)"}));
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  // VSER towards the internal controller is no VSER here: failures count, and nothing is put back.
  device_->failing = {{"SetActiveIOConnector", 997}};
  EXPECT_EQ(ChangeClock(272, 4),
            (Calls{"JTAG_SetClock(74565)", "SetMode(4, external)", "SetActiveIOConnector(1)"}));
  EXPECT_EQ(error_, TzErrorCode::WFX_ERROR);
}

TEST_F(Control, ClockChangeInVserGoesThroughIdleAndAlwaysComesBack) {
  EXPECT_EQ(ChangeClock(16, 16), (Calls{"SetMode(0, external)", "JTAG_SetClock(74565)",
                                        "SetMode(16, external)", "SetMode(16, external)"}));
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  // Neither an unreadable status nor a refused clock shows: the last switch is what counts.
  device_->failing = {{"GetDeviceStatus", 31}, {"JTAG_SetClock", 2}};
  EXPECT_EQ(ChangeClock(16, 16),
            (Calls{"SetMode(0, external)", "JTAG_SetClock(74565)", "SetMode(16, external)"}));
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  device_->failing = {{"SetMode", 2}};
  EXPECT_EQ(ChangeClock(16, 16), (Calls{"SetMode(0, external)", "SetMode(16, external)"}));
  EXPECT_EQ(error_, TzErrorCode::WFX_ERROR);
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

// In the order of their declaration.
std::vector<int> Fields(const TzWFXStatus& status) {
  const auto& [result, voltage_set, voltage_measured, interface_, port, version, vorn, fpga,
               bootloader, power_state, sw_valid, fault, on, vcc, mailbox, i2c, clock] = status;
  return {result, voltage_set, voltage_measured, interface_,  port,     version,
          vorn,   fpga,        bootloader,       power_state, sw_valid, fault,
          on,     vcc,         mailbox,          i2c,         clock};
}

TEST_F(Control, StatusReplyIsTakenApartFieldByField) {
  device_->status_reply = {0x21, 0xAB, 0x0E, 0x34, 0x12, 0x04, 0xFE,
                           0xFF, 0x78, 0x56, 0x9A, 0x01, 0xBC, 0x0A};
  device_->clock_code = 0x184;
  probe_.mode = 1;
  EXPECT_EQ(GetStatus(), TzErrorCode::SUCCESS);
  EXPECT_EQ(device_->TakeCalls(), (Calls{"GetDeviceStatus()", "JTAG_GetClock()"}));
  // Flags 0xAB: power state 3, not bit 2, fault, not bit 4, VCC, not bit 6, bit 7.
  EXPECT_EQ(Fields(status_), (std::vector<int>{0x21, 0x0E, 0x1234, 4, 1, -2, 0x5678, 0x9A, 0x0ABC,
                                               3, 0, 1, 0, 1, 0, 1, 0x84}));
  EXPECT_EQ(probe_.mode, 4u) << "the mode that the probe reports is the one that counts from now";

  device_->status_reply[1] = 0x54;
  EXPECT_EQ(GetStatus(), TzErrorCode::SUCCESS);
  EXPECT_EQ(Fields(status_), (std::vector<int>{0x21, 0x0E, 0x1234, 4, 1, -2, 0x5678, 0x9A, 0x0ABC,
                                               0, 1, 0, 1, 0, 1, 0, 0x84}));
}

TEST_F(Control, ClockIsNotAskedForInVser) {
  device_->clock_code = 99;
  device_->status_reply[5] = 16;
  probe_.mode = 16;
  EXPECT_EQ(GetStatus(), TzErrorCode::SUCCESS);
  EXPECT_EQ(status_.CLOCK_FREQUENCY, 0);
  EXPECT_EQ(device_->TakeCalls(), Calls{"GetDeviceStatus()"});
  probe_.mode = 272;
  EXPECT_EQ(GetStatus(), TzErrorCode::SUCCESS);
  EXPECT_EQ(status_.CLOCK_FREQUENCY, 99);
}

TEST_F(Control, StatusThatCannotBeReadIsZerosAndOneWithoutItsClockIsTheRest) {
  probe_.mode = 12;
  device_->status_reply.fill(1);
  device_->failing = {{"GetDeviceStatus", 31}};
  std::memset(&status_, 0xEE, sizeof(status_));
  EXPECT_EQ(GetStatus(), TzErrorCode::WFX_ERROR);
  EXPECT_EQ(Fields(status_), std::vector<int>(17));
  EXPECT_EQ(probe_.mode, 12u);
  device_->failing = {{"JTAG_GetClock", 2}};
  EXPECT_EQ(GetStatus(), TzErrorCode::WFX_ERROR);
  EXPECT_EQ(status_.ACTIVE_INTERFACE, 1);
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
  const auto request = [&](LONG code, LONG value, LONG index, const Bytes& data, CHAR write) {
    Result result;
    EXPECT_EQ(Outcome(object_->VendorRequest(name_, code, value, index, Array(data), write, &result,
                                             &error_)),
              TzErrorCode::SUCCESS);
    return result.AsBytes();
  };
  device_->reply = {9, 8};
  EXPECT_EQ(request(0x144, 0x12345, -1, {1, 2, 3}, 0), (Bytes{9, 8, 3}));
  EXPECT_EQ(request(0xA0, 0xE600, 0, {1, 2}, 1), (Bytes{1, 2}));
  EXPECT_EQ(request(1, 2, 3, {}, 0), Bytes{});
  EXPECT_EQ(device_->TakeCalls(),
            (Calls{"XferData(in, 44, 9029, 65535, 3)", "XferData(out 01 02, A0, 58880, 0, 2)",
                   "XferData(in, 01, 2, 3, 0)"}));
}

}  // namespace
