// The passes of the configuration objects over what is attached.
#include <windows.h>

#include "tests/unit/config/configure_fixture.h"

namespace {

class PassTest : public ConfigureTest {
 protected:
  using Lines = std::vector<std::string>;

  // A probe whose FPGA loads from an empty image.
  std::uint16_t NewWfxProduct() {
    const std::uint16_t product = NewProduct();
    Set(product, "WFXDEVICE", "CONFIGURED");
    Set(product, "FPGA", folder_.Write("empty.bin", ""));
    return product;
  }

  static std::string FpgaLoads(const char* finish_reply = "00*16") {
    return std::string("C0 47 00 00 00 00 10 00 -> 00*16\nC0 45 FF FF FF FF 10 00 -> 00*16\n") +
           "out 02 : -> ok\nC0 46 00 00 00 00 10 00 -> " + finish_reply +
           "\nC0 44 00 00 00 00 0E 00 -> 00*14\n";
  }

  static std::string Skipped(const std::string& source, const std::string& path) {
    return "[" + source + "::UpdateState]Unable to open device " + path + ". Skipping";
  }
  static std::string Available(const std::string& path) {
    return "[CTzDeviceConfigure::AddConfiguredDevice]Device " + path + " available for use";
  }

  CTzEvkConfigure& evk_ = Add<CTzEvkConfigure>();
  CTzWfxConfigure& wfx_ = Add<CTzWfxConfigure>();
  CTzUSBDevice enumerator_{kProbeDriverInterface, false};
};

TEST_F(PassTest, StateIsTheSettingsWord) {
  for (const auto& [word, state] : {std::pair{"CONFIGURED", 2U},
                                    {"UNCONFIGURED", 1U},
                                    {"configured", 0U},
                                    {"CONFIGURED ", 0U},
                                    {"", 0U},
                                    {"\"CONFIGURED\"", 2U}}) {
    const std::uint16_t product = NewEvkProduct(word);
    EXPECT_EQ(state, evk_.GetDeviceState(0x0F0F, product)) << word;
    EXPECT_EQ(0U, wfx_.GetDeviceState(0x0F0F, product)) << word;
    EXPECT_EQ(0U, evk_.GetDeviceState(0x0F0E, product)) << word;
  }
}

TEST_F(PassTest, ConfiguredBoardIsAddedOnce) {
  const std::uint16_t product = NewEvkProduct();
  bus_.SetDevices({Device(product, "EVK1")});
  EXPECT_TRUE(evk_.ConfigureNewDevices(enumerator_));
  EXPECT_FALSE(evk_.ConfigureNewDevices(enumerator_));
  EXPECT_FALSE(wfx_.ConfigureNewDevices(enumerator_));
  EXPECT_EQ("EVK1 ", Names());
  const ProbeEntry& entry = *ListProbeEntries()[0];
  EXPECT_EQ(Path(product, "EVK1"), entry.path);
  EXPECT_EQ(0U, entry.mode);
  EXPECT_TRUE(entry.targets.empty());
  EXPECT_EQ(Lines{Available(Path(product, "EVK1"))}, log_.Lines());
}

TEST_F(PassTest, ProbeIsAddedWhenItsFpgaLoadsAndTriedAgainByEveryPassUntilThen) {
  const std::uint16_t product = NewWfxProduct();
  bus_.SetDevices({Device(product, "WFX1")});
  bus_.Play(FpgaLoads("01 02 00*14"));
  EXPECT_FALSE(wfx_.ConfigureNewDevices(enumerator_));
  EXPECT_EQ("", Names());
  EXPECT_EQ(Lines{"[CTzWfxConfigure::ProgramFPGA]Error 3 programming device " +
                  Path(product, "WFX1") + ", with file " + folder_.Path("empty.bin") + "."},
            log_.Lines());
  bus_.Play(FpgaLoads());
  EXPECT_TRUE(wfx_.ConfigureNewDevices(enumerator_));
  EXPECT_FALSE(wfx_.ConfigureNewDevices(enumerator_));
  EXPECT_EQ("WFX1 ", Names());

  // Both families may handle one device.
  Set(product, "EVKDEVICE", "CONFIGURED");
  EXPECT_TRUE(evk_.ConfigureNewDevices(enumerator_));
  EXPECT_EQ("WFX1 WFX1 ", Names());
  EXPECT_EQ(evk_.GetConfiguredDevices()[0], FindProbeByName(L"WFX1"));
}

TEST_F(PassTest, FreshDeviceGetsFirmwareAtEveryPassAndNoEntry) {
  const std::uint16_t product = NewEvkProduct("UNCONFIGURED");
  Set(product, "KX7", folder_.Write("fw.hex", ":0100000042BD\n"));
  bus_.SetDevices({Device(product, "FRESH")});
  for (int pass = 0; pass < 2; ++pass) {
    bus_.Play(R"(40 A0 00 E6 00 00 01 00 : 01 -> ok
                 40 A0 00 00 00 00 01 00 : 42 -> ok
                 40 A0 00 E6 00 00 01 00 : 00 -> ok)");
    EXPECT_FALSE(evk_.ConfigureNewDevices(enumerator_));
  }
  EXPECT_EQ("", Names());
  EXPECT_EQ(Lines{}, log_.Lines());
}

TEST_F(PassTest, FailedFirmwareIsLoggedWithTheSettingAsWritten) {
  const std::uint16_t without_file = NewEvkProduct("UNCONFIGURED");
  const std::uint16_t missing_file = NewProduct();
  Set(missing_file, "WFXDEVICE", "UNCONFIGURED");
  Set(missing_file, "KX7", "missing.hex");
  bus_.SetDevices({Device(without_file, "E"), Device(missing_file, "W")});
  EXPECT_FALSE(evk_.ConfigureNewDevices(enumerator_));
  EXPECT_FALSE(wfx_.ConfigureNewDevices(enumerator_));
  EXPECT_EQ((Lines{"[CTzEvkConfigure::ProgramKX7]Error 1 programming device " +
                       Path(without_file, "E") + ", with file .",
                   "[CTzWfxConfigure::ProgramKX7]Error 1 programming device " +
                       Path(missing_file, "W") + ", with file missing.hex."}),
            log_.Lines());
}

TEST_F(PassTest, DeviceThatDoesNotOpenIsSkippedAfterThreeAttempts) {
  const std::uint16_t product = NewEvkProduct();
  bus_.SetDevices({Device(product, "A"), Device(product, "B")});
  bus_.RefuseOpens(3);
  EXPECT_EQ(150U, ElapsedMs([&] { EXPECT_TRUE(evk_.ConfigureNewDevices(enumerator_)); }));
  EXPECT_EQ("B ", Names());
  EXPECT_EQ(Skipped("CTzEvkConfigure", Path(product, "A")), log_.Lines()[0]);
  // Two refusals are waited out.
  bus_.RefuseOpens(2);
  EXPECT_TRUE(evk_.ConfigureNewDevices(enumerator_));
  EXPECT_EQ("B A ", Names());
}

// A bus on which the devices become others after the second open: the first is the pass's look at a
// device, two more make the device object.
class ChangingBus : public unit::ScriptedBus {
 public:
  std::unique_ptr<probe_driver::UsbDevice> OpenDevice(const std::string& path) override {
    auto device = ScriptedBus::OpenDevice(path);
    if (OpensSoFar() == 2) SetDevices(changed);
    return device;
  }

