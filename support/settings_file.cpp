#include "support/settings_file.h"

#include <fstream>

#include "base/settings_table.h"

namespace {

// Never destroyed: the values' texts are in use until the process ends, on threads that nobody
// waits for.
SettingsTable& Settings() {
  static auto& table = *new SettingsTable;
  return table;
}

}  // namespace

void ReadSettings(const char* path) {
  std::ifstream file(path, std::ios::binary);
  ReadSettingsTable(file, Settings());
}

const char* GetSetting(const char* key) {
  const auto found = Settings().find(settings::UpperCased(key));
  return found == Settings().end() ? "" : found->second.c_str();
}
