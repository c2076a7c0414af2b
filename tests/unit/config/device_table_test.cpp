#include "config/device_table.h"

#include <windows.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "support/handle.h"
#include "tests/unit/config/configure_fixture.h"

namespace {

// Waits for a thing that another thread does, with a bound.
bool Eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

class DeviceTableTest : public ConfigureTest {
 protected:
  // Entries of the Evk family without devices on a bus.
  void Fill(const std::vector<const wchar_t*>& names) {
    const std::uint16_t product = NewProduct();
    Set(product, "EVKDEVICE", "CONFIGURED");
    std::vector<unit::ScriptedDevice> devices;
    for (std::size_t i = 0; i < names.size(); ++i) {
      devices.push_back(Device(product, "DEVICE" + std::to_string(i)));
    }
    bus_.SetDevices(devices);
    CTzUSBDevice enumerator(kProbeDriverInterface, false);
    configurators_.Add<CTzEvkConfigure>().ConfigureNewDevices(enumerator);
    for (std::size_t i = 0; i < names.size(); ++i) ListProbeEntries()[i]->name = names[i];
  }
};

TEST_F(DeviceTableTest, EmptyTableFindsNothing) {
  EXPECT_TRUE(ListProbeEntries().empty());
  EXPECT_EQ(nullptr, FindProbeByName(L""));
  EXPECT_EQ(nullptr, FindProbeByHandle(4));
}

TEST_F(DeviceTableTest, NamesAreComparedWhole) {
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
  struct Case {
    std::int64_t session;
    ProbeEntry* found;
  };
  const Case cases[] = {
      {0x124, b},   {-0x7FFFFFFC, b}, {0x80000004, nullptr}, {0x100000124, nullptr},
      {0, nullptr}, {-1, nullptr},    {0x125, nullptr},
  };
  for (const Case& c : cases) EXPECT_EQ(c.found, FindProbeByHandle(c.session)) << c.session;
}

TEST_F(DeviceTableTest, LockIsFreeWhenReleasedAsOftenAsTaken) {
  const HANDLE first = LockDeviceTable();
  const HANDLE second = LockDeviceTable();
  UnlockDeviceTable(second);
  std::atomic<bool> taken = false;
  std::thread other([&] {
    const DeviceTableGuard guard;
    taken = true;
  });
  EXPECT_FALSE(taken);
  UnlockDeviceTable(first);
  EXPECT_TRUE(Eventually([&] { return taken.load(); }));
  other.join();
}

TEST(DeviceTableLock, NobodyGoesOnWithoutIt) {
  const unit::LogFile log(LOG_ERROR);
  // Something else has the mutex's name.
  KernelHandle squatter(CreateEventW(nullptr, TRUE, FALSE, L"WfxDeviceLock"));
  ASSERT_TRUE(squatter);
  std::atomic<bool> taken = false;
  std::thread other([&] {
    const DeviceTableGuard guard;
    taken = true;
  });
  EXPECT_TRUE(Eventually([&] { return !log.Lines().empty(); }));
  EXPECT_FALSE(taken);
  squatter.Reset();
  EXPECT_TRUE(Eventually([&] { return taken.load(); }));
  other.join();
  EXPECT_EQ((std::vector<std::string>{"[LockDeviceTable]Error 6 occured."}), log.Lines());
}

}  // namespace
