#include "config/device_table.h"

#include <windows.h>

#include <atomic>
#include <thread>

#include "support/handle.h"
#include "tests/unit/config/configure_fixture.h"
#include "tests/unit/eventually.h"

namespace {

// Takes the lock on a thread of its own.
struct OtherThread {
  ~OtherThread() { thread.join(); }
  bool HasTakenIt() {
    return unit::Eventually([&] { return taken.load(); });
  }

  std::atomic<bool> taken = false;
  std::thread thread{[this] {
    const DeviceTableGuard guard;
    taken = true;
  }};
};

using DeviceTableTest = ConfigureTest;

TEST_F(DeviceTableTest, NamesAreComparedWholeAndSessionHandlesSignExtended) {
  EXPECT_EQ(nullptr, FindProbeByName(L"")) << "in an empty table";
  bus_.SetDevices({a_, b_, c_});
  evk_.ConfigureNewDevices(enumerator_);
  const std::vector<ProbeEntry*> entries = ListProbeEntries();
  entries[0]->name = L"";
  entries[1]->name = entries[2]->name = L"Twin";
  EXPECT_EQ(entries[0], FindProbeByName(L""));
  EXPECT_EQ(entries[1], FindProbeByName(L"Twin"));
  for (const wchar_t* name : {L"twin", L"Twi", L"Twins", L"Twin "}) {
    EXPECT_EQ(nullptr, FindProbeByName(name)) << name;
  }
  EXPECT_EQ(nullptr, FindProbeByName(nullptr));

  const auto as_handle = [](std::uintptr_t value) { return reinterpret_cast<HANDLE>(value); };
  entries[0]->targets = {TargetRecord{}, TargetRecord{}};
  entries[1]->targets = {TargetRecord{}, TargetRecord{1, as_handle(0x80000004), 5},
                         TargetRecord{2, as_handle(0x124), 5}};
  EXPECT_EQ(entries[1], FindProbeByHandle(0x124));
  EXPECT_EQ(entries[1], FindProbeByHandle(-0x7FFFFFFC));
  const std::int64_t unknown[] = {0x80000004, 0x100000124, 0, -1, 0x125};
  for (const std::int64_t session : unknown) {
    EXPECT_EQ(nullptr, FindProbeByHandle(session)) << session;
  }
  entries[1]->targets.clear();
}

TEST(DeviceTableLock, IsHadByOneAtATime) {
  const unit::LogFile log(LOG_ERROR);
  {
    // Something else has the mutex's name.
    KernelHandle squatter(CreateEventW(nullptr, TRUE, FALSE, L"WfxDeviceLock"));
    ASSERT_TRUE(squatter);
    OtherThread other;
    EXPECT_TRUE(unit::Eventually([&] { return !log.Lines().empty(); }));
    EXPECT_FALSE(other.taken);
    squatter.Reset();
    EXPECT_TRUE(other.HasTakenIt());
  }
  // From a holder that ended, to be free again afterwards.
  KernelHandle kept;
  std::thread([&] { kept.Reset(LockDeviceTable()); }).join();
  for (int turn = 0; turn < 2; ++turn) EXPECT_TRUE(OtherThread().HasTakenIt());
  // It is to be released as often as taken.
  const HANDLE first = LockDeviceTable();
  UnlockDeviceTable(LockDeviceTable());
  OtherThread other;
  EXPECT_FALSE(other.taken);
  UnlockDeviceTable(first);
  EXPECT_TRUE(other.HasTakenIt());
  EXPECT_EQ((std::vector<std::string>{"[LockDeviceTable]Error 6 occured."}), log.Lines());
}

}  // namespace
