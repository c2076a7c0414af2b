#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <string>
#include <thread>

namespace {

constexpr DWORD kPatienceMs = 20000;
constexpr wchar_t kShared[] = L"WirefoxContractShared";
constexpr wchar_t kGate[] = L"WirefoxContractGate";

// Whether another thread could take the mutex now. It ends before the answer is given, and gives
// back what it took.
bool FreeForOthers(HANDLE mutex) {
  bool free = false;
  std::thread([&] {
    free = WaitForSingleObject(mutex, 0) != WAIT_TIMEOUT;
    if (free) ReleaseMutex(mutex);
  }).join();
  return free;
}

TEST(KernelMutexes, OwnerMayTakeItAgainAndReleasesItAsOften) {
  for (const wchar_t* const name : {static_cast<const wchar_t*>(nullptr), kShared}) {
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, name);
    ASSERT_NE(nullptr, mutex);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex, 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex, INFINITE));
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_FALSE(FreeForOthers(mutex));
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_TRUE(FreeForOthers(mutex));
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_EQ(288U, GetLastError());
    CloseHandle(mutex);
  }
}

TEST(KernelMutexes, OnlyTheOwnerReleasesIt) {
  const HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
  BOOL released = TRUE;
  DWORD error = 0;
  std::thread([&] {
    released = ReleaseMutex(mutex);
    error = GetLastError();
  }).join();
  EXPECT_FALSE(released);
  EXPECT_EQ(288U, error);
  EXPECT_FALSE(FreeForOthers(mutex));
  ReleaseMutex(mutex);
  CloseHandle(mutex);
}

TEST(KernelMutexes, ExistingNameGivesAnotherHandleAndNoOwnership) {
  const HANDLE first = CreateMutexW(nullptr, FALSE, kShared);
  EXPECT_EQ(0U, GetLastError());
  const HANDLE second = CreateMutexW(nullptr, TRUE, kShared);
  EXPECT_EQ(183U, GetLastError());
  ASSERT_NE(nullptr, second);
  EXPECT_NE(first, second);
  EXPECT_FALSE(ReleaseMutex(second));
  const HANDLE third = OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, kShared);
  ASSERT_NE(nullptr, third);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(third, 0));
  EXPECT_TRUE(ReleaseMutex(first));  // one object behind all of them
  CloseHandle(first);
  CloseHandle(second);
  CloseHandle(third);
}

TEST(KernelMutexes, NameIsFreeAgainWhenItsLastHandleIsClosed) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(nullptr, OpenMutexW(SYNCHRONIZE, FALSE, kShared));
    EXPECT_EQ(2U, GetLastError());
    // Closed by its owner without a release: nobody is left to own it.
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, kShared);
    EXPECT_EQ(0U, GetLastError());
    EXPECT_FALSE(FreeForOthers(mutex));
    CloseHandle(mutex);
  }
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, kShared);
  EXPECT_TRUE(FreeForOthers(mutex));
  CloseHandle(mutex);
}

TEST(KernelMutexes, NameIsFreeAgainAlsoWhenAnotherThreadThanTheOwnerClosedIt) {
  HANDLE mutex = CreateMutexW(nullptr, TRUE, kShared);
  for (int i = 0; i < 3; ++i) {
    HANDLE next = nullptr;
    DWORD error = 1;
    std::thread([&] {
      CloseHandle(mutex);
      next = CreateMutexW(nullptr, TRUE, kShared);
      error = GetLastError();
      EXPECT_FALSE(FreeForOthers(next));
      EXPECT_TRUE(ReleaseMutex(next));
    }).join();
    EXPECT_EQ(0U, error);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(next, 0));
    mutex = next;
  }
  EXPECT_TRUE(ReleaseMutex(mutex));
  EXPECT_TRUE(FreeForOthers(mutex));
  CloseHandle(mutex);
}

TEST(KernelMutexes, NamesAreCaseSensitiveAndMayHoldAnyCharacterButABackslash) {
  const HANDLE lower = CreateMutexW(nullptr, FALSE, L"wirefoxcontractshared");
  const HANDLE upper = CreateMutexW(nullptr, FALSE, kShared);
  EXPECT_EQ(0U, GetLastError());
  const HANDLE odd = CreateMutexW(nullptr, FALSE, L"../a/b %\u00e9\u4e16 ?*:|");
  EXPECT_NE(nullptr, odd);
  const std::wstring long_name(200, L'\u4e16');
  const HANDLE longer = CreateMutexW(nullptr, FALSE, long_name.c_str());
  EXPECT_NE(nullptr, longer);
  EXPECT_EQ(nullptr, OpenMutexW(SYNCHRONIZE, FALSE, std::wstring(199, L'\u4e16').c_str()));
  const HANDLE local = CreateMutexW(nullptr, FALSE, L"Local\\WirefoxContractShared");
  EXPECT_EQ(183U, GetLastError());
  EXPECT_EQ(nullptr, CreateMutexW(nullptr, FALSE, L"no such\\place"));
  EXPECT_EQ(3U, GetLastError());
  for (const HANDLE handle : {lower, upper, odd, longer, local}) CloseHandle(handle);
}

