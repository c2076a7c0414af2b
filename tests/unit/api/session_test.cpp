// The list of probes, and sessions on targets: acquiring, releasing, owners, and the sweep of dead
// ones.
#include "api/session_owner.h"
#include "tests/unit/api/api_fixture.h"
#include "tests/unit/api/child_process.h"

namespace {

using Sessions = ApiTest;

TEST_F(Sessions, ProbesAreListedInTableOrderAfterBothPasses) {
  EXPECT_EQ(Probes(), Strings{});
  AddProbe(L"P2");
  family_.Add(nullptr, L"WithoutDevice");
  family_.Add(nullptr, nullptr);
  AddProbe(L"");
  EXPECT_EQ(Probes(), (Strings{L"P2", L"WithoutDevice", L"(null)", L""}));
  EXPECT_EQ(family_.removal_passes, 2);
  EXPECT_EQ(family_.configuration_passes, 2);
}

TEST_F(Sessions, SameProcessAcquiringAgainGetsTheSameHandle) {
  SetTargets(AddProbe(L"P1"), {0x11, 0x22});
  ASSERT_EQ(Acquire(L"P1", 1), TzErrorCode::SUCCESS);
  const std::int64_t first = handle_;
  EXPECT_NE(first, 0);
  EXPECT_EQ(Acquire(L"P1", 1), TzErrorCode::SUCCESS);
  EXPECT_EQ(handle_, first);
  EXPECT_EQ(Acquire(L"P1", 0), TzErrorCode::SUCCESS);
  EXPECT_NE(handle_, first);
}

TEST_F(Sessions, WhatCannotBeAcquiredIsRefusedWithoutAHandle) {
  SetTargets(AddProbe(L"P1"), {0x11});
  AddProbe(L"NoTargets");
  ChildProcess ended;
  ended.End();
  const struct {
    const wchar_t* probe;
    LONG target;
    LONG pid;
    TzErrorCode expected;
  } kCases[] = {
      {L"P2", 0, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"P1", 1, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"P1", -1, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"NoTargets", 0, OwnPid(), TzErrorCode::INVALID_DEVICE},
      {L"P1", 0, ended.Id(), TzErrorCode::INVALID_PARAM},
      {L"P2", 0, ended.Id(), TzErrorCode::INVALID_PARAM},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(testing::Message() << test.probe << " " << test.target << " " << test.pid);
    EXPECT_EQ(Acquire(test.probe, test.target, test.pid), test.expected);
    EXPECT_EQ(handle_, 0);
  }
}

TEST_F(Sessions, NamesOfAnyFormWorkAndTheFirstOfTwoIsMeant) {
  ProbeEntry& first = AddProbe(L"P1");
  SetTargets(first, {0x11});
  // Names that are shorter than the target's index, or hold what separates names of mutexes.
  for (const wchar_t* name : {L"P1", L"", L"AB", L"Global\\A\\/B"}) {
    SetTargets(AddProbe(name), {1, 2, 3, 4});
  }
  EXPECT_EQ(Acquire(L"P1", 0), TzErrorCode::SUCCESS);
  EXPECT_NE(first.targets[0].sessionMutex, nullptr);
  EXPECT_EQ(Acquire(L"P1", 1), TzErrorCode::INVALID_DEVICE);
  EXPECT_EQ(Acquire(nullptr), TzErrorCode::SUCCESS) << "a null name is the empty one";
  EXPECT_EQ(Acquire(L"AB", 3), TzErrorCode::SUCCESS);
  EXPECT_EQ(Acquire(L"AB", 2), TzErrorCode::SUCCESS);
  EXPECT_EQ(Acquire(L"Global\\A\\/B", 0), TzErrorCode::SUCCESS);
}

TEST_F(Sessions, TargetOfAnotherProcessIsInUseUntilReleased) {
  ProbeEntry& probe = AddProbe(L"P1");
  SetTargets(probe, {0x11});
  ChildProcess other;
  ASSERT_EQ(Acquire(L"P1", 0, other.Id()), TzErrorCode::SUCCESS);
  const std::int64_t theirs = handle_;
  EXPECT_EQ(Acquire(L"P1"), TzErrorCode::IN_USE);
  EXPECT_EQ(handle_, 0);
  // The handle alone counts: whoever has it may release.
  EXPECT_EQ(Release(theirs), TzErrorCode::SUCCESS);
  EXPECT_EQ(probe.targets[0].ownerPID, 0u);
  EXPECT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
  EXPECT_NE(handle_, theirs) << "a handle that a client may still hold was given out again";
}

TEST_F(Sessions, EndOfTheObjectReleasesNoTarget) {
  ProbeEntry& probe = AddProbe(L"P1");
  SetTargets(probe, {0x11});
  ASSERT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
  object_->Release();
  object_ = nullptr;
  EXPECT_EQ(SessionHandleOf(probe.targets[0].sessionMutex), handle_);
  EXPECT_EQ(probe.targets[0].ownerPID, static_cast<std::uint32_t>(OwnPid()));
}

// A probe may call itself after the lock of the table; its sessions must not be that lock.
TEST_F(Sessions, ProbeNamedLikeTheTableLockCannotUnlockTheTable) {
  SetTargets(AddProbe(L"WfxDeviceLock"), {0x11});
  ASSERT_EQ(Acquire(L"WfxDeviceLock"), TzErrorCode::SUCCESS);
  const DeviceTableGuard lock;
  EXPECT_EQ(Release(handle_), TzErrorCode::SUCCESS);
  EXPECT_TRUE(HoldsTableLock()) << "the lock was released more often than taken";
}

TEST_F(Sessions, TargetStaysFreeWhenItsMutexCannotBeCreated) {
  ProbeEntry& probe = AddProbe(L"NameTaken");
  SetTargets(probe, {0x11});
  // An object of another kind has the name.
  const HANDLE taken = CreateEventW(nullptr, TRUE, FALSE, L"TzWirefoxSession_NameTaken");
  ASSERT_NE(taken, nullptr);
  EXPECT_EQ(Acquire(L"NameTaken"), TzErrorCode::UNKNOWN);
  EXPECT_EQ(handle_, 0);
  EXPECT_EQ(probe.targets[0].ownerPID, 0u);
  CloseHandle(taken);
}

TEST_F(Sessions, ProcessIdZeroOwnsNothing) {
  if (!api::ProcessSnapshot().Lists(0)) GTEST_SKIP() << "this host does not list process id 0";
  ProbeEntry& probe = AddProbe(L"P1");
  SetTargets(probe, {0x11});
  ASSERT_EQ(Acquire(L"P1", 0, 0), TzErrorCode::SUCCESS);
  const std::int64_t unowned = handle_;
  EXPECT_NE(unowned, 0);
  EXPECT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
  EXPECT_EQ(handle_, unowned);
  EXPECT_EQ(probe.targets[0].ownerPID, static_cast<std::uint32_t>(OwnPid()));
}

class DeadOwners : public ApiTest {
 protected:
  DeadOwners() : probe_(AddProbe(L"P1")) {
    SetTargets(probe_, {0x11, 0x22, 0x33});
    EXPECT_EQ(Acquire(L"P1", 0, child_.Id()), TzErrorCode::SUCCESS);
    EXPECT_EQ(Acquire(L"P1", 1), TzErrorCode::SUCCESS);
    child_.End();
  }