  std::vector<unit::ScriptedDevice> changed;
};

TEST_F(PassTest, DeviceThatChangesWhileItsObjectIsMadeIsNotTaken) {
  const std::uint16_t product = NewEvkProduct();
  const unit::ScriptedDevice device = Device(product, "B");
  const auto lacking = [&](std::uint16_t descriptor) {
    unit::ScriptedDevice changed = device;
    changed.descriptors[descriptor] = {};
    return std::vector{changed};
  };
  const struct {
    const char* what;
    std::vector<unit::ScriptedDevice> changed;
  } cases[] = {
      {"it has left", {}},
      {"the index names another one", {Device(product, "A")}},
      {"its ids cannot be read", lacking(0x0100)},
      {"its name cannot be read", lacking(0x0303)},
      {"its endpoints cannot be read", lacking(0x0200)},
  };
  for (const auto& [what, changed] : cases) {
    ChangingBus bus;
    bus.SetDevices({device});
    bus.changed = changed;
    test_host::UseBus(&bus);
    EXPECT_FALSE(evk_.ConfigureNewDevices(enumerator_)) << what;
    EXPECT_EQ("", Names()) << what;
    EXPECT_EQ(Skipped("CTzEvkConfigure", device.Path()), log_.Lines().back()) << what;
    bus.SetDevices({});
    evk_.UpdateState(enumerator_);
    enumerator_.Close();
    test_host::UseBus(&bus_);
  }
}

TEST_F(PassTest, ProbeThatCannotBeOpenedLosesItsEntry) {
  const std::uint16_t product = NewEvkProduct();
  const std::string path = Path(product, "A");
  bus_.SetDevices({Device(product, "A")});
  ASSERT_TRUE(evk_.ConfigureNewDevices(enumerator_));
  bus_.RefuseOpens(3);
  EXPECT_TRUE(evk_.UpdateState(enumerator_));
  EXPECT_EQ("", Names());
  EXPECT_EQ((Lines{Available(path), Skipped("CTzDeviceConfigure", path),
                   "[CTzDeviceConfigure::CleanupRemovedDevice]Device " + path + " removed"}),
            log_.Lines());
  EXPECT_TRUE(evk_.ConfigureNewDevices(enumerator_));
}

TEST_F(PassTest, RemovalPassKeepsTheOrderOfEnumeration) {
  const std::uint16_t product = NewEvkProduct();
  const std::uint16_t other = NewEvkProduct();
  bus_.SetDevices({Device(other, "C"), Device(product, "B")});
  ASSERT_TRUE(evk_.ConfigureNewDevices(enumerator_));
  bus_.SetDevices({Device(other, "C"), Device(product, "B"), Device(product, "A")});
  ASSERT_TRUE(evk_.ConfigureNewDevices(enumerator_));
  EXPECT_EQ("B C A ", Names());
  const CTzDevice* const device = FindProbeByName(L"A")->device.get();
  EXPECT_FALSE(evk_.UpdateState(enumerator_));
  EXPECT_EQ("A B C ", Names());
  EXPECT_EQ(device, FindProbeByName(L"A")->device.get());

  bus_.SetDevices({Device(product, "A"), Device(other, "C")});
  EXPECT_TRUE(evk_.UpdateState(enumerator_));
  EXPECT_EQ("A C ", Names());
  bus_.SetDevices({});
  EXPECT_TRUE(evk_.UpdateState(enumerator_));
  EXPECT_EQ("", Names());
  EXPECT_FALSE(evk_.UpdateState(enumerator_));
}

TEST_F(PassTest, RemovedProbeEndsItsSessionsAndKeepsTheirHandles) {
  bus_.SetDevices({Device(NewEvkProduct(), "A")});
  ASSERT_TRUE(evk_.ConfigureNewDevices(enumerator_));
  const HANDLE session = CreateMutexW(nullptr, TRUE, nullptr);
  ListProbeEntries()[0]->targets = {TargetRecord{1, nullptr, 0}, TargetRecord{2, session, 77}};
  const std::int64_t handle = SessionHandleOf(session);
  EXPECT_EQ(ListProbeEntries()[0], FindProbeByHandle(handle));
  bus_.SetDevices({});
  EXPECT_TRUE(evk_.UpdateState(enumerator_));
  EXPECT_EQ(nullptr, FindProbeByHandle(handle));
  // Released, so not owned any more; open, so that its value is not given out again.
  EXPECT_FALSE(ReleaseMutex(session));
  EXPECT_EQ(static_cast<DWORD>(ERROR_NOT_OWNER), GetLastError());
  EXPECT_TRUE(CloseHandle(session));
}

}  // namespace
