#include "service/command_line.h"

#include <gtest/gtest.h>

namespace {

TEST(CommandLine, KeywordIsAWholeTokenInAnyLetterCaseAndTheFirstCounts) {
  using enum ServerCommand;
  const struct {
    const wchar_t* line;
    ServerCommand command;
  } kCases[] = {
      {L"", kRun},
      {L"service.exe -RegServer", kRegister},
      {L"service.exe /RegServer", kRegister},
      {L"service.exe /rEGsERVER", kRegister},
      {L"service.exe -regserver\tmore", kRegister},
      {L"service.exe -RegServerX", kRun},
      {L"service.exe -RegServer\"", kRun},
      {L"service.exe -RegServe", kRun},
      {L"service.exe RegServer", kRun},
      {L"service.exe --RegServer", kRegister},
      {L"service.exe -x-RegServer", kRegister},
      {L"service.exe -/-UNREGSERVER", kUnregister},
      {L"service.exe -Service", kRegisterService},
      {L"service.exe -Embedding", kRun},
      // The path counts, too.
      {L"\"/opt/wire-fox/service\"", kRun},
      {L"\"/opt/RegServer/service\"", kRun},
      {L"/opt/regserver", kRegister},
      {L"C:\\wire-service foo", kRegisterService},
      // A service only without one of the other words.
      {L"s -UnregServer -RegServer", kUnregister},
      {L"s -RegServer -UnregServer", kRegister},
      {L"s -Service -RegServer", kRegister},
      {L"s -RegServerX -Service", kRegisterService},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(ParseCommandLine(test.line), test.command) << testing::PrintToString(test.line);
  }
}

}  // namespace
