// The settings of the service: the key/value lines of wfxusb.ini, read once at start.
#pragma once

#include "support/paths.h"  // GetModuleDirectory, which the settings path begins with

// Fills the settings table from the file at `path` (narrow). Called once, before any other thread
// exists and before the log is open; a file that cannot be read leaves the table empty. Later
// calls only add keys that the table does not hold.
void ReadSettings(const char* path);

// The value of `key` in any letter case, or an empty text; never null. The text stays valid and in
// place for the life of the process. Takes no lock: the table does not change after ReadSettings.
const char* GetSetting(const char* key);
