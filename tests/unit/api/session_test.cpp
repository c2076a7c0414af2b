// The list of probes, and sessions on targets: acquiring, releasing, owners, and the sweep of dead
// ones.
#include <functional>
#include <map>

#include "tests/unit/api/api_fixture.h"

namespace {

class Sessions : public ApiTest {
 protected:
  // An outcome, and the table that it leaves. Handles are letters in the order of their coming.
  std::string Acquired(const wchar_t* probe, LONG target, LONG pid = OwnPid()) {
    std::string outcome = NameOf(Acquire(probe, target, pid));
    if (handle_ != 0) outcome.append(" ").append(Letter(handle_));
    return With(outcome);
  }
  std::string Released(char letter) {
    const auto found =
        std::ranges::find(letters_, letter, [](auto& known) { return known.second; });
    return With(NameOf(Release(found != letters_.end() ? found->first : 0)));
  }
  std::string Listed() { return With(std::to_string(Probes().size()) + " probes"); }

  std::string With(const std::string& outcome) { return outcome + Table(); }
  // " | " for each probe, then its targets' owners: none, this process ("own"), kOther ("other")
  // or another, with the letter of the session's handle.
  std::string Table() {
    const std::map<std::uint32_t, std::string> names = {
        {0, "none"}, {OwnPid(), "own"}, {kOther, "other"}};
    std::string text;
    for (const ProbeEntry* probe : family_.GetConfiguredDevices()) {
      text += " |";
      for (const TargetRecord& target : probe->targets) {
        const auto name = names.find(target.ownerPID);
        text += ' ';
        text += name != names.end() ? name->second : std::to_string(target.ownerPID);
        if (target.sessionMutex) text += Letter(SessionHandleOf(target.sessionMutex));
      }
    }
    return text;
  }

  struct Step {
    std::function<std::string()> call;
    const char* told;
  };
  static void ExpectSteps(const std::vector<Step>& steps) {
    for (std::size_t i = 0; i < steps.size(); ++i) EXPECT_EQ(steps[i].call(), steps[i].told) << i;
  }

 private:
  std::string Letter(std::int64_t handle) {
    const auto next = static_cast<char>('A' + letters_.size());
    return {letters_.try_emplace(handle, next).first->second};
  }

