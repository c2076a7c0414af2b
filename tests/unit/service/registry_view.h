// The contents of registry keys as text, to compare as a whole.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

using Lines = std::vector<std::string>;

// A line for each key below `path` and itself, and one for each of its values, in order:
// "key" and "key|value=data", where the default value's name is "@", texts show in quotes and
// binary data in hex. Letters outside ASCII show as "?". Empty when there is no such key.
Lines KeyTree(HKEY root, const std::wstring& path);

// Deletes the key at `path` with everything below it.
void RemoveTree(HKEY root, const std::wstring& path);

// The keys of the classes root that registering the server writes, with all that is below them.
inline constexpr const wchar_t* kServerKeys[] = {
    L"AppID\\{176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}", L"AppID\\TzWirefoxService.EXE",
    L"CLSID\\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}", L"TzWirefoxService.TzWirefox",
    L"TzWirefoxService.TzWirefox.1"};

// Removes them and the type library, also what a failed command has left.
void RemoveRegistration();

std::string Narrow(const std::wstring& text);
