#include "api/interface_types.h"

#include "api/identifiers.h"
#include "api/tz_wirefox.h"

// The spelling of the help strings is part of the contract: clients may show or compare them.

namespace api {
namespace {

using interface_schema::Constant;
using interface_schema::Enumeration;
using interface_schema::Field;
using interface_schema::FieldType;
using interface_schema::Record;
using interface_schema::UserType;

template <typename Enum>
constexpr Constant Named(const wchar_t* name, Enum value, const wchar_t* help) {
  return {name, static_cast<std::int32_t>(value), help};
}

constexpr Constant kErrorCodeConstants[] = {
    Named(L"SUCCESS", TzErrorCode::SUCCESS, L"Used to report a successful operation"),
    Named(L"IN_USE", TzErrorCode::IN_USE,
          L"Used to report that the device is inuse by another client"),
    Named(L"NOT_ACQUIRED", TzErrorCode::NOT_ACQUIRED,
          L"Used to report that the device has not yet been acquired for use"),
    Named(L"INVALID_DEVICE", TzErrorCode::INVALID_DEVICE,
          L"Used to report that there is no such device available"),
    Named(L"INVALID_MODE", TzErrorCode::INVALID_MODE,
          L"Used to report that the device can not be placed in the selected mode"),
    Named(L"INVALID_PARAM", TzErrorCode::INVALID_PARAM,
          L"Used to report that at least one of the parameters is invalid"),
    Named(L"WFX_ERROR", TzErrorCode::WFX_ERROR,
          L"Used to report that there was an unkown error within the Wirefox"),
    Named(L"UNKNOWN", TzErrorCode::UNKNOWN, L"Used to report that some unkown error occurred"),
};
constexpr Enumeration kErrorCode = {
    L"TzErrorCode", &kErrorCodeId,
    L"Specifies different error codes that can be generated as a result of a call",
    kErrorCodeConstants};

constexpr Constant kLedConstants[] = {
    Named(L"LED_1_RED", TzLed::LED_1_RED, L"This is the first LED on the Wirefox board, it is red"),
    Named(L"LED_2_RED", TzLed::LED_2_RED,
          L"This is the second LED on the Wirefox board, it is red"),
    Named(L"LED_3_GREEN", TzLed::LED_3_GREEN,
          L"This is the third LED on the Wirefox board, it is green"),
    Named(L"LED_4_YELLOW", TzLed::LED_4_YELLOW,
          L"This is the fourth LED on the Wirefox board, it is yellow"),
};
constexpr Enumeration kLed = {L"TzLed", &kLedId, L"The differnet LEDs on the Wirefox board",
                              kLedConstants};

constexpr Constant kLedStateConstants[] = {
    Named(L"OFF", TzLedState::OFF, L"Mode used to turn the Wirefox\u2019s LED off"),
    Named(L"FLASH1", TzLedState::FLASH1, L"Mode used to blink the Wirefox\u2019s LED"),
    Named(L"FLASH2", TzLedState::FLASH2,
          L"Mode used to blink the Wirefox\u2019s LED slightly differently then FLASH1"),
    Named(L"ON", TzLedState::ON, L"Mode used to turn the Wirefox\u2019s LED on solid"),
};
constexpr Enumeration kLedState = {L"TzLedState", &kLedStateId,
                                   L"Differnet LED states the Wirefox can display",
                                   kLedStateConstants};

constexpr Constant kLedIdentifyStateConstants[] = {
    Named(L"ID_NORMAL", TzLedIdentifyState::ID_NORMAL, L"Mode used to blink all of the LED"),
    Named(L"ID_CHASER", TzLedIdentifyState::ID_CHASER,
          L"Mode used to blink all of the LEDs one at a time"),
    Named(L"ID_ON", TzLedIdentifyState::ID_ON, L"Mode used to turn all the LEDs on"),
    Named(L"ID_OFF", TzLedIdentifyState::ID_OFF, L"Mode used to turn all the LEDs off"),
};
constexpr Enumeration kLedIdentifyState = {
    L"TzLedIdentifyState", &kLedIdentifyStateId,
    L"Differnet identification states the Wirefox can display", kLedIdentifyStateConstants};

constexpr Field kStatusFields[] = {
    {L"RESULT", FieldType::kUnsigned8, offsetof(TzWFXStatus, RESULT)},
    {L"VTARG_SET", FieldType::kUnsigned8, offsetof(TzWFXStatus, VTARG_SET)},
    {L"VTARG_MEASURED", FieldType::kSigned16, offsetof(TzWFXStatus, VTARG_MEASURED)},
    {L"ACTIVE_INTERFACE", FieldType::kUnsigned8, offsetof(TzWFXStatus, ACTIVE_INTERFACE)},
    {L"ACTIVE_PORT", FieldType::kUnsigned8, offsetof(TzWFXStatus, ACTIVE_PORT)},
    {L"WFX_VERSION", FieldType::kSigned16, offsetof(TzWFXStatus, WFX_VERSION)},
    {L"VORN_VERSION", FieldType::kSigned16, offsetof(TzWFXStatus, VORN_VERSION)},
    {L"FPGA_VERSION", FieldType::kUnsigned8, offsetof(TzWFXStatus, FPGA_VERSION)},
    {L"BOOTLOADER_VERSION", FieldType::kSigned16, offsetof(TzWFXStatus, BOOTLOADER_VERSION)},
    {L"WFX_FLAGS_FPGA_POWER_STATE", FieldType::kUnsigned8,
     offsetof(TzWFXStatus, WFX_FLAGS_FPGA_POWER_STATE)},
    {L"WFX_FLAGS_SW_VALID", FieldType::kUnsigned8, offsetof(TzWFXStatus, WFX_FLAGS_SW_VALID)},
    {L"WFX_FLAGS_VTARG_FAULT", FieldType::kUnsigned8, offsetof(TzWFXStatus, WFX_FLAGS_VTARG_FAULT)},
    {L"WFX_FLAGS_VTARG_ON", FieldType::kUnsigned8, offsetof(TzWFXStatus, WFX_FLAGS_VTARG_ON)},
    {L"WFX_FLAGS_VCC1_3_ON", FieldType::kUnsigned8, offsetof(TzWFXStatus, WFX_FLAGS_VCC1_3_ON)},
    {L"WFX_FLAGS_FPGA_MBX_ERR", FieldType::kUnsigned8,
     offsetof(TzWFXStatus, WFX_FLAGS_FPGA_MBX_ERR)},
    {L"WFX_FLAGS_VORN_I2C_ERR", FieldType::kUnsigned8,
     offsetof(TzWFXStatus, WFX_FLAGS_VORN_I2C_ERR)},
    {L"CLOCK_FREQUENCY", FieldType::kUnsigned8, offsetof(TzWFXStatus, CLOCK_FREQUENCY)},
};
constexpr Record kStatusRecord = {L"TzWFXStatus", &kStatusRecordId,
                                  L"Used to store status data from the Wirefox",
                                  sizeof(TzWFXStatus), kStatusFields};

constexpr Constant kEndPointConstants[] = {
    Named(L"EP0", TzWirefoxEndPoint::EP0, L"This endpoint is for vendor requests"),
    Named(L"EP1", TzWirefoxEndPoint::EP1,
          L"This endpoint is for inbound and outbound VSER & I2C data"),
    Named(L"EP2", TzWirefoxEndPoint::EP2, L"This endpoint is for outbound JTAG & SWD data"),
    Named(L"EP4", TzWirefoxEndPoint::EP4, L"This endpoint is for inbound JTAG & SWD data"),
    Named(L"EP6", TzWirefoxEndPoint::EP6, L"This endpoint is for inbound SWV data"),
};
constexpr Enumeration kEndPoint = {L"TzWirefoxEndPoint", &kEndPointId,
                                   L"Different endpoints for the Wirefox", kEndPointConstants};

constexpr Constant kJtagClockConstants[] = {
    Named(L"FREQ_A_48_0", TzJtagClock::FREQ_A_48_0, L"Represents a clock frequeancy of 48.0MHz"),
    Named(L"FREQ_A_24_0", TzJtagClock::FREQ_A_24_0, L"Represents a clock frequeancy of 24.0MHz"),
    Named(L"FREQ_A_16_0", TzJtagClock::FREQ_A_16_0, L"Represents a clock frequeancy of 16.0MHz"),
    Named(L"FREQ_A_12_0", TzJtagClock::FREQ_A_12_0, L"Represents a clock frequeancy of 12.0MHz"),
    Named(L"FREQ_A_08_0", TzJtagClock::FREQ_A_08_0, L"Represents a clock frequeancy of 08.0MHz"),
    Named(L"FREQ_A_06_0", TzJtagClock::FREQ_A_06_0, L"Represents a clock frequeancy of 06.0MHz"),
    Named(L"FREQ_A_03_2", TzJtagClock::FREQ_A_03_2, L"Represents a clock frequeancy of 03.2MHz"),
    Named(L"FREQ_A_03_0", TzJtagClock::FREQ_A_03_0, L"Represents a clock frequeancy of 03.0MHz"),
    Named(L"FREQ_A_01_6", TzJtagClock::FREQ_A_01_6, L"Represents a clock frequeancy of 01.6MHz"),
    Named(L"FREQ_A_01_5", TzJtagClock::FREQ_A_01_5, L"Represents a clock frequeancy of 01.5MHz"),
    Named(L"FREQ_B_24_0", TzJtagClock::FREQ_B_24_0, L"Represents a clock frequeancy of 24.0MHz"),
    Named(L"FREQ_B_12_0", TzJtagClock::FREQ_B_12_0, L"Represents a clock frequeancy of 12.0MHz"),
    Named(L"FREQ_B_08_0", TzJtagClock::FREQ_B_08_0, L"Represents a clock frequeancy of 08.0MHz"),
    Named(L"FREQ_B_06_0", TzJtagClock::FREQ_B_06_0, L"Represents a clock frequeancy of 06.0MHz"),
    Named(L"FREQ_B_04_0", TzJtagClock::FREQ_B_04_0, L"Represents a clock frequeancy of 04.0MHz"),
    Named(L"FREQ_B_03_0", TzJtagClock::FREQ_B_03_0, L"Represents a clock frequeancy of 03.0MHz"),
    Named(L"FREQ_B_01_6", TzJtagClock::FREQ_B_01_6, L"Represents a clock frequeancy of 01.6MHz"),
    Named(L"FREQ_B_01_5", TzJtagClock::FREQ_B_01_5, L"Represents a clock frequeancy of 01.5MHz"),
    Named(L"FREQ_B_00_8", TzJtagClock::FREQ_B_00_8, L"Represents a clock frequeancy of 00.8MHz"),
    Named(L"FREQ_C_06_0", TzJtagClock::FREQ_C_06_0, L"Represents a clock frequeancy of 06.0MHz"),
    Named(L"FREQ_C_03_0", TzJtagClock::FREQ_C_03_0, L"Represents a clock frequeancy of 03.0MHz"),
    Named(L"FREQ_C_01_5", TzJtagClock::FREQ_C_01_5, L"Represents a clock frequeancy of 01.5MHz"),
    Named(L"FREQ_C_00_4", TzJtagClock::FREQ_C_00_4, L"Represents a clock frequeancy of 00.4MHz"),
    Named(L"FREQ_C_00_2", TzJtagClock::FREQ_C_00_2, L"Represents a clock frequeancy of 00.2MHz"),
};
constexpr Enumeration kJtagClock = {L"TzJtagClock", &kJtagClockId,
                                    L"Differnet clock frequencies avalable for JTAG",
                                    kJtagClockConstants};

constexpr Constant kTransferModeConstants[] = {
    Named(L"IDLE", TzTransferMode::IDLE,
          L"Specifies that the Wirefox is not in use by anyone, and can be used by client"),
    Named(L"JTAG", TzTransferMode::JTAG,
          L"Mode that allows clients to send JTAG data to the attached devices"),
    Named(L"I2C", TzTransferMode::I2C, L"Mode that allows clients to send I2C data"),
    Named(L"SWD", TzTransferMode::SWD, L"Mode that allows clients to send SWD data"),
    Named(L"SWV", TzTransferMode::SWV, L"Mode that allows clients to receive SWV data"),
    Named(L"SWD_SWV", TzTransferMode::SWD_SWV,
          L"Mode that allows clients to send SWD data, and ask if SWV data is available"),
    Named(L"VSER", TzTransferMode::VSER, L"Mode that allows clients to send VSER data"),
    Named(L"ETM", TzTransferMode::ETM, L"Mode that allows clients to receive ETM data"),
    Named(L"VSER_INT", TzTransferMode::VSER_INT,
          L"Mode that allows clients to send VSER data to the internal Vorn"),
};
constexpr Enumeration kTransferMode = {L"TzTransferMode", &kTransferModeId,
                                       L"Different modes that the Wirefox supports",
                                       kTransferModeConstants};

constexpr Constant kVTargVoltageConstants[] = {
    Named(L"VTARG_1_8", TzVTargVoltage::VTARG_1_8, L"Represents the VTarg value of 1.8"),
    Named(L"VTARG_2_5", TzVTargVoltage::VTARG_2_5, L"Represents the VTarg value of 2.5"),
    Named(L"VTARG_3_3", TzVTargVoltage::VTARG_3_3, L"Represents the VTarg value of 3.3"),
    Named(L"VTARG_5_0", TzVTargVoltage::VTARG_5_0, L"Represents the VTarg value of 5.0"),
};
constexpr Enumeration kVTargVoltage = {L"TzVTargVoltage", &kVTargVoltageId,
                                       L"Differnet VTarg voltages avaliable for the device",
                                       kVTargVoltageConstants};

constexpr Constant kProgrammingModeConstants[] = {
    Named(L"RESET", TzProgrammingMode::RESET, L"This mode uses the XRES pin to reset the part"),
    Named(L"POWER_CYCLE", TzProgrammingMode::POWER_CYCLE,
          L"This mode performs a complete power cycle of the part"),
    Named(L"VOLTAGE_SENSE", TzProgrammingMode::VOLTAGE_SENSE,
          L"This mode requires the user to manually reset power"),
};
constexpr Enumeration kProgrammingMode = {L"TzProgrammingMode", &kProgrammingModeId,
                                          L"Different programming modes",
                                          kProgrammingModeConstants};

}  // namespace

constinit const std::array<UserType, 10> kUserTypes = {{
    {&kErrorCode, nullptr},
    {&kLed, nullptr},
    {&kLedState, nullptr},
    {&kLedIdentifyState, nullptr},
    {nullptr, &kStatusRecord},
    {&kEndPoint, nullptr},
    {&kJtagClock, nullptr},
    {&kTransferMode, nullptr},
    {&kVTargVoltage, nullptr},
    {&kProgrammingMode, nullptr},
}};

}  // namespace api
