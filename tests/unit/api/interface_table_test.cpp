// The description of the interface against the declarations that C++ clients compile, and its own
// rules: what a type library or the message bus makes of it must fit the object's table.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "api/identifiers.h"
#include "api/interface_table.h"
#include "api/tz_wirefox.h"

namespace {

using interface_schema::Direction;
using interface_schema::Interface;
using interface_schema::Method;
using interface_schema::Parameter;
using interface_schema::ValueType;

// Interfaces from v1 to v3.
std::vector<const Interface*> Interfaces() {
  return {api::kLibrary.interfaces.rbegin(), api::kLibrary.interfaces.rend()};
}

// The signature as a client reads it: name(direction type name, ...).
std::string Signature(const Method& method) {
  static const std::map<ValueType, std::string> kTypes = {
      {ValueType::kBstr, "BSTR"},          {ValueType::kLong, "long"},
      {ValueType::kShort, "short"},        {ValueType::kChar, "char"},
      {ValueType::kInt64, "int64"},        {ValueType::kByteArray, "bytes"},
      {ValueType::kStringArray, "strings"}};
  const auto narrow = [](const wchar_t* text) {
    std::string result;
    for (; *text != 0; ++text) result += static_cast<char>(*text);
    return result;
  };
  std::string signature = narrow(method.name);
  signature += "(";
  for (const Parameter& parameter : method.parameters) {
    if (signature.back() != '(') signature += ", ";
    if (parameter.direction == Direction::kOut) signature += "out ";
    if (parameter.direction == Direction::kOutRetval) signature += "retval ";
    signature +=
        parameter.user_type != nullptr ? narrow(parameter.user_type) : kTypes.at(parameter.type);
    signature += " ";
    signature += narrow(parameter.name);
  }
  signature += ")";
  return signature;
}

TEST(InterfaceTable, MethodsStandInTheirSlotsUnderTheirDispatchIds) {
  std::vector<std::string> lines;
  for (const Interface* interface_ : Interfaces()) {
    for (const Method& method : interface_->methods) {
      std::ostringstream line;
      line << method.slot << " " << method.dispatch_id << " " << Signature(method);
      lines.push_back(line.str());
    }
  }
  const std::vector<std::string> kExpected = {
      "7 1 GetVersion(retval long versionNum)",
      "8 2 GetDevicesChangedLocation(retval BSTR path)",
      "9 3 EnumerateWirefoxs(out strings wirefoxs, retval TzErrorCode error)",
      "10 4 EnumerateDevices(BSTR wirefox, out strings devices, retval TzErrorCode error)",
      "11 5 SetLedState(BSTR wirefox, TzLed led, TzLedState state, out TzErrorCode error)",
      "12 6 VisualIdentify(BSTR wirefox, TzLedIdentifyState state, out TzErrorCode error)",
      "13 7 GetWirefoxStatus(BSTR wirefox, out TzWFXStatus status, retval TzErrorCode error)",
      "14 8 SetTimeOut(BSTR wirefox, TzWirefoxEndPoint endPoint, long timeout, long ownerPID, "
      "retval TzErrorCode error)",
      "15 10 SetJtagClock(BSTR wirefox, TzJtagClock clock, long ownerPID, retval TzErrorCode "
      "error)",
      "16 11 SetMode(BSTR wirefox, TzTransferMode mode, char port10N5, long ownerPID, retval "
      "TzErrorCode error)",
      "17 12 SetVTarg(BSTR wirefox, TzVTargVoltage voltage, char supplyVoltage, long ownerPID, "
      "retval TzErrorCode error)",
      "18 13 AcquireDevice(BSTR wirefox, long deviceNum, long ownerPID, out int64 wfxHandle, "
      "retval TzErrorCode error)",
      "19 14 ReleaseDevice(int64 wfxHandle, retval TzErrorCode error)",
      "20 15 SendJtagPacket(bytes tdi_tms, char read, int64 wfxHandle, out bytes RESULT, retval "
      "TzErrorCode error)",
      "21 16 SendSwdPacket(bytes data, int64 wfxHandle, out bytes RESULT, retval TzErrorCode "
      "error)",
      "22 17 RequestSwvPackets(int64 wfxHandle, out bytes RESULT, retval TzErrorCode error)",
      "23 18 BulkTransfer(TzWirefoxEndPoint endPoint, bytes data, char readNwrite, int64 "
      "wfxHandle, out bytes RESULT, retval TzErrorCode error)",
      "24 20 PortAcquire(BSTR wirefox, TzProgrammingMode mode, long portAcquireKey, char "
      "writeTestKey, long testModeAddress, long testModeKey, long retryLimit, retval TzErrorCode "
      "error)",
      "25 21 GetPortAcquireStatus(BSTR wirefox, char abort, out long acquireStatus, retval "
      "TzErrorCode error)",
      "26 22 ToggleXres(BSTR wirefox, char active, retval TzErrorCode error)",
      "27 23 SetupSWV(BSTR wirefox, long targetFreq, char manchesterNuart, short commitTime, "
      "retval TzErrorCode error)",
      "28 24 RequestEtmPackets(int64 wfxHandle, out bytes RESULT, retval TzErrorCode error)",
      "29 25 SendI2CPacket(bytes data, int64 wfxHandle, long restartLocation, out bytes RESULT, "
      "retval TzErrorCode error)",
      "30 26 PortAcquire(TzProgrammingMode mode, long portAcquireKey, char writeTestKey, long "
      "testModeAddress, long testModeKey, long retryLimit, int64 wfxHandle, retval TzErrorCode "
      "error)",
      "31 27 GetHwRevID(BSTR wirefox, out long revID, retval TzErrorCode error)"};
  EXPECT_EQ(lines, kExpected);
}

TEST(InterfaceTable, EachVersionExtendsTheOneBefore) {
  const auto interfaces = Interfaces();
  ASSERT_EQ(interfaces.size(), 3u);
  EXPECT_EQ(interfaces[0]->base, nullptr);
  EXPECT_EQ(interfaces[1]->base, interfaces[0]);
  EXPECT_EQ(interfaces[2]->base, interfaces[1]);
  EXPECT_EQ(api::kLibrary.component->default_interface, interfaces[2]);
}

// Whoever shows an enumeration to a user looks a type up by the name that a parameter gives.
TEST(InterfaceTable, TypesOfParametersAreInTheLibrary) {
  std::set<std::wstring> names;
  for (const auto& type : api::kLibrary.types) {
    names.insert(type.enumeration != nullptr ? type.enumeration->name : type.record->name);
  }
  EXPECT_EQ(names.size(), 10u);
  for (const Interface* interface_ : Interfaces()) {
    for (const Method& method : interface_->methods) {
      for (const Parameter& parameter : method.parameters) {
        const bool named = parameter.user_type != nullptr;
        EXPECT_EQ(named, parameter.type == ValueType::kEnumeration ||
                             parameter.type == ValueType::kRecord);
        if (named) {
          EXPECT_TRUE(names.contains(parameter.user_type)) << Signature(method);
        }
      }
    }
  }
}

TEST(InterfaceTable, ConstantsHaveTheValuesThatClientsSend) {
  std::map<std::wstring, std::map<std::wstring, std::int32_t>> values;
  for (const auto& type : api::kLibrary.types) {
    if (type.enumeration == nullptr) continue;
    for (const auto& constant : type.enumeration->constants) {
      EXPECT_TRUE(values[type.enumeration->name].emplace(constant.name, constant.value).second);
    }
  }
  EXPECT_EQ(values[L"TzErrorCode"], (std::map<std::wstring, std::int32_t>{{L"SUCCESS", 0},
                                                                          {L"IN_USE", 1},
                                                                          {L"NOT_ACQUIRED", 2},
                                                                          {L"INVALID_DEVICE", 3},
                                                                          {L"INVALID_MODE", 4},
                                                                          {L"INVALID_PARAM", 5},
                                                                          {L"WFX_ERROR", 6},
                                                                          {L"UNKNOWN", 7}}));
  EXPECT_EQ(values[L"TzTransferMode"], (std::map<std::wstring, std::int32_t>{{L"IDLE", 0},
                                                                             {L"JTAG", 1},
                                                                             {L"I2C", 2},
                                                                             {L"SWD", 4},
                                                                             {L"SWV", 8},
                                                                             {L"SWD_SWV", 12},
                                                                             {L"VSER", 16},
                                                                             {L"ETM", 32},
                                                                             {L"VSER_INT", 272}}));
  EXPECT_EQ(values[L"TzVTargVoltage"],
            (std::map<std::wstring, std::int32_t>{
                {L"VTARG_1_8", 14}, {L"VTARG_2_5", 13}, {L"VTARG_3_3", 11}, {L"VTARG_5_0", 7}}));
  // The low bits of a clock code are its group, which its name spells.
  ASSERT_EQ(values[L"TzJtagClock"].size(), 24u);
  for (const auto& [name, value] : values[L"TzJtagClock"]) {
    EXPECT_EQ(value & 3, name[5] - L'A') << value;
  }
}

TEST(InterfaceTable, ClockHelpSpellsTheFrequencyOfTheName) {
  for (const auto& type : api::kLibrary.types) {
    if (type.enumeration == nullptr || *type.enumeration->id != api::kJtagClockId) continue;
    for (const auto& constant : type.enumeration->constants) {
      const std::wstring name = constant.name;  // FREQ_A_08_0
      EXPECT_EQ(std::wstring(constant.help), L"Represents a clock frequeancy of " +
                                                 name.substr(7, 2) + L"." + name.substr(10) +
                                                 L"MHz");
    }
  }
}

TEST(InterfaceTable, LedHelpHasTheTypographicApostrophe) {
  for (const auto& type : api::kLibrary.types) {
    if (type.enumeration == nullptr || *type.enumeration->id != api::kLedStateId) continue;
    for (const auto& constant : type.enumeration->constants) {
      EXPECT_NE(std::wstring(constant.help).find(L"Wirefox\x2019s LED"), std::wstring::npos);
    }
  }
}

TEST(InterfaceTable, RecordFieldsFollowEachOtherWithOnePadByte) {
  const interface_schema::Record* record = nullptr;
  for (const auto& type : api::kLibrary.types) {
    if (type.record != nullptr) record = type.record;
  }
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->size, 22u);
  std::vector<std::uint32_t> offsets;
  for (const auto& field : record->fields) offsets.push_back(field.offset);
  EXPECT_EQ(offsets, (std::vector<std::uint32_t>{0, 1, 2, 4, 5, 6, 8, 10, 12, 14, 15, 16, 17, 18,
                                                 19, 20, 21}));
}

TEST(InterfaceTable, IdentifiersAreAllDifferent) {
  std::set<std::string> seen;
  std::size_t count = 0;
  const auto add = [&](const GUID& id) {
    seen.insert(std::string(reinterpret_cast<const char*>(&id), sizeof(id)));
    ++count;
  };
  add(api::kAppId);
  add(*api::kLibrary.id);
  add(*api::kLibrary.component->id);
  for (const Interface* interface_ : api::kLibrary.interfaces) add(*interface_->id);
  for (const auto& type : api::kLibrary.types) {
    add(type.enumeration != nullptr ? *type.enumeration->id : *type.record->id);
  }
  EXPECT_EQ(count, 16u);
  EXPECT_EQ(seen.size(), count);
}

}  // namespace
