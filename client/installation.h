// The service as this machine has it installed, as far as a client can see without asking it: its
// registration, and the settings file beside its program.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "base/settings_table.h"

namespace client {

// Texts are UTF-8, except for what the settings hold: those are bytes of the host's.
struct Installation {
  std::string program;   // empty: not registered
  std::string service;   // the service of the system that serves the class; empty: a plain server
  std::string settings;  // the file's path; empty: not registered
  bool settings_missing = false;
  std::optional<SettingsTable> values;  // nothing when the file cannot be read
};

Installation FindInstallation();

// A file that the settings name: one that is not absolute lies beside the program.
std::filesystem::path FileOf(const Installation& installation, const std::string& name);

// What cannot be looked at may well be there.
bool IsMissing(const std::filesystem::path& path);
bool IsReadable(const std::filesystem::path& path);

std::filesystem::path PathFromUtf8(const std::string& text);
std::string Utf8FromPath(const std::filesystem::path& path);

}  // namespace client
