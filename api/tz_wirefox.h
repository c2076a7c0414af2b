// What a C++ client includes: the enumerations, the status record and the three versions of the
// interface of the class TzWirefox, for early-bound calls on both hosts.
//
// Create an object with CoCreateInstance(api::kClassId, nullptr, CLSCTX_LOCAL_SERVER,
// api::kInterfaceIdV3, …). Every method returns S_OK when the call itself went through; the outcome
// of the operation is in `error`. All output pointers are required. The caller frees what it
// receives (SysFreeString, SafeArrayDestroy); an array that a method did not create is left null.
// Strings are null-terminated at their first zero, a null string counts as an empty one.
#pragma once

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>

#include <cstddef>
#include <cstdint>

#include "api/identifiers.h"

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

// The order of the methods is the order of the table of virtual operations, which clients compiled
// long ago rely on: IUnknown takes slots 0 to 2, IDispatch 3 to 6.
struct ITzWirefox_v1 : public IDispatch {
  // Slots 7 to 28.
  virtual HRESULT STDMETHODCALLTYPE GetVersion(LONG* versionNum) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDevicesChangedLocation(BSTR* path) = 0;
  virtual HRESULT STDMETHODCALLTYPE EnumerateWirefoxs(SAFEARRAY** wirefoxs, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE EnumerateDevices(BSTR wirefox, SAFEARRAY** devices,
                                                     TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetLedState(BSTR wirefox, TzLed led, TzLedState state,
                                                TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE VisualIdentify(BSTR wirefox, TzLedIdentifyState state,
                                                   TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetWirefoxStatus(BSTR wirefox, TzWFXStatus* status,
                                                     TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetTimeOut(BSTR wirefox, TzWirefoxEndPoint endPoint,
                                               LONG timeout, LONG ownerPID, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetJtagClock(BSTR wirefox, TzJtagClock clock, LONG ownerPID,
                                                 TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetMode(BSTR wirefox, TzTransferMode mode, CHAR port10N5,
                                            LONG ownerPID, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetVTarg(BSTR wirefox, TzVTargVoltage voltage,
                                             CHAR supplyVoltage, LONG ownerPID,
                                             TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE AcquireDevice(BSTR wirefox, LONG deviceNum, LONG ownerPID,
                                                  std::int64_t* wfxHandle, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE ReleaseDevice(std::int64_t wfxHandle, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SendJtagPacket(SAFEARRAY* tdi_tms, CHAR read,
                                                   std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                                   TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SendSwdPacket(SAFEARRAY* data, std::int64_t wfxHandle,
                                                  SAFEARRAY** RESULT, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE RequestSwvPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                                      TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE BulkTransfer(TzWirefoxEndPoint endPoint, SAFEARRAY* data,
                                                 CHAR readNwrite, std::int64_t wfxHandle,
                                                 SAFEARRAY** RESULT, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE PortAcquire(BSTR wirefox, TzProgrammingMode mode,
                                                LONG portAcquireKey, CHAR writeTestKey,
                                                LONG testModeAddress, LONG testModeKey,
                                                LONG retryLimit, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPortAcquireStatus(BSTR wirefox, CHAR abort,
                                                         LONG* acquireStatus,
                                                         TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE ToggleXres(BSTR wirefox, CHAR active, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetupSWV(BSTR wirefox, LONG targetFreq, CHAR manchesterNuart,
                                             SHORT commitTime, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE RequestEtmPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                                      TzErrorCode* error) = 0;
};

struct ITzWirefox_v2 : public ITzWirefox_v1 {
  // Slot 29.
  virtual HRESULT STDMETHODCALLTYPE SendI2CPacket(SAFEARRAY* data, std::int64_t wfxHandle,
                                                  LONG restartLocation, SAFEARRAY** RESULT,
                                                  TzErrorCode* error) = 0;
};

struct ITzWirefox_v3 : public ITzWirefox_v2 {
  // Both methods of this name stay visible: by probe name, and by session handle.
  using ITzWirefox_v2::PortAcquire;

  // Slots 30 and 31.
  virtual HRESULT STDMETHODCALLTYPE PortAcquire(TzProgrammingMode mode, LONG portAcquireKey,
                                                CHAR writeTestKey, LONG testModeAddress,
                                                LONG testModeKey, LONG retryLimit,
                                                std::int64_t wfxHandle, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetHwRevID(BSTR wirefox, LONG* revID, TzErrorCode* error) = 0;
};