  Calls Owners() {
    Calls owners;
    for (const TargetRecord& target : probe_.targets) {
      const auto owner = static_cast<LONG>(target.ownerPID);
      owners.push_back(owner == 0 ? "none" : owner == OwnPid() ? "this" : "dead");
    }
    return owners;
  }

  TzErrorCode SetVTarg() {
    return Outcome(object_->SetVTarg(Text(L"P1"), TzVTargVoltage::VTARG_3_3, 1, OwnPid(), &error_));
  }

  ProbeEntry& probe_;
  ChildProcess child_;
};

TEST_F(DeadOwners, BlockConfigurationUntilAClientListsTheProbes) {
  EXPECT_EQ(SetVTarg(), TzErrorCode::IN_USE);
  Probes();
  EXPECT_EQ(Owners(), (Calls{"none", "this", "none"}));
  EXPECT_EQ(probe_.targets[0].sessionMutex, nullptr);
  EXPECT_EQ(SetVTarg(), TzErrorCode::SUCCESS);
}

TEST_F(DeadOwners, AreSweptByAnyAcquisitionOfAProcessThatRuns) {
  EXPECT_EQ(Acquire(L"P1", 0, child_.Id()), TzErrorCode::INVALID_PARAM);
  EXPECT_EQ(Owners(), (Calls{"dead", "this", "none"}));
  EXPECT_EQ(Acquire(L"Unknown"), TzErrorCode::INVALID_DEVICE);
  EXPECT_EQ(Owners(), (Calls{"none", "this", "none"}));
}

}  // namespace
