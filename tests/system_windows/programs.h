// This build's programs, and the processes of the service that others started.
#pragma once

#include <windows.h>

#include <psapi.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/windows/kernel_handle.h"
#include "tests/support/process.h"

namespace system_windows {

using support::Finished;
using support::Process;
using support::ReadFile;
using support::RunToEnd;
using support::WaitUntil;
using support::Words;
using windows_host::KernelHandle;

inline constexpr DWORD kPatienceMs = static_cast<DWORD>(support::kPatience.count());

// A folder that holds nothing but the tests' programs; those of the build lie beside it.
inline std::filesystem::path TestProgramFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::filesystem::path(path).parent_path();
}

inline std::string Program(const std::string& name) {
  return (TestProgramFolder().parent_path() / "bin" / (name + ".exe")).string();
}

inline std::filesystem::path ServiceProgram() { return Program("TzWirefoxService"); }

// The processes of this program.
inline std::vector<DWORD> ProcessesOf(const std::filesystem::path& program) {
  std::vector<DWORD> ids(4096);
  DWORD size = 0;
  if (!EnumProcesses(ids.data(), static_cast<DWORD>(ids.size() * sizeof(DWORD)), &size)) return {};
  ids.resize(size / sizeof(DWORD));
  std::erase_if(ids, [&](DWORD id) {
    const KernelHandle process(
        OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, id));
    wchar_t path[1024] = {};
    DWORD room = 1024;
    return !process || !QueryFullProcessImageNameW(process.Get(), 0, path, &room) ||
           _wcsicmp(path, program.c_str()) != 0 ||
           WaitForSingleObject(process.Get(), 0) == WAIT_OBJECT_0;
  });
  return ids;
}

}  // namespace system_windows
