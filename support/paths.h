// File names: the host's separator, which names are absolute, and text in the host's narrow
// character set. The one place that knows how the hosts differ in this.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

// True when `name` stands by itself: its second character is a colon (it names a drive) or, on
// hosts whose separator is a slash, it begins with one. Any other name is taken to be relative to
// GetModuleDirectory, network names that begin with two backslashes included.
bool IsAbsoluteName(std::string_view name);

// The directory of the running executable with its trailing separator, in the host's narrow
// character set; empty when the executable's path has no separator.
std::string GetModuleDirectory();

// `text` in the host's narrow character set: the one in which narrow file names are given. What
// it cannot hold becomes the system's replacement character.
std::string NarrowText(std::wstring_view text);

// The form in which file streams open a wide path without losing characters of it.
std::filesystem::path StreamPath(const wchar_t* path);
