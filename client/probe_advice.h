// What a probe's answer means for who typed the command, and what to type next.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "client/command.h"

namespace client {

using Modes = std::span<const TzTransferMode>;

inline constexpr TzTransferMode kJtagModes[] = {TzTransferMode::JTAG};
inline constexpr TzTransferMode kSwdModes[] = {TzTransferMode::SWD, TzTransferMode::SWD_SWV};
inline constexpr TzTransferMode kI2cModes[] = {TzTransferMode::I2C};
inline constexpr TzTransferMode kTraceModes[] = {TzTransferMode::SWD_SWV};
// Those in which the service looks for targets.
inline constexpr TzTransferMode kTargetModes[] = {TzTransferMode::JTAG, TzTransferMode::SWD,
                                                  TzTransferMode::SWD_SWV, TzTransferMode::I2C,
                                                  TzTransferMode::VSER};

// With the nearest of those that are there.
std::string NoSuchProbe(const std::string& probe, std::span<const std::string> names);
// The same, asking for them.
std::string NoSuchProbe(ServiceClient& service, const std::string& probe);

// Names the mode that the probe is in and those that are wanted; the first of them is what to type.
// Empty when it is in one of them.
std::string WrongMode(const std::string& probe, const TzWFXStatus& status, Modes wanted);

// Why the service finds no target behind the probe.
std::string NoTargets(const std::string& probe, const TzWFXStatus& status);

// What the probe's own record complains of.
std::vector<std::string> ProblemsIn(const TzWFXStatus& status);

// Reports a result of a method that takes the probe's name. INVALID_PARAM may be about the name or
// about a value: the probe's status, which takes nothing but the name, tells which.
int ReportOnProbe(Context& context, Result result, const std::string& probe);

}  // namespace client
