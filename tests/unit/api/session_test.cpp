// Sessions on targets: acquiring, releasing, owners, and the sweep of dead ones.
#include "api/session_owner.h"
#include "tests/unit/api/api_fixture.h"
#include "tests/unit/api/child_process.h"

namespace {

class Sessions : public ApiTest {
 protected:
  TzErrorCode AcquireFor(const wchar_t* probe, LONG target, LONG pid) {
    handle_ = -1;
    EXPECT_EQ(object_->AcquireDevice(Text(probe), target, pid, &handle_, &error_), S_OK);
    return error_;
  }

  TzErrorCode Release(std::int64_t handle) {
    EXPECT_EQ(object_->ReleaseDevice(handle, &error_), S_OK);
    return error_;
  }

  std::int64_t handle_ = 0;
};

TEST_F(Sessions, SameProcessAcquiringAgainGetsTheSameHandle) {
  SetTargets(AddProbe(L"P1"), {0x11, 0x22});
  ASSERT_EQ(AcquireFor(L"P1", 1, OwnPid()), TzErrorCode::SUCCESS);
  const std::int64_t first = handle_;
  EXPECT_NE(first, 0);
  EXPECT_EQ(AcquireFor(L"P1", 1, OwnPid()), TzErrorCode::SUCCESS);
  EXPECT_EQ(handle_, first);
  EXPECT_EQ(AcquireFor(L"P1", 0, OwnPid()), TzErrorCode::SUCCESS);
  EXPECT_NE(handle_, first);
}

TEST_F(Sessions, WhatCannotBeAcquiredIsRefusedWithoutAHandle) {
  SetTargets(AddProbe(L"P1"), {0x11});
  AddProbe(L"NoTargets");
  family_.Add(nullptr, L"NoDevice").targets.resize(1);
  ChildProcess ended;
  const auto ended_pid = static_cast<LONG>(ended.Id());
  ended.End();

  const struct {
    const wchar_t* probe;
    LONG target;
    LONG pid;
    TzErrorCode expected;
  } kCases[] = {
      {L"P2", 0, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"p1", 0, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"P", 0, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"", 0, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"P1", 1, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"P1", -1, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"NoTargets", 0, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"NoDevice", 0, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"P1", 0, ended_pid, TzErrorCode::INVALID_PARAM},
      {L"P2", 0, ended_pid, TzErrorCode::INVALID_PARAM},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(testing::Message() << test.probe << " " << test.target << " " << test.pid);
    log_.Take();
    EXPECT_EQ(AcquireFor(test.probe, test.target, test.pid), test.expected);
    EXPECT_EQ(handle_, 0);
    EXPECT_EQ(log_.Take(), Failure("AcquireDevice", test.expected));
  }
}

TEST_F(Sessions, NullNameIsTheEmptyName) {
  SetTargets(AddProbe(L""), {0x11});
  EXPECT_EQ(object_->AcquireDevice(nullptr, 0, OwnPid(), &handle_, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
}

TEST_F(Sessions, FirstOfTwoProbesOfOneNameIsMeant) {
  ProbeEntry& first = AddProbe(L"P1");
  SetTargets(first, {0x11});
  SetTargets(AddProbe(L"P1"), {0x22, 0x33});
  EXPECT_EQ(AcquireFor(L"P1", 0, OwnPid()), TzErrorCode::SUCCESS);
  EXPECT_NE(first.targets[0].sessionMutex, nullptr);
  EXPECT_EQ(AcquireFor(L"P1", 1, OwnPid()), TzErrorCode::INVALID_DEVICE);
}

TEST_F(Sessions, TargetOfAnotherProcessIsInUseUntilReleased) {
  ProbeEntry& probe = AddProbe(L"P1");
  SetTargets(probe, {0x11});
  ChildProcess other;
  ASSERT_EQ(AcquireFor(L"P1", 0, static_cast<LONG>(other.Id())), TzErrorCode::SUCCESS);
  const std::int64_t theirs = handle_;
  EXPECT_EQ(AcquireFor(L"P1", 0, OwnPid()), TzErrorCode::IN_USE);
  EXPECT_EQ(handle_, 0);
  // The handle alone counts: whoever has it may release.
  EXPECT_EQ(Release(theirs), TzErrorCode::SUCCESS);
  EXPECT_EQ(probe.targets[0].ownerPID, 0u);
  EXPECT_EQ(AcquireFor(L"P1", 0, OwnPid()), TzErrorCode::SUCCESS);
  EXPECT_NE(handle_, theirs) << "a handle that a client may still hold was given out again";
}

TEST_F(Sessions, EndOfTheObjectReleasesNoTarget) {
  ProbeEntry& probe = AddProbe(L"P1");
  SetTargets(probe, {0x11});
  const std::int64_t handle = Acquire(probe);
  object_->Release();
  object_ = nullptr;
  EXPECT_EQ(SessionHandleOf(probe.targets[0].sessionMutex), handle);
  EXPECT_EQ(probe.targets[0].ownerPID, static_cast<std::uint32_t>(OwnPid()));
}

// A probe may call itself after the lock of the table; its sessions must not be that lock.
TEST_F(Sessions, ProbeNamedLikeTheTableLockCannotUnlockTheTable) {
  ProbeEntry& probe = AddProbe(L"WfxDeviceLock");
  SetTargets(probe, {0x11});
  const std::int64_t handle = Acquire(probe);
  const HANDLE outer = LockDeviceTable();
  EXPECT_EQ(Release(handle), TzErrorCode::SUCCESS);
  UnlockDeviceTable(outer);
  EXPECT_FALSE(ReleaseMutex(outer)) << "the lock was released less often than taken";
  const HANDLE again = LockDeviceTable();
  UnlockDeviceTable(again);
}

TEST_F(Sessions, NamesShorterThanTheTargetIndexOrWithSeparatorsWork) {
  ProbeEntry& plain = AddProbe(L"AB");
  SetTargets(plain, {1, 2, 3, 4});
  ProbeEntry& odd = AddProbe(L"Global\\A\\/B");
  SetTargets(odd, {1, 2});
  EXPECT_EQ(AcquireFor(L"AB", 3, OwnPid()), TzErrorCode::SUCCESS);
  EXPECT_EQ(AcquireFor(L"AB", 2, OwnPid()), TzErrorCode::SUCCESS);
  EXPECT_EQ(AcquireFor(L"Global\\A\\/B", 0, OwnPid()), TzErrorCode::SUCCESS);
}

TEST_F(Sessions, TargetStaysFreeWhenItsMutexCannotBeCreated) {
  ProbeEntry& probe = AddProbe(L"NameTaken");
  SetTargets(probe, {0x11});
  // An object of another kind has the name.
  const HANDLE taken = CreateEventW(nullptr, TRUE, FALSE, L"TzWirefoxSession_NameTaken");
  ASSERT_NE(taken, nullptr);
  EXPECT_EQ(AcquireFor(L"NameTaken", 0, OwnPid()), TzErrorCode::UNKNOWN);
  EXPECT_EQ(handle_, 0);
  EXPECT_EQ(probe.targets[0].ownerPID, 0u);
  CloseHandle(taken);
}

class DeadOwners : public Sessions {
 protected:
  DeadOwners() : probe_(AddProbe(L"P1")) {
    SetTargets(probe_, {0x11, 0x22, 0x33});
    EXPECT_EQ(AcquireFor(L"P1", 0, static_cast<LONG>(child_.Id())), TzErrorCode::SUCCESS);
    EXPECT_EQ(AcquireFor(L"P1", 1, OwnPid()), TzErrorCode::SUCCESS);
    own_handle_ = handle_;
    child_.End();
  }

  std::vector<std::uint32_t> Owners() {
    std::vector<std::uint32_t> owners;
    for (const TargetRecord& target : probe_.targets) owners.push_back(target.ownerPID);
    return owners;
  }

  ProbeEntry& probe_;
  ChildProcess child_;
  std::int64_t own_handle_ = 0;
};

TEST_F(DeadOwners, BlockConfigurationUntilAClientListsTheProbes) {
  EXPECT_EQ(object_->SetVTarg(Text(L"P1"), TzVTargVoltage::VTARG_3_3, 1, OwnPid(), &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::IN_USE);
  Result names;
  EXPECT_EQ(object_->EnumerateWirefoxs(&names, &error_), S_OK);
  EXPECT_EQ(Owners(), (std::vector<std::uint32_t>{0, static_cast<std::uint32_t>(OwnPid()), 0}));
  EXPECT_EQ(probe_.targets[0].sessionMutex, nullptr);
  EXPECT_EQ(object_->SetVTarg(Text(L"P1"), TzVTargVoltage::VTARG_3_3, 1, OwnPid(), &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
}

TEST_F(DeadOwners, AreSweptByAnyAcquisition) {
  EXPECT_EQ(AcquireFor(L"Unknown", 0, OwnPid()), TzErrorCode::INVALID_DEVICE);
  EXPECT_EQ(Owners(), (std::vector<std::uint32_t>{0, static_cast<std::uint32_t>(OwnPid()), 0}));
  EXPECT_EQ(Release(own_handle_), TzErrorCode::SUCCESS);
}

TEST_F(DeadOwners, AreNotSweptByAcquisitionsOfProcessesThatDoNotRun) {
  const auto before = Owners();
  EXPECT_EQ(AcquireFor(L"P1", 0, static_cast<LONG>(before[0])), TzErrorCode::INVALID_PARAM);
  EXPECT_EQ(Owners(), before);
}

TEST(ProcessSnapshot, ListsThisProcessAndNotOneThatHasEnded) {
  ChildProcess child;
  const std::uint32_t pid = child.Id();
  EXPECT_TRUE(api::ProcessSnapshot().Lists(pid));
  child.End();
  const api::ProcessSnapshot running;
  ASSERT_TRUE(running.taken());
  EXPECT_TRUE(running.Lists(static_cast<std::uint32_t>(OwnPid())));
  EXPECT_FALSE(api::IsProcessAlive(running, pid));
}

TEST_F(Sessions, ProcessIdZeroOwnsNothing) {
  if (!api::ProcessSnapshot().Lists(0)) GTEST_SKIP() << "this host does not list process id 0";
  ProbeEntry& probe = AddProbe(L"P1");
  SetTargets(probe, {0x11});
  ASSERT_EQ(AcquireFor(L"P1", 0, 0), TzErrorCode::SUCCESS);
  const std::int64_t unowned = handle_;
  EXPECT_NE(unowned, 0);
  ChildProcess other;
  EXPECT_EQ(AcquireFor(L"P1", 0, static_cast<LONG>(other.Id())), TzErrorCode::SUCCESS);
  EXPECT_EQ(handle_, unowned);
  EXPECT_EQ(probe.targets[0].ownerPID, other.Id());
}

TEST_F(Sessions, ProbesAreListedInTableOrderAfterBothPasses) {
  AddProbe(L"P2");
  family_.Add(nullptr, L"WithoutDevice");
  family_.Add(nullptr, nullptr);
  AddProbe(L"");
  Result names;
  EXPECT_EQ(object_->EnumerateWirefoxs(&names, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  EXPECT_EQ(names.AsStrings(),
            (std::vector<std::wstring>{L"P2", L"WithoutDevice", L"(null)", L""}));
  EXPECT_EQ(family_.removal_passes, 1);
  EXPECT_EQ(family_.configuration_passes, 1);
  EXPECT_EQ(log_.Take(), std::vector<std::string>{"[CTzWirefox::EnumerateWirefoxs]"});
}

TEST_F(Sessions, EmptyTableGivesAnEmptyList) {
  Result names;
  EXPECT_EQ(object_->EnumerateWirefoxs(&names, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  EXPECT_EQ(names.AsStrings(), std::vector<std::wstring>{});
}

}  // namespace
