// The fixed identifiers of the component: one value each for all builds, known to every client and
// to the registry.
#pragma once

#include <windows.h>

namespace api {

extern const GUID kAppId;
extern const GUID kLibraryId;
extern const GUID kClassId;  // the class TzWirefox

extern const GUID kInterfaceIdV1;
extern const GUID kInterfaceIdV2;
extern const GUID kInterfaceIdV3;

// Of the enumerations and the record of the type library.
extern const GUID kErrorCodeId;
extern const GUID kLedId;
extern const GUID kLedStateId;
extern const GUID kLedIdentifyStateId;
extern const GUID kStatusRecordId;
extern const GUID kEndPointId;
extern const GUID kJtagClockId;
extern const GUID kTransferModeId;
extern const GUID kVTargVoltageId;
extern const GUID kProgrammingModeId;

}  // namespace api
