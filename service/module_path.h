// Where the running executable lies.
#pragma once

#include <string>

// The executable's full path. A system error code; 0 is success. A path of 260 characters or more
// is not provided for and gives ERROR_INSUFFICIENT_BUFFER.
[[nodiscard]] long GetModulePath(std::wstring& path);

std::wstring InQuotes(const std::wstring& text);

// Parts of such a path, whose separators may be slashes or backslashes.
std::wstring DirectoryOf(const std::wstring& path);  // without the separator at its end
std::wstring WithExtension(const std::wstring& path, const wchar_t* extension);  // ".tlb"
