#include "api/interface_table.h"

#include "api/identifiers.h"
#include "api/interface_types.h"

// The spelling of the help strings is part of the contract: clients may show or compare them.

namespace api {
namespace {

using interface_schema::ComponentClass;
using interface_schema::Direction;
using interface_schema::Interface;
using interface_schema::Library;
using interface_schema::Method;
using interface_schema::Parameter;
using interface_schema::ValueType;

constexpr Parameter In(const wchar_t* name, ValueType type) { return {name, type, Direction::kIn}; }

constexpr Parameter InEnumeration(const wchar_t* name, const wchar_t* user_type) {
  return {name, ValueType::kEnumeration, Direction::kIn, user_type};
}

constexpr Parameter Out(const wchar_t* name, ValueType type) {
  return {name, type, Direction::kOut};
}

// The outcome of a method. Two methods have it as a plain output: their late-bound callers receive
// it by reference only.
constexpr Parameter kError = {L"error", ValueType::kEnumeration, Direction::kOutRetval,
                              L"TzErrorCode"};
constexpr Parameter kErrorByReference = {L"error", ValueType::kEnumeration, Direction::kOut,
                                         L"TzErrorCode"};

constexpr Parameter kGetVersionParameters[] = {
    {L"versionNum", ValueType::kLong, Direction::kOutRetval}};
constexpr Parameter kGetDevicesChangedLocationParameters[] = {
    {L"path", ValueType::kBstr, Direction::kOutRetval}};
constexpr Parameter kEnumerateWirefoxsParameters[] = {Out(L"wirefoxs", ValueType::kStringArray),
                                                      kError};
constexpr Parameter kEnumerateDevicesParameters[] = {
    In(L"wirefox", ValueType::kBstr), Out(L"devices", ValueType::kStringArray), kError};
constexpr Parameter kSetLedStateParameters[] = {
    In(L"wirefox", ValueType::kBstr), InEnumeration(L"led", L"TzLed"),
    InEnumeration(L"state", L"TzLedState"), kErrorByReference};
constexpr Parameter kVisualIdentifyParameters[] = {In(L"wirefox", ValueType::kBstr),
                                                   InEnumeration(L"state", L"TzLedIdentifyState"),
                                                   kErrorByReference};
constexpr Parameter kGetWirefoxStatusParameters[] = {
    In(L"wirefox", ValueType::kBstr),
    {L"status", ValueType::kRecord, Direction::kOut, L"TzWFXStatus"},
    kError};
constexpr Parameter kSetTimeOutParameters[] = {
    In(L"wirefox", ValueType::kBstr), InEnumeration(L"endPoint", L"TzWirefoxEndPoint"),
    In(L"timeout", ValueType::kLong), In(L"ownerPID", ValueType::kLong), kError};
constexpr Parameter kSetJtagClockParameters[] = {In(L"wirefox", ValueType::kBstr),
                                                 InEnumeration(L"clock", L"TzJtagClock"),
                                                 In(L"ownerPID", ValueType::kLong), kError};
constexpr Parameter kSetModeParameters[] = {
    In(L"wirefox", ValueType::kBstr), InEnumeration(L"mode", L"TzTransferMode"),
    In(L"port10N5", ValueType::kChar), In(L"ownerPID", ValueType::kLong), kError};
constexpr Parameter kSetVTargParameters[] = {
    In(L"wirefox", ValueType::kBstr), InEnumeration(L"voltage", L"TzVTargVoltage"),
    In(L"supplyVoltage", ValueType::kChar), In(L"ownerPID", ValueType::kLong), kError};
constexpr Parameter kAcquireDeviceParameters[] = {
    In(L"wirefox", ValueType::kBstr), In(L"deviceNum", ValueType::kLong),
    In(L"ownerPID", ValueType::kLong), Out(L"wfxHandle", ValueType::kInt64), kError};
constexpr Parameter kReleaseDeviceParameters[] = {In(L"wfxHandle", ValueType::kInt64), kError};
constexpr Parameter kSendJtagPacketParameters[] = {
    In(L"tdi_tms", ValueType::kByteArray), In(L"read", ValueType::kChar),
    In(L"wfxHandle", ValueType::kInt64), Out(L"RESULT", ValueType::kByteArray), kError};
constexpr Parameter kSendSwdPacketParameters[] = {In(L"data", ValueType::kByteArray),
                                                  In(L"wfxHandle", ValueType::kInt64),
                                                  Out(L"RESULT", ValueType::kByteArray), kError};
constexpr Parameter kRequestSwvPacketsParameters[] = {
    In(L"wfxHandle", ValueType::kInt64), Out(L"RESULT", ValueType::kByteArray), kError};
constexpr Parameter kBulkTransferParameters[] = {InEnumeration(L"endPoint", L"TzWirefoxEndPoint"),
                                                 In(L"data", ValueType::kByteArray),
                                                 In(L"readNwrite", ValueType::kChar),
                                                 In(L"wfxHandle", ValueType::kInt64),
                                                 Out(L"RESULT", ValueType::kByteArray),
                                                 kError};
constexpr Parameter kPortAcquireParameters[] = {
    In(L"wirefox", ValueType::kBstr),         InEnumeration(L"mode", L"TzProgrammingMode"),
    In(L"portAcquireKey", ValueType::kLong),  In(L"writeTestKey", ValueType::kChar),
    In(L"testModeAddress", ValueType::kLong), In(L"testModeKey", ValueType::kLong),
    In(L"retryLimit", ValueType::kLong),      kError};
constexpr Parameter kGetPortAcquireStatusParameters[] = {
    In(L"wirefox", ValueType::kBstr), In(L"abort", ValueType::kChar),
    Out(L"acquireStatus", ValueType::kLong), kError};
constexpr Parameter kToggleXresParameters[] = {In(L"wirefox", ValueType::kBstr),
                                               In(L"active", ValueType::kChar), kError};
constexpr Parameter kSetupSWVParameters[] = {
    In(L"wirefox", ValueType::kBstr), In(L"targetFreq", ValueType::kLong),
    In(L"manchesterNuart", ValueType::kChar), In(L"commitTime", ValueType::kShort), kError};
constexpr Parameter kRequestEtmPacketsParameters[] = {
    In(L"wfxHandle", ValueType::kInt64), Out(L"RESULT", ValueType::kByteArray), kError};
constexpr Parameter kSendI2CPacketParameters[] = {
    In(L"data", ValueType::kByteArray), In(L"wfxHandle", ValueType::kInt64),
    In(L"restartLocation", ValueType::kLong), Out(L"RESULT", ValueType::kByteArray), kError};
constexpr Parameter kPortAcquireByHandleParameters[] = {
    InEnumeration(L"mode", L"TzProgrammingMode"), In(L"portAcquireKey", ValueType::kLong),
    In(L"writeTestKey", ValueType::kChar),        In(L"testModeAddress", ValueType::kLong),
    In(L"testModeKey", ValueType::kLong),         In(L"retryLimit", ValueType::kLong),
    In(L"wfxHandle", ValueType::kInt64),          kError};
constexpr Parameter kGetHwRevIDParameters[] = {In(L"wirefox", ValueType::kBstr),
                                               Out(L"revID", ValueType::kLong), kError};

// Clients hold on to the dispatch ids: none ever changes, and 9 and 19 stay unused.
constexpr Method kMethodsV1[] = {
    {7, 1, L"GetVersion",
     L"Gets the version number of the service.  [Major].[Minor].[Build].[Revision]",
     kGetVersionParameters},
    {8, 2, L"GetDevicesChangedLocation",
     L"Gets the file that is used to notify clients that device list changed.",
     kGetDevicesChangedLocationParameters},
    {9, 3, L"EnumerateWirefoxs", L"Gets an array of all of the Wirefoxs attached to the computer",
     kEnumerateWirefoxsParameters},
    {10, 4, L"EnumerateDevices",
     L"Gets an array of all of the devices attached to the provided Wirefox using the set mode",
     kEnumerateDevicesParameters},
    {11, 5, L"SetLedState", L"Sets the specified Wirefox's LED to the specified state",
     kSetLedStateParameters},
    {12, 6, L"VisualIdentify",
     L"Temporaraly changes the specified Wirefox's LEDs to the specified identify state",
     kVisualIdentifyParameters},
    {13, 7, L"GetWirefoxStatus", L"Gets the status of the specified Wirefox",
     kGetWirefoxStatusParameters},
    {14, 8, L"SetTimeOut", L"Sets the maximum amount of time alloted for a request.",
     kSetTimeOutParameters},
    {15, 10, L"SetJtagClock",
     L"Sets the JTAG Clock frequency used when communicating with the device",
     kSetJtagClockParameters},
    {16, 11, L"SetMode", L"Changes the transfer mode for the Wirefox", kSetModeParameters},
    {17, 12, L"SetVTarg", L"Sets the VTarg voltage supplied to the device", kSetVTargParameters},
    {18, 13, L"AcquireDevice", L"Locks the specified device for exclusive use by the client",
     kAcquireDeviceParameters},
    {19, 14, L"ReleaseDevice", L"Unlocks the specified device so it can be used by other clients",
     kReleaseDeviceParameters},
    {20, 15, L"SendJtagPacket", L"Sends a block of data to be written over JTAG protocal",
     kSendJtagPacketParameters},
    {21, 16, L"SendSwdPacket", L"Sends a block of data to be written over SWD protocal",
     kSendSwdPacketParameters},
    {22, 17, L"RequestSwvPackets", L"Requests any available SWV packets",
     kRequestSwvPacketsParameters},
    {23, 18, L"BulkTransfer", L"Transfers a stream of bytes to the selected endpoint",
     kBulkTransferParameters},
    {24, 20, L"PortAcquire",
     L"Starts a loop that attempts to cause the specified device to enter test mode",
     kPortAcquireParameters},
    {25, 21, L"GetPortAcquireStatus", L"Checks on the status of the AcquireTestMode loop",
     kGetPortAcquireStatusParameters},
    {26, 22, L"ToggleXres", L"Toggles the state of the XRES pin", kToggleXresParameters},
    {27, 23, L"SetupSWV", L"Sets the Wirefox up for SWV data sampling", kSetupSWVParameters},
    {28, 24, L"RequestEtmPackets", L"Requests any available ETM packets",
     kRequestEtmPacketsParameters},
};
constexpr Method kMethodsV2[] = {
    {29, 25, L"SendI2CPacket", L"Sends a block of data to be written over I2C protocol",
     kSendI2CPacketParameters},
};
constexpr Method kMethodsV3[] = {
    {30, 26, L"PortAcquire",
     L"Starts a loop that attempts to cause the specified device to enter test mode",
     kPortAcquireByHandleParameters},
    {31, 27, L"GetHwRevID", L"Gets the hardware revision of the specified Wirefox",
     kGetHwRevIDParameters},
};

constexpr Interface kInterfaceV1 = {L"ITzWirefox_v1", &kInterfaceIdV1, L"ITzWirefox_v1 Interface",
                                    nullptr, kMethodsV1};
constexpr Interface kInterfaceV2 = {L"ITzWirefox_v2", &kInterfaceIdV2, L"ITzWirefox_v2 Interface",
                                    &kInterfaceV1, kMethodsV2};
constexpr Interface kInterfaceV3 = {L"ITzWirefox_v3", &kInterfaceIdV3, L"ITzWirefox_v3 Interface",
                                    &kInterfaceV2, kMethodsV3};
constexpr const Interface* kInterfaces[] = {&kInterfaceV3, &kInterfaceV2, &kInterfaceV1};

constexpr ComponentClass kClass = {L"TzWirefox", &kClassId, L"TzWirefox Class", &kInterfaceV3};

constexpr LCID kEnglishUnitedStates = 0x409;

}  // namespace

constinit const Library kLibrary = {L"TzWirefoxServiceLib",
                                    &kLibraryId,
                                    1,
                                    0,
                                    kEnglishUnitedStates,
                                    L"TzWirefoxService 1.0 Type Library",
                                    &kClass,
                                    kInterfaces,
                                    kUserTypes};

}  // namespace api
