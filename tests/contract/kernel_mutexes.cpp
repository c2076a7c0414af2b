#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <string>
#include <thread>

#include "tests/contract/kernel_handles.h"
#include "tests/support/process.h"

namespace {

using contract::ErrorOf;
using contract::Handle;
using contract::kPatienceMs;

constexpr wchar_t kShared[] = L"WirefoxContractShared";
constexpr wchar_t kGate[] = L"WirefoxContractGate";

HANDLE Mutex(LPCWSTR name, BOOL owned = FALSE) { return CreateMutexW(nullptr, owned, name); }

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
    const Handle mutex = Mutex(name, TRUE);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex, 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex, INFINITE));
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_FALSE(FreeForOthers(mutex));
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_TRUE(FreeForOthers(mutex));
    EXPECT_EQ(288U, ErrorOf(ReleaseMutex(mutex)));
  }
}

TEST(KernelMutexes, OnlyTheOwnerReleasesIt) {
  const Handle mutex = Mutex(nullptr, TRUE);
  std::thread([&] { EXPECT_EQ(288U, ErrorOf(ReleaseMutex(mutex))); }).join();
  EXPECT_FALSE(FreeForOthers(mutex));
  ReleaseMutex(mutex);
}

TEST(KernelMutexes, ExistingNameGivesAnotherHandleAndNoOwnership) {
  const Handle first = Mutex(kShared);
  EXPECT_EQ(0U, GetLastError());
  const Handle second = Mutex(kShared, TRUE);
  EXPECT_EQ(183U, GetLastError());
  EXPECT_NE(HANDLE{first}, HANDLE{second});
  EXPECT_FALSE(ReleaseMutex(second));
  const Handle third = OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, kShared);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(third, 0));
  EXPECT_TRUE(ReleaseMutex(first));  // one object behind all of them
}

TEST(KernelMutexes, NameIsFreeAgainWhenItsLastHandleIsClosed) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(2U, ErrorOf(OpenMutexW(SYNCHRONIZE, FALSE, kShared)));
    // Closed by its owner without a release: nobody is left to own it.
    const Handle mutex = Mutex(kShared, TRUE);
    EXPECT_EQ(0U, GetLastError());
    EXPECT_FALSE(FreeForOthers(mutex));
  }
  const Handle mutex = Mutex(kShared);
  EXPECT_TRUE(FreeForOthers(mutex));
}

TEST(KernelMutexes, NameIsFreeAgainAlsoWhenAnotherThreadThanTheOwnerClosedIt) {
  HANDLE mutex = Mutex(kShared, TRUE);
  for (int i = 0; i < 3; ++i) {
    std::thread([&] {
      CloseHandle(mutex);
      mutex = Mutex(kShared, TRUE);
      EXPECT_EQ(0U, GetLastError());
      EXPECT_FALSE(FreeForOthers(mutex));
      EXPECT_TRUE(ReleaseMutex(mutex));
    }).join();
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex, 0));
  }
  EXPECT_TRUE(ReleaseMutex(mutex));
  EXPECT_TRUE(FreeForOthers(mutex));
  CloseHandle(mutex);
}

TEST(KernelMutexes, NamesAreCaseSensitiveAndMayHoldAnyCharacterButABackslash) {
  const Handle lower = Mutex(L"wirefoxcontractshared");
  const Handle upper = Mutex(kShared);
  EXPECT_EQ(0U, GetLastError());
  const Handle odd = Mutex(L"../a/b %\u00e9\u4e16 ?*:|");
  EXPECT_NE(nullptr, HANDLE{odd});
  const Handle longer = Mutex(std::wstring(200, L'\u4e16').c_str());
  EXPECT_NE(nullptr, HANDLE{longer});
  EXPECT_EQ(nullptr, OpenMutexW(SYNCHRONIZE, FALSE, std::wstring(199, L'\u4e16').c_str()));
  const Handle local = Mutex(L"Local\\WirefoxContractShared");
  EXPECT_EQ(183U, GetLastError());
  EXPECT_EQ(3U, ErrorOf(Mutex(L"no such\\place")));
}

TEST(KernelMutexes, EndOfTheOwningThreadAbandonsIt) {
  for (const wchar_t* const name : {static_cast<const wchar_t*>(nullptr), kShared}) {
    const Handle mutex = Mutex(name);
    std::thread([&] {
      WaitForSingleObject(mutex, INFINITE);
      WaitForSingleObject(mutex, INFINITE);
    }).join();
    EXPECT_EQ(WAIT_ABANDONED, WaitForSingleObject(mutex, kPatienceMs));
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex, kPatienceMs)) << "told once";
    EXPECT_TRUE(ReleaseMutex(mutex));
  }
}

// A thread that gives the mutex up and wants it back at once must not keep it from one that waits.
TEST(KernelMutexes, ReleaseHandsItToTheThreadThatWaits) {
  const Handle mutex = Mutex(nullptr, TRUE);
  const Handle had_it = contract::AutoResetEvent();
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
}

// Run in a process of its own by the test below: takes the shared mutex twice, and ends with it
// when it gets the gate.
TEST(KernelMutexesOtherProcess, DISABLED_TakesTheSharedMutexAndEndsAtTheGate) {
  const HANDLE gate = OpenMutexW(SYNCHRONIZE, FALSE, kGate);
  ASSERT_NE(nullptr, gate);
  const HANDLE shared = Mutex(kShared);
  WaitForSingleObject(shared, INFINITE);
  WaitForSingleObject(shared, INFINITE);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(gate, kPatienceMs));
}

// Once the other process has made the shared mutex and holds it; null when it never does.
HANDLE SharedMutexThatIsHeld() {
  HANDLE shared = nullptr;
  const bool is_held = support::WaitUntil([&] {
    if (!shared) shared = OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, kShared);
    return shared && (WaitForSingleObject(shared, 0) == WAIT_TIMEOUT || !ReleaseMutex(shared));
  });
  return is_held ? shared : nullptr;
}

TEST(KernelMutexes, NamedOneExcludesOtherProcessesAndIsAbandonedWhenItsOwnerEnds) {
  const Handle gate = Mutex(kGate, TRUE);
  ASSERT_EQ(nullptr, OpenMutexW(SYNCHRONIZE, FALSE, kShared));

  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  support::Process child({std::filesystem::path(path).string(), "--gtest_also_run_disabled_tests",
                          "--gtest_filter=KernelMutexesOtherProcess.*"});
  const Handle shared = SharedMutexThatIsHeld();
  EXPECT_NE(nullptr, HANDLE{shared});
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(shared, 30));
  CloseHandle(Mutex(kShared, TRUE));
  EXPECT_EQ(183U, GetLastError());
  ReleaseMutex(gate);
  EXPECT_EQ(WAIT_ABANDONED, WaitForSingleObject(shared, kPatienceMs));
  EXPECT_EQ(0, child.Wait()) << child.ReadAll();
  ReleaseMutex(shared);
  EXPECT_TRUE(FreeForOthers(shared));
}

}  // namespace
