// The contents of registry keys as text, to compare as a whole.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;

// A line for each key below `path` and itself, and one for each of its values, in order:
// "key" and "key|value=data", where the default value's name is "@", texts show in quotes and
// binary data in hex. Letters outside ASCII show as "?". Empty when there is no such key.
Lines KeyTree(HKEY root, const std::wstring& path);

// Deletes the key at `path` with everything below it.
void RemoveTree(HKEY root, const std::wstring& path);

// Removes all that registering the server writes, also what a failed command has left.
void RemoveRegistration();

// While it lives, the service manager of the Linux layer refuses to be opened: a file stands where
// its folder would.
class NoServiceManager {
 public:
  NoServiceManager();
  ~NoServiceManager();

 private:
  const std::filesystem::path folder_;
};

std::string Narrow(const std::wstring& text);
