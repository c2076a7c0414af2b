// The names of the interface's enumerations and of its status record, out of the one table that
// describes the interface.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "api/tz_wirefox.h"

namespace client {

// An enumeration by its name in the interface, and what its constants' names may be short of.
struct NameSet {
  const wchar_t* enumeration;
  std::string_view optional_prefix;
};

inline constexpr NameSet kErrorCodes = {L"TzErrorCode", ""};
inline constexpr NameSet kLeds = {L"TzLed", ""};
inline constexpr NameSet kLedStates = {L"TzLedState", ""};
inline constexpr NameSet kIdentifyStates = {L"TzLedIdentifyState", "ID_"};
inline constexpr NameSet kEndPoints = {L"TzWirefoxEndPoint", ""};
inline constexpr NameSet kJtagClocks = {L"TzJtagClock", "FREQ_"};
inline constexpr NameSet kTransferModes = {L"TzTransferMode", ""};
inline constexpr NameSet kVoltages = {L"TzVTargVoltage", "VTARG_"};
inline constexpr NameSet kProgrammingModes = {L"TzProgrammingMode", ""};

// The value of a constant, by its name in any letter case, with or without the prefix, '-' and '.'
// standing for '_' as well. Nothing for any other text; numbers are not looked at.
std::optional<std::int32_t> ValueOfName(const NameSet& set, std::string_view name);

// The constant's name, or the number in decimal when there is none.
std::string NameOfValue(const NameSet& set, std::int32_t value);

// All names, separated by ", ".
std::string AllNames(const NameSet& set);

// Calls `visit` with each field of the status record, in order.
void VisitStatusFields(
    const TzWFXStatus& status,
    const std::function<void(const std::string& name, std::int32_t value)>& visit);

}  // namespace client
