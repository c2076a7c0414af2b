// The enumerations and the status record of the interface, the one place where their numbers are.
// Self-contained and C++17, since C++ clients get it as <wirefox/types.h>. It says what a number
// stands for only where its name does not.
#pragma once

#include <cstddef>
#include <cstdint>

namespace wirefox {

enum class TzErrorCode : std::int32_t {
  SUCCESS = 0,
  IN_USE = 1,
  NOT_ACQUIRED = 2,
  INVALID_DEVICE = 3,
  INVALID_MODE = 4,
  INVALID_PARAM = 5,
  WFX_ERROR = 6,
  UNKNOWN = 7,
};

enum class TzLed : std::int32_t { LED_1_RED = 0, LED_2_RED = 1, LED_3_GREEN = 2, LED_4_YELLOW = 3 };

enum class TzLedState : std::int32_t { OFF = 0, FLASH1 = 1, FLASH2 = 2, ON = 3 };

enum class TzLedIdentifyState : std::int32_t {
  ID_NORMAL = 0,
  ID_CHASER = 1,
  ID_ON = 2,
  ID_OFF = 3
};

enum class TzWirefoxEndPoint : std::int32_t { EP0 = 0, EP1 = 1, EP2 = 2, EP4 = 4, EP6 = 6 };

// The two low bits name the group: 0 for A, 1 for B, 2 for C.
enum class TzJtagClock : std::int32_t {
  FREQ_A_48_0 = 0,
  FREQ_A_24_0 = 4,
  FREQ_A_16_0 = 16,
  FREQ_A_12_0 = 132,
  FREQ_A_08_0 = 144,
  FREQ_A_06_0 = 96,
  FREQ_A_03_2 = 24,
  FREQ_A_03_0 = 224,
  FREQ_A_01_6 = 152,
  FREQ_A_01_5 = 192,
  FREQ_B_24_0 = 1,
  FREQ_B_12_0 = 5,
  FREQ_B_08_0 = 17,
  FREQ_B_06_0 = 97,
  FREQ_B_04_0 = 145,
  FREQ_B_03_0 = 65,
  FREQ_B_01_6 = 25,
  FREQ_B_01_5 = 193,
  FREQ_B_00_8 = 153,
  FREQ_C_06_0 = 98,
  FREQ_C_03_0 = 66,
  FREQ_C_01_5 = 194,
  FREQ_C_00_4 = 26,
  FREQ_C_00_2 = 154,
};

enum class TzTransferMode : std::int32_t {
  IDLE = 0,
  JTAG = 1,
  I2C = 2,
  SWD = 4,
  SWV = 8,
  SWD_SWV = 12,
  VSER = 16,
  ETM = 32,
  VSER_INT = 272,
};

enum class TzVTargVoltage : std::int32_t {
  VTARG_1_8 = 14,
  VTARG_2_5 = 13,
  VTARG_3_3 = 11,
  VTARG_5_0 = 7,
};

enum class TzProgrammingMode : std::int32_t { RESET = 0, POWER_CYCLE = 1, VOLTAGE_SENSE = 2 };

// Travels by value, 22 bytes with natural alignment; a pad byte lies at offset 11.
struct TzWFXStatus {
  std::uint8_t RESULT;
  std::uint8_t VTARG_SET;
  std::int16_t VTARG_MEASURED;
  std::uint8_t ACTIVE_INTERFACE;
  std::uint8_t ACTIVE_PORT;
  std::int16_t WFX_VERSION;
  std::int16_t VORN_VERSION;
  std::uint8_t FPGA_VERSION;
  std::int16_t BOOTLOADER_VERSION;
  std::uint8_t WFX_FLAGS_FPGA_POWER_STATE;
  std::uint8_t WFX_FLAGS_SW_VALID;
  std::uint8_t WFX_FLAGS_VTARG_FAULT;
  std::uint8_t WFX_FLAGS_VTARG_ON;
  std::uint8_t WFX_FLAGS_VCC1_3_ON;
  std::uint8_t WFX_FLAGS_FPGA_MBX_ERR;
  std::uint8_t WFX_FLAGS_VORN_I2C_ERR;
  std::uint8_t CLOCK_FREQUENCY;
};
static_assert(sizeof(TzWFXStatus) == 22 && alignof(TzWFXStatus) == 2);
static_assert(offsetof(TzWFXStatus, FPGA_VERSION) == 10);
static_assert(offsetof(TzWFXStatus, BOOTLOADER_VERSION) == 12);
static_assert(offsetof(TzWFXStatus, CLOCK_FREQUENCY) == 21);

}  // namespace wirefox
