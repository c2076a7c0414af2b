// The methods that configure and query one probe: what reaches the probe in which order, and what
// the client gets. Whom they refuse is in every_method_test.cpp.
#include <algorithm>
#include <cstring>
#include <map>

#include "tests/unit/api/api_fixture.h"

namespace {

class Control : public ApiTest {
 protected:
  using Statuses = std::map<std::string, std::uint32_t>;

  Control() : probe_(AddProbe(L"P1")) {}

  Told SetMode(std::int32_t mode, CHAR port10, const char* told) {
    return {[=, this] {
              return object_->SetMode(name_, TzTransferMode(mode), port10, OwnPid(), &error_);
            },
            told};
  }
  Told SetupSwv(LONG rate, CHAR manchester, const char* told) {
    return {[=, this] { return object_->SetupSWV(name_, rate, manchester, -1, &error_); }, told};
  }
  // A change of the clock, with an interface that the probe reports and these operations failing.
  Told SetClock(std::uint8_t active, const Statuses& failing, const char* told) {
    return {[=, this] {
              device_->status_reply[5] = active;
              device_->failing = failing;
              return object_->SetJtagClock(name_, TzJtagClock(2), OwnPid(), &error_);
            },
            told};
  }

  ProbeEntry& probe_;
  Text name_{L"P1"};
};

TEST_F(Control, ModeReachesTheProbeByItsLowByteAndBitEightAsInternal) {
  ExpectTold({
      SetMode(4, 0, "SetMode(4, external); SetActiveIOConnector(0); SUCCESS, mode 4"),
      SetMode(1, 1, "SetMode(1, external); SUCCESS, mode 1"),
      SetMode(4, 2, "SetMode(4, external); SetActiveIOConnector(1); SUCCESS, mode 4"),
      SetMode(8, 1, "SetMode(8, external); SUCCESS, mode 8"),
      SetMode(12, -1, "SetMode(12, external); SetActiveIOConnector(1); SUCCESS, mode 12"),
      SetMode(0, 1, "SetMode(0, external); SUCCESS, mode 0"),
      SetMode(12, 0, "SetMode(12, external); SetActiveIOConnector(0); SUCCESS, mode 12"),
      SetMode(16, 1, "SetMode(16, external); SUCCESS, mode 16"),
      SetMode(272, 1, "SetMode(16, internal); SUCCESS, mode 272"),
      // Not checked: the probe decides. Only exactly 4 and 12 select a connector.
      SetMode(0x204, 1, "SetMode(4, external); SUCCESS, mode 516"),
      SetMode(0x10C, 1, "SetMode(12, internal); SUCCESS, mode 268"),
      SetMode(-1, 0, "SetMode(255, internal); SUCCESS, mode 4294967295"),
  });
  // What is recorded follows the probe and not the connector.
  device_->failing = {{"SetMode", 3}};
  ExpectTold({SetMode(4, 0, "SetMode(4, external); WFX_ERROR")});
  device_->failing = {{"SetActiveIOConnector", 5}};
  ExpectTold({SetMode(4, 0, "SetMode(4, external); SetActiveIOConnector(0); WFX_ERROR, mode 4")});
}

// What reaches the probe of the methods that pass on what they get is in method_table.cpp.
TEST_F(Control, ZeroSwitchesOffAndNumbersOfDataAreCutToTheirWidth) {
  const auto vendor = [&](LONG code, LONG value, LONG index, const char* data, CHAR write) {
    return object_->VendorRequest(name_, code, value, index, Array(HexBytes(data)), write, &result_,
                                  &error_);
  };
  device_->reply = {9, 8};
  ExpectTold({
      {[&] { return object_->SetVTarg(name_, TzVTargVoltage::VTARG_5_0, 0, OwnPid(), &error_); },
       "SetVTargVal(7); TargetPowerOn(off); SUCCESS"},
      {[&] { return object_->ToggleXres(name_, 0, &error_); }, "ResetTarget(release); SUCCESS"},
      {[&] { return vendor(0x144, 0x12345, -1, "01 02 03", 0); },
       "XferData(in, 44, 9029, 65535, 01 02 03); SUCCESS: 09 08 03"},
      {[&] { return vendor(0xA0, 0xE600, 0, "01 02", 2); },
       "XferData(out, A0, 58880, 0, 01 02); SUCCESS: 01 02"},
      {[&] { return vendor(1, 2, 3, "", 0); }, "XferData(in, 01, 2, 3, ); SUCCESS: "},
  });
}

TEST_F(Control, ClockChangePutsTheActiveInterfaceAndConnectorBack) {
  device_->status_reply[11] = 1;
  ExpectTold({
      SetClock(12, {},
               "GetDeviceStatus(); JTAG_SetClock(2); SetMode(12, external); "
               "SetActiveIOConnector(1); SUCCESS"),
      SetClock(1, {}, "GetDeviceStatus(); JTAG_SetClock(2); SetMode(1, external); SUCCESS"),
      SetClock(5, {}, "GetDeviceStatus(); JTAG_SetClock(2); SetMode(5, external); SUCCESS"),
  });
  // VSER towards the internal controller is no VSER here: failures count, and nothing is put back.
  probe_.mode = 272;
  ExpectTold({
      SetClock(4, {{"SetActiveIOConnector", 997}},
               "GetDeviceStatus(); JTAG_SetClock(2); SetMode(4, external); "
               "SetActiveIOConnector(1); WFX_ERROR"),
  });
  // In VSER it goes through idle and always comes back. Neither an unreadable status nor a refused
  // clock shows: the last switch is what counts.
  probe_.mode = 16;
  ExpectTold({
      SetClock(16, {},
               "GetDeviceStatus(); SetMode(0, external); JTAG_SetClock(2); SetMode(16, external); "
               "SetMode(16, external); SUCCESS"),
      SetClock(16, {{"GetDeviceStatus", 31}, {"JTAG_SetClock", 2}},
               "GetDeviceStatus(); SetMode(0, external); JTAG_SetClock(2); SetMode(16, external); "
               "SUCCESS"),
      SetClock(4, {{"SetActiveIOConnector", 2}},
               "GetDeviceStatus(); SetMode(0, external); JTAG_SetClock(2); SetMode(4, external); "
               "SetActiveIOConnector(1); SetMode(16, external); SUCCESS"),
      SetClock(16, {{"SetMode", 2}},
               "GetDeviceStatus(); SetMode(0, external); SetMode(16, external); WFX_ERROR"),
  });
}

TEST_F(Control, SwvRateHasALimitByCodingAndIsNeverZero) {
  ExpectTold({
      SetupSwv(12000000, 2, "SetupSWV(12000000, 1, 65535); SUCCESS"),
      SetupSwv(12000001, 1, "INVALID_PARAM"),
      SetupSwv(24000000, 0, "SetupSWV(24000000, 0, 65535); SUCCESS"),
      SetupSwv(24000001, 0, "INVALID_PARAM"),
      SetupSwv(12000001, 0, "SetupSWV(12000001, 0, 65535); SUCCESS"),
      SetupSwv(0, 0, "INVALID_PARAM"),
      SetupSwv(0, 1, "INVALID_PARAM"),
      SetupSwv(-1, 0, "SetupSWV(4294967295, 0, 65535); SUCCESS"),
  });
}

// In the order of their declaration.
std::vector<int> Fields(const TzWFXStatus& status) {
  const auto& [result, voltage_set, voltage_measured, interface_, port, version, vorn, fpga,
               bootloader, power_state, sw_valid, fault, on, vcc, mailbox, i2c, clock] = status;
  return {result, voltage_set, voltage_measured, interface_,  port,     version,
          vorn,   fpga,        bootloader,       power_state, sw_valid, fault,
          on,     vcc,         mailbox,          i2c,         clock};
}

TEST_F(Control, StatusReplyIsTakenApartFieldByFieldAndItsModeIsTheOneThatCountsFromNow) {
  const char* const kBoth = "GetDeviceStatus(); JTAG_GetClock(); ";
  const struct {
    std::uint32_t mode;  // recorded so far
    const char* reply;
    Statuses failing;
    std::string told;
    std::vector<int> fields;
  } kCases[] = {
      // Flags 0xAB: power state 3, not bit 2, fault, not bit 4, VCC, not bit 6, bit 7; then the
      // rest.
      {1,
       "21 AB 0E 34 12 04 FE FF 78 56 9A 01 BC 0A",
       {},
       std::string(kBoth) + "SUCCESS, mode 4",
       {0x21, 0x0E, 0x1234, 4, 1, -2, 0x5678, 0x9A, 0x0ABC, 3, 0, 1, 0, 1, 0, 1, 0x84}},
      {4,
       "21 54 0E 34 12 04 FE FF 78 56 9A 01 BC 0A",
       {},
       std::string(kBoth) + "SUCCESS",
       {0x21, 0x0E, 0x1234, 4, 1, -2, 0x5678, 0x9A, 0x0ABC, 0, 1, 0, 1, 0, 1, 0, 0x84}},
      // The clock is not asked for in VSER, unless that is towards the internal controller.
      {16,
       "00 00 00 00 00 10 00*8",
       {},
       "GetDeviceStatus(); SUCCESS",
       {0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {272,
       "00 00 00 00 00 10 00*8",
       {},
       std::string(kBoth) + "SUCCESS, mode 16",
       {0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x84}},
      // One that cannot be read is zeros, and one without its clock is the rest.
      {12,
       "01*14",
       {{"GetDeviceStatus", 31}},
       "GetDeviceStatus(); WFX_ERROR",
       std::vector<int>(17)},
      {12,
       "00 00 00 00 00 01 00*8",
       {{"JTAG_GetClock", 2}},
       std::string(kBoth) + "WFX_ERROR, mode 1",
       {0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x84}},
  };
  device_->clock_code = 0x184;
  for (const auto& [mode, reply, failing, told, fields] : kCases) {
    TzWFXStatus status;
    std::memset(&status, 0xEE, sizeof(status));
    probe_.mode = mode;
    std::ranges::copy(HexBytes(reply), device_->status_reply.begin());
    device_->failing = failing;
    ExpectTold({{[&] { return object_->GetWirefoxStatus(name_, &status, &error_); }, told}});
    EXPECT_EQ(Fields(status), fields) << reply;
  }
}

TEST_F(Control, HardwareRevisionIsASignedByte) {
  LONG revision = 77;
  device_->reply = {0, 0, 0, 0x80, 0x7F};
  EXPECT_EQ(Outcome(object_->GetHwRevID(name_, &revision, &error_)), TzErrorCode::SUCCESS);
  EXPECT_EQ(revision, -128);
}

}  // namespace