TEST(KernelMutexes, EndOfTheOwningThreadAbandonsIt) {
  for (const wchar_t* const name : {static_cast<const wchar_t*>(nullptr), kShared}) {
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, name);
    std::thread([&] {
      WaitForSingleObject(mutex, INFINITE);
      WaitForSingleObject(mutex, INFINITE);
    }).join();
    EXPECT_EQ(WAIT_ABANDONED, WaitForSingleObject(mutex, kPatienceMs));
    EXPECT_TRUE(ReleaseMutex(mutex));
    // Told once.
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex, kPatienceMs));
    EXPECT_TRUE(ReleaseMutex(mutex));
    CloseHandle(mutex);
  }
}

TEST(KernelMutexes, ThreadsExcludeEachOther) {
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, kShared);
  constexpr int kRounds = 3000;
  int count = 0;  // guarded by the mutex alone
  std::thread threads[3];
  for (std::thread& thread : threads) {
    thread = std::thread([&] {
      for (int i = 0; i < kRounds; ++i) {
        WaitForSingleObject(mutex, INFINITE);
        ++count;
        ReleaseMutex(mutex);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(3 * kRounds, count);
  CloseHandle(mutex);
}

// A thread that gives the mutex up and wants it back at once must not keep it from one that waits.
TEST(KernelMutexes, ReleaseHandsItToTheThreadThatWaits) {
  const HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
  const HANDLE had_it = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  std::thread waiter([&] {
    WaitForSingleObject(mutex, INFINITE);
    SetEvent(had_it);
    ReleaseMutex(mutex);
  });
  DWORD result = WAIT_TIMEOUT;
  for (const DWORD start = GetTickCount();
       result == WAIT_TIMEOUT && GetTickCount() - start < kPatienceMs;) {
    ReleaseMutex(mutex);
    WaitForSingleObject(mutex, INFINITE);
    result = WaitForSingleObject(had_it, 0);
  }
  EXPECT_EQ(WAIT_OBJECT_0, result);
  ReleaseMutex(mutex);
  waiter.join();
  CloseHandle(mutex);
  CloseHandle(had_it);
}

// Run in a process of its own by the test below: takes the shared mutex twice, and ends with it
// when it gets the gate.
TEST(KernelMutexesOtherProcess, DISABLED_TakesTheSharedMutexAndEndsAtTheGate) {
  const HANDLE gate = OpenMutexW(SYNCHRONIZE, FALSE, kGate);
  ASSERT_NE(nullptr, gate);
  const HANDLE shared = CreateMutexW(nullptr, FALSE, kShared);
  WaitForSingleObject(shared, INFINITE);
  WaitForSingleObject(shared, INFINITE);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(gate, kPatienceMs));
}

TEST(KernelMutexes, NamedOneExcludesOtherProcessesAndIsAbandonedWhenItsOwnerEnds) {
  const HANDLE gate = CreateMutexW(nullptr, TRUE, kGate);
  ASSERT_EQ(nullptr, OpenMutexW(SYNCHRONIZE, FALSE, kShared));

  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::string command;
  for (const wchar_t* c = path; *c; ++c) command += static_cast<char>(*c);
  command +=
      " --gtest_also_run_disabled_tests --gtest_brief=1"
      " --gtest_filter=KernelMutexesOtherProcess.*";
  int exit_status = -1;
  std::thread child([&] { exit_status = std::system(command.c_str()); });

  HANDLE shared = nullptr;
  bool held = false;
  for (const DWORD start = GetTickCount(); !held && GetTickCount() - start < kPatienceMs;) {
    if (!shared) shared = OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, kShared);
    if (shared) {
      held = WaitForSingleObject(shared, 0) == WAIT_TIMEOUT;
      if (!held) ReleaseMutex(shared);
    }
    if (!held) Sleep(1);
  }
  EXPECT_TRUE(held);
  EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(shared, 30));
  CloseHandle(CreateMutexW(nullptr, TRUE, kShared));
  EXPECT_EQ(183U, GetLastError());
  ReleaseMutex(gate);
  EXPECT_EQ(WAIT_ABANDONED, WaitForSingleObject(shared, kPatienceMs));
  child.join();
  EXPECT_EQ(0, exit_status);
  ReleaseMutex(shared);
  EXPECT_TRUE(FreeForOthers(shared));
  CloseHandle(shared);
  CloseHandle(gate);
}

}  // namespace
