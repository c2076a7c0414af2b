// The passes of the configuration objects over what is attached.
#include <windows.h>

#include "tests/unit/config/configure_fixture.h"

namespace {

class PassTest : public ConfigureTest {
 protected:
  unit::ScriptedDevice Wirefox(const char* name, const char* state, const char* kind,
                               const std::string& file) {
    const std::uint16_t product = NewProduct();
    Set(product, "WFXDEVICE", state);
    Set(product, kind, file);
    return Device(product, name);
  }

  bool Configure() { return evk_.ConfigureNewDevices(enumerator_); }
  bool Remove() { return evk_.UpdateState(enumerator_); }

  // At open number `open` from now on the devices become others.
  void ChangeAt(int open, const std::vector<unit::ScriptedDevice>& devices) {
    bus_.OnOpen([this, open, devices](int number) {
      if (number == open) bus_.SetDevices(devices);
    });
  }
};

TEST_F(PassTest, StateIsTheSettingsWord) {
  const std::pair<const char*, std::uint32_t> words[] = {{"CONFIGURED", 2}, {"UNCONFIGURED", 1},
                                                         {"configured", 0}, {"CONFIGURED ", 0},
                                                         {"", 0},           {"\"CONFIGURED\"", 2}};
  for (const auto& [word, state] : words) {
    const std::uint16_t product = NewEvkProduct(word);
    EXPECT_EQ(state, evk_.GetDeviceState(0x0F0F, product)) << word;
    EXPECT_EQ(0U, wfx_.GetDeviceState(0x0F0F, product)) << word;
    EXPECT_EQ(0U, evk_.GetDeviceState(0x0F0E, product)) << word;
  }
}

TEST_F(PassTest, WhatIsDoneWithADeviceIsInTheLog) {
  bus_.SetDevices({a_, Device(NewEvkProduct("UNCONFIGURED"), "F"),
                   Wirefox("P", "CONFIGURED", "FPGA", folder_.Path("missing.bin")),
                   Wirefox("Q", "UNCONFIGURED", "KX7", "missing.hex")});
  EXPECT_TRUE(Configure());
  EXPECT_FALSE(wfx_.ConfigureNewDevices(enumerator_));
  EXPECT_FALSE(Remove());
  const std::string timeouts = R"([CTzDevice::SetTimeout()]endpt=1 timeout=2000
[CTzDevice::SetTimeout()]endpt=129 timeout=1000
[CTzDevice::SetTimeout()]endpt=2 timeout=1000
[CTzDevice::SetTimeout()]endpt=132 timeout=2000
[CTzDevice::SetTimeout()]endpt=134 timeout=100
)";
  EXPECT_EQ(
      timeouts + R"([CTzDeviceConfigure::AddConfiguredDevice]Device A available for use
[CTzEvkConfigure::ProgramKX7]Error 1 programming device F, with file .
)" + timeouts +
          R"([CTzWfxConfigure::ConfigureFPGA())]Programming FPGA of device VID=0F0F with hex file missing.bin
[CTzWfxConfigure::ProgramFPGA]Error 1 programming device P, with file missing.bin.
[CTzWfxConfigure::ProgramKX7]Error 1 programming device Q, with file missing.hex.
)",
      TakeLog(true));
}

TEST_F(PassTest, FreshDeviceGetsFirmwareOnceInEveryPassAndNoEntry) {
  const unit::ScriptedDevice fresh = Device(NewEvkProduct("UNCONFIGURED"), "FRESH");
  Set(fresh.product_id, "KX7", folder_.Write("fw.hex", ":0100000042BD\n"));
  const unit::ScriptedDevice other = Device(NewEvkProduct(), "OTHER");
  bus_.SetDevices({fresh, other});
  // The other one leaves while its object is made, so that the first pass begins anew.
  ChangeAt(5, {fresh});
  for (int pass = 0; pass < 2; ++pass) {
    bus_.Play(R"(40 A0 00 E6 00 00 01 00 : 01 -> ok
                 40 A0 00 00 00 00 01 00 : 42 -> ok
                 40 A0 00 E6 00 00 01 00 : 00 -> ok)");
    EXPECT_FALSE(Configure());
  }
  EXPECT_EQ("", Names());
}

TEST_F(PassTest, DeviceThatDoesNotOpenLosesItsEntry) {
  bus_.SetDevices({a_, b_});
  EXPECT_TRUE(Configure());
  bus_.RefuseOpens(3);
  bus_.Play("pause 150");
  EXPECT_TRUE(Remove());
}

TEST_F(PassTest, RefusalToCloseTheDeviceBeforeIsAFailedAttempt) {
  bus_.SetDevices({a_, b_});
  ASSERT_TRUE(enumerator_.Open(1));
  // Only device files can be cancelled: this closes the one that the enumerator has.
  for (std::uintptr_t value = 4; value < 0x10000; value += 4) {
    const auto handle = reinterpret_cast<HANDLE>(value);
    if (CancelIoEx(handle, nullptr) || GetLastError() == ERROR_NOT_FOUND) CloseHandle(handle);
  }
  bus_.Play("pause 50");
  EXPECT_TRUE(Configure());
  EXPECT_EQ("A B ", Names());
}

