#include "tests/unit/platform/component/sample_interface.h"

namespace sample {
namespace {

using interface_schema::Direction;
using interface_schema::FieldType;
using interface_schema::Interface;
using interface_schema::Method;
using interface_schema::Parameter;
using interface_schema::ValueType;

constexpr auto kIn = Direction::kIn;
constexpr auto kOut = Direction::kOut;
constexpr auto kResult = Direction::kOutRetval;

constexpr Parameter kEcho[] = {{L"text", ValueType::kBstr, kIn},
                               {L"number", ValueType::kLong, kIn},
                               {L"small", ValueType::kShort, kIn},
                               {L"tiny", ValueType::kChar, kIn},
                               {L"wide", ValueType::kInt64, kIn},
                               {L"colour", ValueType::kEnumeration, kIn, L"Colour"},
                               {L"textOut", ValueType::kBstr, kOut},
                               {L"numberOut", ValueType::kLong, kOut},
                               {L"smallOut", ValueType::kShort, kOut},
                               {L"tinyOut", ValueType::kChar, kOut},
                               {L"wideOut", ValueType::kInt64, kOut},
                               {L"colourOut", ValueType::kEnumeration, kResult, L"Colour"}};
constexpr Parameter kEchoBytes[] = {{L"bytes", ValueType::kByteArray, kIn},
                                    {L"RESULT", ValueType::kByteArray, kOut},
                                    {L"count", ValueType::kLong, kResult}};
constexpr Parameter kEchoStrings[] = {{L"strings", ValueType::kStringArray, kIn},
                                      {L"stringsOut", ValueType::kStringArray, kOut},
                                      {L"colour", ValueType::kEnumeration, kResult, L"Colour"}};
constexpr Parameter kGetStatus[] = {{L"seed", ValueType::kLong, kIn},
                                    {L"status", ValueType::kRecord, kOut, L"Status"},
                                    {L"colour", ValueType::kEnumeration, kResult, L"Colour"}};
constexpr Parameter kFail[] = {{L"status", ValueType::kLong, kIn},
                               {L"text", ValueType::kBstr, kResult}};
constexpr Parameter kMakeBytes[] = {{L"count", ValueType::kInt64, kIn},
                                    {L"bytes", ValueType::kByteArray, kResult}};
constexpr Parameter kWaitAtGate[] = {{L"passed", ValueType::kLong, kResult}};
constexpr Parameter kCountObjects[] = {{L"count", ValueType::kLong, kResult}};
constexpr Parameter kSum[] = {{L"a", ValueType::kLong, kIn},
                              {L"b", ValueType::kLong, kIn},
                              {L"sum", ValueType::kLong, kResult}};
constexpr Parameter kFailWide[] = {{L"value", ValueType::kInt64, kIn},
                                   {L"result", ValueType::kLong, kResult}};

constexpr Method kMethodsV1[] = {{7, 1, L"Echo", L"", kEcho},
                                 {8, 2, L"EchoBytes", L"", kEchoBytes},
                                 {9, 3, L"EchoStrings", L"", kEchoStrings},
                                 {10, 4, L"GetStatus", L"", kGetStatus},
                                 {11, 5, L"Fail", L"", kFail},
                                 {12, 6, L"MakeBytes", L"", kMakeBytes},
                                 {13, 7, L"WaitAtGate", L"", kWaitAtGate},
                                 {14, 8, L"CountObjects", L"", kCountObjects}};
constexpr Method kMethodsV2[] = {{15, 10, L"Sum", L"", kSum}};
constexpr Method kMethodsV3[] = {{16, 20, L"Fail", L"", kFailWide}};

constexpr Interface kV1 = {L"ISample_v1", &kInterfaceIdV1, L"", nullptr, kMethodsV1};
constexpr Interface kV2 = {L"ISample_v2", &kInterfaceIdV2, L"", &kV1, kMethodsV2};
constexpr Interface kV3 = {L"ISample_v3", &kInterfaceIdV3, L"", &kV2, kMethodsV3};
constexpr const Interface* kInterfaces[] = {&kV3, &kV2, &kV1};

constexpr auto kByte = FieldType::kUnsigned8;
constexpr auto kShortField = FieldType::kSigned16;
constexpr interface_schema::Field kFields[] = {
    {L"first", kByte, 0},         {L"second", kByte, 1},  {L"third", kShortField, 2},
    {L"fourth", kByte, 4},        {L"fifth", kByte, 5},   {L"sixth", kShortField, 6},
    {L"seventh", kShortField, 8}, {L"eighth", kByte, 10}, {L"ninth", kShortField, 12},
    {L"r0", kByte, 14},           {L"r1", kByte, 15},     {L"r2", kByte, 16},
    {L"r3", kByte, 17},           {L"r4", kByte, 18},     {L"r5", kByte, 19},
    {L"r6", kByte, 20},           {L"r7", kByte, 21}};
constexpr GUID kTypeId = {0x5A000005, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constexpr interface_schema::Record kRecord = {L"Status", &kTypeId, L"", sizeof(Status), kFields};
constexpr interface_schema::Constant kConstants[] = {{L"GREEN", 272, L""}};
constexpr interface_schema::Enumeration kColours = {L"Colour", &kTypeId, L"", kConstants};
constexpr interface_schema::UserType kTypes[] = {{&kColours, nullptr}, {nullptr, &kRecord}};

constexpr interface_schema::ComponentClass kClass = {L"Sample", &kClassId, L"", &kV3};

}  // namespace

constinit const GUID kLibraryId = {0x5A000000, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constinit const GUID kClassId = {0x5A000001, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constinit const GUID kInterfaceIdV1 = {0x5A000002, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constinit const GUID kInterfaceIdV2 = {0x5A000003, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constinit const GUID kInterfaceIdV3 = {0x5A000004, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};

constinit const interface_schema::Library kLibrary = {
    L"SampleLib", &kLibraryId, 1,     0, 0x409, L"Sample 1.0 Type Library",
    &kClass,      kInterfaces, kTypes};

}  // namespace sample