  std::map<std::int64_t, char> letters_;
};

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

TEST_F(Sessions, BelongToOneTargetAndOneProcessUntilTheyAreReleased) {
  SetTargets(AddProbe(L"P1"), {0x11, 0x22});
  SetTargets(AddProbe(L"P2"), {0x33});
  AddProbe(L"NoTargets");
  ExpectSteps({
      {[&] { return Acquired(L"P1", 1); }, "SUCCESS A | none ownA | none |"},
      {[&] { return Acquired(L"P1", 1); }, "SUCCESS A | none ownA | none |"},
      {[&] { return Acquired(L"P1", 0); }, "SUCCESS B | ownB ownA | none |"},
      {[&] { return Acquired(L"P2", 0, kOther); }, "SUCCESS C | ownB ownA | otherC |"},
      {[&] { return Acquired(L"P2", 0); }, "IN_USE | ownB ownA | otherC |"},
      {[&] { return Acquired(L"P1", 0, kOther); }, "IN_USE | ownB ownA | otherC |"},
      {[&] { return Acquired(L"P1", 2); }, "INVALID_DEVICE | ownB ownA | otherC |"},
      {[&] { return Acquired(L"P1", -1); }, "INVALID_DEVICE | ownB ownA | otherC |"},
      {[&] { return Acquired(L"P3", 0); }, "INVALID_DEVICE | ownB ownA | otherC |"},
      {[&] { return Acquired(L"NoTargets", 0); }, "INVALID_DEVICE | ownB ownA | otherC |"},
      {[&] { return Acquired(L"P1", 0, 5); }, "INVALID_PARAM | ownB ownA | otherC |"},
      {[&] { return Acquired(L"P3", 0, 5); }, "INVALID_PARAM | ownB ownA | otherC |"},
      {[&] { return Released('A'); }, "SUCCESS | ownB none | otherC |"},
      {[&] { return Released('A'); }, "NOT_ACQUIRED | ownB none | otherC |"},
      {[&] { return Released('-'); }, "NOT_ACQUIRED | ownB none | otherC |"},
      // The handle alone counts: whoever has it may release.
      {[&] { return Released('C'); }, "SUCCESS | ownB none | none |"},
      // A client may still hold the old handles.
      {[&] { return Acquired(L"P2", 0); }, "SUCCESS D | ownB none | ownD |"},
      {[&] { return Acquired(L"P1", 1, kOther); }, "SUCCESS E | ownB otherE | ownD |"},
      // The idle process owns nothing; its session may be taken over.
      {[&] { return Released('D'); }, "SUCCESS | ownB otherE | none |"},
      {[&] { return Acquired(L"P2", 0, 0); }, "SUCCESS F | ownB otherE | noneF |"},
      {[&] { return Listed(); }, "3 probes | ownB otherE | noneF |"},
      {[&] { return Acquired(L"P2", 0); }, "SUCCESS F | ownB otherE | ownF |"},
      // The end of the object releases no target.
      {[&] { return With(std::to_string(std::exchange(object_, nullptr)->Release())); },
       "0 | ownB otherE | ownF |"},
  });
}

TEST_F(Sessions, OfEndedProcessesAreSweptOnAllProbesByAnAcquisitionOrAListingAndByNothingElse) {
  const DWORD own = GetCurrentProcessId();
  SetTargets(AddProbe(L"P1"), {0x11, 0x22});
  SetTargets(AddProbe(L"P2"), {0x33, 0x44});
  const auto processes = [&](std::optional<std::vector<DWORD>> running) {
    running_processes = std::move(running);
    return Table();
  };
  const auto acquire_all = [&] {
    for (const LONG target : {0, 1}) {
      EXPECT_EQ(Acquire(L"P1", target, 6 + target), TzErrorCode::SUCCESS);
      EXPECT_EQ(Acquire(L"P2", target, target == 0 ? 6 : OwnPid()), TzErrorCode::SUCCESS);
    }
    return Table();
  };
  const auto set_voltage = [&] {
    object_->SetVTarg(Text(L"P2"), TzVTargVoltage::VTARG_3_3, 1, OwnPid(), &error_);
    return NameOf(error_) + Table();
  };
  // The system's list is looked at as far as 1024 ids: this one's last two are 6 and then 7.
  std::vector<DWORD> many(1022, own);
  many.insert(many.end(), {kOther, 6, 7});
  ExpectSteps({
      {[&] {
         return processes({{own, 6, 7}});
       },
       " | none none | none none"},
      {acquire_all, " | 6A 7B | 6C ownD"},
      {[&] {
         return processes({{own, 7}});
       },
       " | 6A 7B | 6C ownD"},
      {set_voltage, "IN_USE | 6A 7B | 6C ownD"},
      {[&] { return Acquired(L"P1", 0, 6); }, "INVALID_PARAM | 6A 7B | 6C ownD"},
      {[&] { return Listed(); }, "2 probes | none 7B | none ownD"},
      {set_voltage, "SUCCESS | none 7B | none ownD"},
      {[&] {
         return processes({{own, 6, 7}});
       },
       " | none 7B | none ownD"},
      {acquire_all, " | 6E 7B | 6F ownD"},
      {[&] { return processes({{own}}); }, " | 6E 7B | 6F ownD"},
      {[&] { return Acquired(L"P3", 0); }, "INVALID_DEVICE | none none | none ownD"},
      {[&] { return processes(many); }, " | none none | none ownD"},
      {[&] { return Acquired(L"P1", 0, 6); }, "SUCCESS G | 6G none | none ownD"},
      {[&] { return Acquired(L"P1", 1, 7); }, "INVALID_PARAM | 6G none | none ownD"},
      {[&] { return processes({}); }, " | 6G none | none ownD"},
      // Where the system cannot tell, all run.
      {[&] { return Acquired(L"P1", 1, 9); }, "SUCCESS H | 6G 9H | none ownD"},
      {[&] { return Listed(); }, "2 probes | 6G 9H | none ownD"},
      {[&] { return processes({{own}}); }, " | 6G 9H | none ownD"},
      // Nothing answers there, so that probe's sessions end.
      {[&] { return With(std::to_string(Targets(L"P2").size())); }, "0 | 6G 9H |"},
  });
}

TEST_F(Sessions, NamesOfAnyFormWorkAndTheFirstOfTwoIsMeant) {
  SetTargets(AddProbe(L"P1"), {0x11});
  // Names that are shorter than the target's index, or hold what separates names of mutexes.
  for (const wchar_t* name : {L"P1", L"", L"AB", L"Global\\A\\/B"}) {
    SetTargets(AddProbe(name), {1, 2, 3, 4});
  }
  EXPECT_EQ(Acquire(L"P1", 1), TzErrorCode::INVALID_DEVICE);
  EXPECT_EQ(Acquire(L"P1", 0), TzErrorCode::SUCCESS);
  EXPECT_EQ(Acquire(nullptr, 0), TzErrorCode::SUCCESS) << "a null name is the empty one";
  EXPECT_EQ(Acquire(L"AB", 3), TzErrorCode::SUCCESS);
  EXPECT_EQ(Acquire(L"AB", 2), TzErrorCode::SUCCESS);
  EXPECT_EQ(Acquired(L"Global\\A\\/B", 0),
            "SUCCESS A | ownB | none none none none | ownC none none none | none none ownD ownE | "
            "ownA none none none");
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
  SetTargets(AddProbe(L"NameTaken"), {0x11});
  // An object of another kind has the name.
  const HANDLE taken = CreateEventW(nullptr, TRUE, FALSE, L"TzWirefoxSession_NameTaken");
  ASSERT_NE(taken, nullptr);
  EXPECT_EQ(Acquired(L"NameTaken", 0), "UNKNOWN | none");
  CloseHandle(taken);
}

}  // namespace
