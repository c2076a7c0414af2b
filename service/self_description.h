// What the program says of itself, to whoever asks for nothing else.
#pragma once

#include <string_view>

// Prints the version or the help to the standard output when that is all that `arguments`, the
// command line without the program's path, ask for: "--version" or "--help". False, with nothing
// printed, for any other; those are the module's.
bool DescribesItself(std::wstring_view arguments);
