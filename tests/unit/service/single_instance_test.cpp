#include "service/single_instance.h"

#include <gtest/gtest.h>

#include "platform/linux/test_host.h"

namespace {

// One test, because a guard keeps its mutex until the process ends.
TEST(SingleInstance, OnlyAnInstanceThatCannotHaveTheMutexIsStopped) {
  // A name that is taken by another kind of object cannot be had, as it cannot by another account.
  const HANDLE taken = CreateEventW(nullptr, TRUE, FALSE, L"TzWirefoxService");
  ASSERT_NE(taken, nullptr);
  const SingleInstanceGuard stopped;
  EXPECT_FALSE(stopped.MayRun());
  test_host::TakeNotices();
  EXPECT_EQ(stopped.ReportFailure(), -1);
  const std::wstring text =
      L"The WirefoxService was unable to startup because another instance was already running.\r\n"
      L"Verify that only one user account is trying to access it at a time.";
  EXPECT_EQ(test_host::TakeNotices(),
            (std::vector<std::wstring>{L"event|Application|1|1|11|" + text,
                                       L"box|WirefoxService Error|" + text}));
  CloseHandle(taken);

  const SingleInstanceGuard first;
  const SingleInstanceGuard second;
  EXPECT_TRUE(first.MayRun());
  EXPECT_TRUE(second.MayRun()) << "an instance of the same account runs beside the first";
  const HANDLE same = CreateMutexW(nullptr, FALSE, L"TzWirefoxService");
  EXPECT_TRUE(ReleaseMutex(same)) << "the first has owned it";
  WaitForSingleObject(same, 0);
  first.Release();
  EXPECT_FALSE(ReleaseMutex(same));
}

}  // namespace
