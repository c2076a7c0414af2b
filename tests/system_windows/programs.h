// Where this build's programs and the tests' own files lie.
#pragma once

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace system_windows {

// A folder that holds nothing but the tests' programs; those of the build lie beside it.
inline std::filesystem::path TestProgramFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::filesystem::path(path).parent_path();
}

inline std::filesystem::path ProgramFolder() { return TestProgramFolder().parent_path() / "bin"; }

inline std::filesystem::path ServiceProgram() { return ProgramFolder() / "TzWirefoxService.exe"; }

inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace system_windows
