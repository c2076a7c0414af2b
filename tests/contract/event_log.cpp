#include <gtest/gtest.h>
#include <windows.h>

namespace {

TEST(EventLog, ASourceTakesReports) {
  const HANDLE log = RegisterEventSourceW(nullptr, L"WirefoxContractTest");
  ASSERT_NE(nullptr, log);
  const wchar_t* text = L"A test event.";
  EXPECT_TRUE(ReportEventW(log, EVENTLOG_INFORMATION_TYPE, 0, 0, nullptr, 1, 0, &text, nullptr));
  EXPECT_TRUE(DeregisterEventSource(log));
}

TEST(Resources, AnAbsentStringHasLengthZero) {
  wchar_t text[8] = L"before";
  EXPECT_EQ(0, LoadStringW(nullptr, 55306, text, 8));
}

}  // namespace
