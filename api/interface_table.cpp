#include "api/interface_table.h"

#include "api/identifiers.h"
#include "api/interface_types.h"
#include "api/tz_wirefox_proxy.h"

// The spelling of the help strings is part of the contract: clients may show or compare them.

namespace api {
namespace {

using namespace interface_schema;
using enum ValueType;
using V1 = ITzWirefox_v1;
using V2 = ITzWirefox_v2;
using V3 = ITzWirefox_v3;

// An input of that enumeration.
constexpr Parameter Choice(const wchar_t* name, const wchar_t* enumeration) {
  return In(name, kEnumeration, enumeration);
}

constexpr Parameter kWirefox = In(L"wirefox", kBstr);
constexpr Parameter kOwner = In(L"ownerPID", kProcessId);
constexpr Parameter kHandle = In(L"wfxHandle", kInt64);
constexpr Parameter kResult = Out(L"RESULT", kByteArray);

// The outcome of a method. Two methods have it as a plain output: their late-bound callers receive
// it by reference only.
constexpr Parameter kError = Retval(L"error", kEnumeration, L"TzErrorCode");
constexpr Parameter kErrorByReference = Out(L"error", kEnumeration, L"TzErrorCode");

// Clients hold on to the dispatch ids: none ever changes, and 9 and 19 stay unused.
constexpr Method kMethodsV1[] = {
    Describe<&V1::GetVersion>(
        7, 1, L"GetVersion",
        L"Gets the version number of the service.  [Major].[Minor].[Build].[Revision]",
        {Retval(L"versionNum", kLong)}),
    Describe<&V1::GetDevicesChangedLocation>(
        8, 2, L"GetDevicesChangedLocation",
        L"Gets the file that is used to notify clients that device list changed.",
        {Retval(L"path", kBstr)}),
    Describe<&V1::EnumerateWirefoxs>(
        9, 3, L"EnumerateWirefoxs",
        L"Gets an array of all of the Wirefoxs attached to the computer",
        {Out(L"wirefoxs", kStringArray), kError}),
    Describe<&V1::EnumerateDevices>(
        10, 4, L"EnumerateDevices",
        L"Gets an array of all of the devices attached to the provided Wirefox using the set mode",
        {kWirefox, Out(L"devices", kStringArray), kError}),
    Describe<&V1::SetLedState>(
        11, 5, L"SetLedState", L"Sets the specified Wirefox's LED to the specified state",
        {kWirefox, Choice(L"led", L"TzLed"), Choice(L"state", L"TzLedState"), kErrorByReference}),
    Describe<&V1::VisualIdentify>(
        12, 6, L"VisualIdentify",
        L"Temporaraly changes the specified Wirefox's LEDs to the specified identify state",
        {kWirefox, Choice(L"state", L"TzLedIdentifyState"), kErrorByReference}),
    Describe<&V1::GetWirefoxStatus>(13, 7, L"GetWirefoxStatus",
                                    L"Gets the status of the specified Wirefox",
                                    {kWirefox, Out(L"status", kRecord, L"TzWFXStatus"), kError}),
    Describe<&V1::SetTimeOut>(14, 8, L"SetTimeOut",
                              L"Sets the maximum amount of time alloted for a request.",
                              {kWirefox, Choice(L"endPoint", L"TzWirefoxEndPoint"),
                               In(L"timeout", kLong), kOwner, kError}),
    Describe<&V1::SetJtagClock>(
        15, 10, L"SetJtagClock",
        L"Sets the JTAG Clock frequency used when communicating with the device",
        {kWirefox, Choice(L"clock", L"TzJtagClock"), kOwner, kError}),
    Describe<&V1::SetMode>(
        16, 11, L"SetMode", L"Changes the transfer mode for the Wirefox",
        {kWirefox, Choice(L"mode", L"TzTransferMode"), In(L"port10N5", kChar), kOwner, kError}),
    Describe<&V1::SetVTarg>(17, 12, L"SetVTarg", L"Sets the VTarg voltage supplied to the device",
                            {kWirefox, Choice(L"voltage", L"TzVTargVoltage"),
                             In(L"supplyVoltage", kChar), kOwner, kError}),
    Describe<&V1::AcquireDevice>(
        18, 13, L"AcquireDevice", L"Locks the specified device for exclusive use by the client",
        {kWirefox, In(L"deviceNum", kLong), kOwner, Out(L"wfxHandle", kInt64), kError}),
    Describe<&V1::ReleaseDevice>(19, 14, L"ReleaseDevice",
                                 L"Unlocks the specified device so it can be used by other clients",
                                 {kHandle, kError}),
    Describe<&V1::SendJtagPacket>(
        20, 15, L"SendJtagPacket", L"Sends a block of data to be written over JTAG protocal",
        {In(L"tdi_tms", kByteArray), In(L"read", kChar), kHandle, kResult, kError}),
    Describe<&V1::SendSwdPacket>(21, 16, L"SendSwdPacket",
                                 L"Sends a block of data to be written over SWD protocal",
                                 {In(L"data", kByteArray), kHandle, kResult, kError}),
    Describe<&V1::RequestSwvPackets>(22, 17, L"RequestSwvPackets",
                                     L"Requests any available SWV packets",
                                     {kHandle, kResult, kError}),
    Describe<&V1::BulkTransfer>(23, 18, L"BulkTransfer",
                                L"Transfers a stream of bytes to the selected endpoint",
                                {Choice(L"endPoint", L"TzWirefoxEndPoint"), In(L"data", kByteArray),
                                 In(L"readNwrite", kChar), kHandle, kResult, kError}),
    Describe<&V1::PortAcquire>(
        24, 20, L"PortAcquire",
        L"Starts a loop that attempts to cause the specified device to enter test mode",
        {kWirefox, Choice(L"mode", L"TzProgrammingMode"), In(L"portAcquireKey", kLong),
         In(L"writeTestKey", kChar), In(L"testModeAddress", kLong), In(L"testModeKey", kLong),
         In(L"retryLimit", kLong), kError}),
    Describe<&V1::GetPortAcquireStatus>(
        25, 21, L"GetPortAcquireStatus", L"Checks on the status of the AcquireTestMode loop",
        {kWirefox, In(L"abort", kChar), Out(L"acquireStatus", kLong), kError}),
    Describe<&V1::ToggleXres>(26, 22, L"ToggleXres", L"Toggles the state of the XRES pin",
                              {kWirefox, In(L"active", kChar), kError}),
    Describe<&V1::SetupSWV>(27, 23, L"SetupSWV", L"Sets the Wirefox up for SWV data sampling",
                            {kWirefox, In(L"targetFreq", kLong), In(L"manchesterNuart", kChar),
                             In(L"commitTime", kShort), kError}),
    Describe<&V1::RequestEtmPackets>(28, 24, L"RequestEtmPackets",
                                     L"Requests any available ETM packets",
                                     {kHandle, kResult, kError}),
};
constexpr Method kMethodsV2[] = {
    Describe<&V2::SendI2CPacket>(
        29, 25, L"SendI2CPacket", L"Sends a block of data to be written over I2C protocol",
        {In(L"data", kByteArray), kHandle, In(L"restartLocation", kLong), kResult, kError}),
};
constexpr Method kMethodsV3[] = {
    Describe<OwnMember<V3>(&V3::PortAcquire)>(
        30, 26, L"PortAcquire",
        L"Starts a loop that attempts to cause the specified device to enter test mode",
        {Choice(L"mode", L"TzProgrammingMode"), In(L"portAcquireKey", kLong),
         In(L"writeTestKey", kChar), In(L"testModeAddress", kLong), In(L"testModeKey", kLong),
         In(L"retryLimit", kLong), kHandle, kError}),
    Describe<&V3::GetHwRevID>(31, 27, L"GetHwRevID",
                              L"Gets the hardware revision of the specified Wirefox",
                              {kWirefox, Out(L"revID", kLong), kError}),
};

constexpr Interface kInterfaceV1 = {L"ITzWirefox_v1", &kInterfaceIdV1, L"ITzWirefox_v1 Interface",
                                    nullptr, kMethodsV1};
constexpr Interface kInterfaceV2 = {L"ITzWirefox_v2", &kInterfaceIdV2, L"ITzWirefox_v2 Interface",
                                    &kInterfaceV1, kMethodsV2};
constexpr Interface kInterfaceV3 = {L"ITzWirefox_v3", &kInterfaceIdV3, L"ITzWirefox_v3 Interface",
                                    &kInterfaceV2, kMethodsV3};
constexpr const Interface* kInterfaces[] = {&kInterfaceV3, &kInterfaceV2, &kInterfaceV1};

constexpr ComponentClass kClass = {L"TzWirefox", &kClassId, L"TzWirefox Class", &kInterfaceV3,
                                   &MakeProxy<TzWirefoxProxy>};

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