TEST_F(PassTest, DeviceIsTakenWhenItIsStillTheOneThatWasLookedAt) {
  unit::ScriptedDevice other_ids = b_, no_name = b_;
  other_ids.descriptors[0x0100] = Device(NewProduct(), "").Descriptor(0x0100);
  no_name.descriptors[0x0303] = {};
  const std::string skipped = "[CTzEvkConfigure::UpdateState]Unable to open device B. Skipping\n";
  // The first open is the pass's look, two more make the object.
  const struct {
    const char* what;
    int change_at;
    std::vector<unit::ScriptedDevice> before, after;
    std::string log, names;
  } cases[] = {
      {"it has left", 2, {b_}, {}, skipped, ""},
      {"it leaves while it is opened", 3, {b_}, {}, skipped, ""},
      {"the index names another one", 2, {b_}, {a_}, skipped, "A "},
      {"it has other ids", 2, {b_}, {other_ids}, skipped, ""},
      {"its name could not be read at the look", 1, {no_name}, {b_}, "", "B "},
  };
  for (const auto& [what, change_at, before, after, log, names] : cases) {
    bus_.SetDevices(before);
    ChangeAt(change_at, after);
    EXPECT_EQ(!names.empty(), Configure()) << what;
    EXPECT_EQ(names, Names()) << what;
    EXPECT_TRUE(TakeLog().starts_with(log.empty() ? "[CTzDeviceConfigure::Add" : log)) << what;
    bus_.SetDevices({});
    Remove();
    TakeLog();
  }
}

// The name and the endpoints of an entry are those that its object was told, for good.
TEST_F(PassTest, ObjectThatWasToldLessThanTheLookIsMadeAgain) {
  unit::ScriptedDevice no_name = b_, no_endpoints = b_;
  no_name.descriptors[0x0303] = {};
  no_endpoints.descriptors[0x0200] = {};
  for (const unit::ScriptedDevice& less : {no_name, no_endpoints}) {
    bus_.SetDevices({b_});
    // The third open makes the object.
    bus_.OnOpen([&](int number) { bus_.SetDevices({number == 2 ? less : b_}); });
    EXPECT_TRUE(Configure());
    EXPECT_EQ("B ", Names());
    EXPECT_EQ(6, ListProbeEntries()[0]->device->GetUSBDevice()->EndPointCount());
    bus_.SetDevices({});
    bus_.OnOpen([](int) {});
    Remove();
    EXPECT_EQ(R"([CTzEvkConfigure::UpdateState]Unable to open device B. Skipping
[CTzDeviceConfigure::AddConfiguredDevice]Device B available for use
[CTzDeviceConfigure::CleanupRemovedDevice]Device B removed
)",
              TakeLog());
  }
}

// When one leaves, those behind it move to another index. Whenever that is, the others are met.
TEST_F(PassTest, NoDeviceIsPassedOverWhenAnotherLeaves) {
  for (int open = 1; open <= 9; ++open) {
    bus_.SetDevices({a_, b_, c_});
    ChangeAt(open, {b_, c_});
    EXPECT_TRUE(Configure());
    EXPECT_TRUE(FindProbeByName(L"B") && FindProbeByName(L"C"));
    bus_.SetDevices({a_, b_, c_});
    Configure();
    TakeLog();
    ChangeAt(open % 3 + 1, {b_, c_});
    EXPECT_TRUE(Remove());
    EXPECT_EQ("B C ", Names());
    EXPECT_EQ("[CTzDeviceConfigure::CleanupRemovedDevice]Device A removed\n", TakeLog());
    bus_.SetDevices({});
    Remove();
  }
}

TEST_F(PassTest, BusThatDoesNotComeToRestIsNotLookedAtForEver) {
  bus_.SetDevices({b_, c_});
  ASSERT_TRUE(Configure());
  // After A was met it is away until the next one is, so that B is passed over.
  bus_.SetDevices({a_, b_, c_});
  int opens = 0;
  bus_.OnOpen([&](int number) {
    opens = number;
    bus_.SetDevices(number % 3 == 1 ? std::vector{b_, c_} : std::vector{a_, b_, c_});
  });
  EXPECT_FALSE(Remove());
  EXPECT_EQ("B C ", Names()) << "what is listed is not given up";
  EXPECT_EQ(12, opens);

  bus_.SetDevices({b_});
  bus_.OnOpen([&](int number) { bus_.SetDevices({number % 2 == 1 ? c_ : b_}); });
  EXPECT_TRUE(Remove());
  EXPECT_EQ("B ", Names()) << "what was met and is listed no more has left";

  // A opens for the pass, and never for its object.
  bus_.SetDevices({a_});
  bus_.OnOpen([&](int number) {
    opens = number;
    if (number % 3 == 1) bus_.RefuseOpens(2);
  });
  EXPECT_FALSE(Configure());
  EXPECT_EQ(12, opens);
}

TEST_F(PassTest, RemovalPassKeepsTheOrderOfEnumerationAndEndsSessions) {
  bus_.SetDevices({c_, b_});
  EXPECT_TRUE(Configure());
  bus_.SetDevices({c_, b_, a_});
  EXPECT_TRUE(Configure());
  EXPECT_EQ("B C A ", Names());
  EXPECT_FALSE(Remove());
  EXPECT_EQ("A B C ", Names());
  ProbeEntry& entry = *ListProbeEntries()[0];
  EXPECT_EQ(a_.Path(), entry.path);
  EXPECT_TRUE(entry.mode == 0 && entry.targets.empty());
  const HANDLE session = CreateMutexW(nullptr, TRUE, nullptr);
  entry.targets = {TargetRecord{1, nullptr, 0}, TargetRecord{2, session, 77}};
  bus_.SetDevices({});
  EXPECT_TRUE(Remove());
  EXPECT_FALSE(Remove());
  // Released, so not owned any more; open, so that its value is not given out again.
  EXPECT_FALSE(ReleaseMutex(session));
  EXPECT_EQ(static_cast<DWORD>(ERROR_NOT_OWNER), GetLastError());
  EXPECT_TRUE(CloseHandle(session));
}

}  // namespace
