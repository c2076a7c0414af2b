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

class DeviceTableTest : public ConfigureTest {
 protected:
  // Entries of the Evk family without devices on a bus.
  void Fill(const std::vector<const wchar_t*>& names) {
    const std::uint16_t product = NewEvkProduct();
    std::vector<unit::ScriptedDevice> devices;
    for (std::size_t i = 0; i < names.size(); ++i) {
      devices.push_back(Device(product, "DEVICE" + std::to_string(i)));
    }
    bus_.SetDevices(devices);
    CTzUSBDevice enumerator(kProbeDriverInterface, false);
    Add<CTzEvkConfigure>().ConfigureNewDevices(enumerator);
    for (std::size_t i = 0; i < names.size(); ++i) ListProbeEntries()[i]->name = names[i];
  }
};

TEST_F(DeviceTableTest, NamesAreComparedWhole) {
  EXPECT_EQ(nullptr, FindProbeByName(L"")) << "in an empty table";
  Fill({L"WFX1", L"", L"Twin", L"Twin"});
  const std::vector<ProbeEntry*> entries = ListProbeEntries();
  EXPECT_EQ(entries[0], FindProbeByName(L"WFX1"));
  EXPECT_EQ(entries[1], FindProbeByName(L""));
  EXPECT_EQ(entries[2], FindProbeByName(L"Twin"));
  for (const wchar_t* name : {L"wfx1", L"WFX", L"WFX11", L"WFX1 "}) {
    EXPECT_EQ(nullptr, FindProbeByName(name)) << name;
  }
  EXPECT_EQ(nullptr, FindProbeByName(nullptr));
}

TEST_F(DeviceTableTest, SessionHandlesAreSignExtended) {
  Fill({L"A", L"B"});
  const auto as_handle = [](std::uintptr_t value) { return reinterpret_cast<HANDLE>(value); };
  ListProbeEntries()[0]->targets = {TargetRecord{}, TargetRecord{}};
  ListProbeEntries()[1]->targets = {TargetRecord{}, TargetRecord{1, as_handle(0x80000004), 5},
                                    TargetRecord{2, as_handle(0x124), 5}};
  ProbeEntry* const b = ListProbeEntries()[1];
  const std::int64_t known[] = {0x124, -0x7FFFFFFC};
  for (const std::int64_t session : known) EXPECT_EQ(b, FindProbeByHandle(session)) << session;
  const std::int64_t unknown[] = {0x80000004, 0x100000124, 0, -1, 0x125};
  for (const std::int64_t session : unknown) {
    EXPECT_EQ(nullptr, FindProbeByHandle(session)) << session;
  }
}

TEST(DeviceTableLock, IsTakenFromAHolderThatEndedAndIsFreeAgainAfterwards) {
  const unit::LogFile log(LOG_ERROR);
  KernelHandle kept;
  std::thread([&] { kept.Reset(LockDeviceTable()); }).join();
  for (int turn = 0; turn < 2; ++turn) EXPECT_TRUE(OtherThread().HasTakenIt());
  EXPECT_EQ(std::vector<std::string>{}, log.Lines());
}

TEST(DeviceTableLock, IsFreeWhenReleasedAsOftenAsTaken) {
  const HANDLE first = LockDeviceTable();
  const HANDLE second = LockDeviceTable();
  UnlockDeviceTable(second);
  OtherThread other;
  EXPECT_FALSE(other.taken);
  UnlockDeviceTable(first);
  EXPECT_TRUE(other.HasTakenIt());
}

TEST(DeviceTableLock, NobodyGoesOnWithoutIt) {
  const unit::LogFile log(LOG_ERROR);
  // Something else has the mutex's name.
  KernelHandle squatter(CreateEventW(nullptr, TRUE, FALSE, L"WfxDeviceLock"));
  ASSERT_TRUE(squatter);
  OtherThread other;
  EXPECT_TRUE(unit::Eventually([&] { return !log.Lines().empty(); }));
  EXPECT_FALSE(other.taken);
  squatter.Reset();
  EXPECT_TRUE(other.HasTakenIt());
  EXPECT_EQ((std::vector<std::string>{"[LockDeviceTable]Error 6 occured."}), log.Lines());
}

}  // namespace
