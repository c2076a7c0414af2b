// An installation of the service for one test, in a folder of its own, which leaves nothing behind.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <string>

#include "tests/system_windows/programs.h"

namespace system_windows {

inline constexpr wchar_t kServiceName[] = L"TzWirefoxService";

class Installation : public testing::Test {
 protected:
  Installation();
  // Ends the service's processes, deletes the service and every entry of registration.
  ~Installation() override;

  // Copies the service's program into the folder, made anew below the temporary one.
  void Install(const std::wstring& folder = L"wirefox");

  // Runs the installed program to its end; its exit status.
  int Run(Words options);

  // Registers, which must succeed, and lets the host's marshaller find the library (it looks under
  // the neutral locale alone).
  void Register(const std::string& keyword);

  const std::filesystem::path& program() const { return program_; }
  bool ServiceProcessesEnd() const;

 private:
  void Clean() const;

  std::filesystem::path program_;
};

// States of the service manager's entry of the service.
bool IsServiceInstalled();
DWORD ServiceState();  // 0: not installed
bool StartInstalledService();
bool SendControl(DWORD control);

}  // namespace system_windows
