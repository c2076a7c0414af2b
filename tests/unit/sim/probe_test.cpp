#include <numeric>

#include "sim/controller.h"
#include "tests/unit/sim/bench_user.h"

namespace sim {
namespace {

using probe_driver::UsbStatus;
using testing::ElementsAre;

constexpr char kWirefox[] = R"("kind": "wirefox")";

TEST(Descriptors, FreshControllerHasNoEndpointsAndAConfiguredProbeFive) {
  ManualTime time;
  Bench bench(Bench::DefaultDescription(), {.scheduler = time.scheduler()});
  User fresh = User::Of(bench, "WFX0001");
  EXPECT_THAT(
      fresh.Control(0x80, 6, 0x0100, 0, 18).data,
      ElementsAre(18, 1, 0, 2, 0xFF, 0xFF, 0xFF, 64, 0x0F, 0x0F, 0x01, 0x10, 0, 0, 1, 2, 3, 1));
  EXPECT_THAT(fresh.Control(0x80, 6, 0x0200, 0, 255).data,
              ElementsAre(9, 2, 18, 0, 1, 1, 0, 0x80, 250, 9, 4, 0, 0, 0, 0xFF, 0, 0, 0));
  EXPECT_EQ(fresh.Out(0x02, {1}).status, UsbStatus::kError);

  User evk = User::Of(bench, "EVK0001");
  EXPECT_THAT(evk.Control(0x80, 6, 0x0200, 0, 255).data,
              ElementsAre(9, 2, 53, 0, 1, 1, 0, 0x80, 250, 9, 4, 0, 0, 5, 0xFF, 0, 0, 0,  //
                          7, 5, 0x01, 2, 0, 2, 0, 7, 5, 0x81, 2, 0, 2, 0, 7, 5, 0x02, 2, 0, 2, 0, 7,
                          5, 0x84, 2, 0, 2, 0, 7, 5, 0x86, 2, 0, 2, 0));
  EXPECT_EQ(evk.Control(0x80, 6, 0x0200, 0, 9).data.size(), 9u) << "cut to what was asked for";
  EXPECT_THAT(evk.Control(0x80, 6, 0x0303, 0x0409, 255).data,
              ElementsAre(16, 3, 'E', 0, 'V', 0, 'K', 0, '0', 0, '0', 0, '0', 0, '1', 0));
  EXPECT_THAT(evk.Control(0x80, 6, 0x0300, 0, 255).data, ElementsAre(2, 3));
  EXPECT_EQ(evk.Control(0x80, 6, 0x0309, 0x0409, 255).status, UsbStatus::kStall);
}

class FreshController : public OneProbe {
 protected:
  FreshController() { Plug(R"("kind": "wirefox", "state": "fresh")"); }
  UsbStatus WriteRam(std::uint16_t address, const Bytes& data) {
    const auto length = static_cast<std::uint16_t>(data.size());
    return user_->Control(0x40, 0xA0, address, 0, length, data).status;
  }
  void LoadFirmware() {
    WriteRam(0xE600, {1});
    WriteRam(0x0100, {0x02});
    WriteRam(0xE600, {0});
  }
};

TEST_F(FreshController, TakesRamOnlyWhileItsProcessorIsHeld) {
  EXPECT_EQ(WriteRam(0x0000, {1, 2}), UsbStatus::kStall);
  EXPECT_EQ(WriteRam(0xE600, {1, 0}), UsbStatus::kStall) << "two bytes are data";
  EXPECT_EQ(WriteRam(0xE600, {1}), UsbStatus::kOk);
  EXPECT_TRUE(bench_->State("P").processor_held);
  EXPECT_EQ(WriteRam(0x0000, {1, 2}), UsbStatus::kOk);
  EXPECT_EQ(WriteRam(0xE600, {0, 9}), UsbStatus::kOk);
  EXPECT_TRUE(bench_->State("P").processor_held);
  EXPECT_EQ(WriteRam(0xFFFF, {7, 8}), UsbStatus::kOk) << "wraps";
  EXPECT_EQ(bench_->DumpRam("P"), Bytes(65536, 0xFF)) << "not released yet";
  EXPECT_EQ(WriteRam(0xE600, {0}), UsbStatus::kOk);
  Bytes expected(65536, 0xFF);
  expected[0x0000] = 8;
  expected[0x0001] = 2;
  expected[0xE600] = 0;
  expected[0xE601] = 9;
  expected[0xFFFF] = 7;
  EXPECT_TRUE(bench_->DumpRam("P") == expected);
  EXPECT_EQ(WriteRam(0x0000, {1}), UsbStatus::kStall) << "it runs again";
}

TEST_F(FreshController, ComesBackConfiguredAfterHoldWriteAndRelease) {
  const std::string path = bench_->PathOf("P");
  WriteRam(0xE600, {1});
  WriteRam(0xE600, {0});
  time_.Advance(1000);
  EXPECT_EQ(bench_->PathOf("P"), path) << "nothing was written: there is nothing to start";

  LoadFirmware();
  EXPECT_EQ(bench_->ListDevices(), std::vector{path}) << "answered before it detaches";
  time_.Advance(5);
  EXPECT_TRUE(bench_->ListDevices().empty());
  EXPECT_FALSE(bench_->Plug("P")) << "it is coming back";
  EXPECT_EQ(user_->Command(0x44, 0, 14), Bytes{});
  time_.Advance(100);
  const ProbeState state = bench_->State("P");
  EXPECT_TRUE(state.configured);
  EXPECT_EQ(state.product_id, 0x1002);
  EXPECT_EQ(bench_->ListDevices(), std::vector{state.path});
  EXPECT_NE(state.path, path);
  EXPECT_EQ(bench_->DumpRam("P")[0x100], 0x02);
  bench_->Unplug("P");
  bench_->Plug("P");
  EXPECT_FALSE(bench_->State("P").configured) << "firmware does not outlive the supply";
}

TEST_F(FreshController, StaysAwayWhenItIsUnpluggedWhileItRestarts) {
  LoadFirmware();
  time_.Advance(5);
  EXPECT_TRUE(bench_->Unplug("P"));
  time_.Advance(1000);
  EXPECT_TRUE(bench_->ListDevices().empty());
  EXPECT_TRUE(bench_->Plug("P"));
}

TEST_F(OneProbe, FpgaLoadsExactlyTheAnnouncedLength) {
  const struct {
    const char* what;
    std::uint32_t announced;  // length less one
    std::vector<std::size_t> transfers;
    Bytes finish;         // first two bytes of the reply
    std::uint8_t status;  // byte 0 of the probe's status afterwards
  } kTable[] = {
      {"the whole image", 999, {1000}, {0, 0}, 0},
      {"in two transfers", 999, {600, 400}, {0, 0}, 0},
      {"more than 64 KiB", 0x10000, {0x10001}, {0, 0}, 0},
      {"one byte short", 999, {999}, {1, 5}, 1},
      {"one byte too many", 999, {1001}, {1, 5}, 1},
      {"an empty image announces 4 GiB", 0xFFFFFFFF, {0}, {1, 5}, 1},
  };
  for (const auto& [what, announced, transfers, result, status] : kTable) {
    SCOPED_TRACE(what);
    Plug(kWirefox);
    EXPECT_EQ(user_->Command(0x47, 0, 16), Bytes(16, 0));
    EXPECT_EQ(user_->Command(0x45, static_cast<std::uint16_t>(announced), 16,
                             static_cast<std::uint16_t>(announced >> 16)),
              Bytes(16, 0));
    Bytes sent;
    for (const std::size_t size : transfers) {
      Bytes part(size);
      std::iota(part.begin(), part.end(), static_cast<std::uint8_t>(sent.size()));
      user_->Out(0x02, part);
      sent.insert(sent.end(), part.begin(), part.end());
    }
    Bytes finish = user_->Command(0x46, 0, 16);
    finish.resize(2);
    EXPECT_EQ(finish, result);
    EXPECT_EQ(user_->Command(0x44, 0, 14)[0], status);
    EXPECT_EQ(bench_->State("P").fpga_loaded, status == 0);
    EXPECT_EQ(bench_->DumpFpga("P"), sent);
  }
}

TEST_F(OneProbe, FpgaStepsOutOfOrderAreRefused) {
  Plug(kWirefox);
  EXPECT_EQ(user_->Command(0x45, 9, 16)[0], 5);
  EXPECT_THAT(Bytes(user_->Command(0x46, 0, 2)), ElementsAre(1, 2));
  EXPECT_EQ(user_->Command(0x41, 0x101, 3)[0], 4) << "no mode without logic";
  EXPECT_EQ(user_->Command(0x43, 0x3A, 8)[0], 4) << "no registers without logic";
  user_->LoadFpga(Bytes(10));
  EXPECT_EQ(user_->Command(0x41, 0x101, 3)[0], 0);
  user_->Command(0x47, 0, 16);
  EXPECT_EQ(user_->Command(0x43, 0x3A, 8)[0], 4) << "a new download takes the old image away";
}

TEST_F(OneProbe, EachCommandSetsWhatItNamesAndRefusesWhatDoesNotExist) {
  Plug(kEvk);
  const struct {
    std::uint8_t request;
    std::uint16_t value;
    std::uint16_t length;
    Bytes reply;
  } kTable[] = {
      {0x48, 0x0203, 2, {0, 0}},
      {0x48, 0x0403, 2, {2, 0}},
      {0x48, 0x0004, 2, {2, 0}},
      {0x49, 1, 2, {0, 0}},
      {0x49, 4, 2, {2, 0}},
      {0x55, 13, 2, {0, 0}},
      {0x55, 12, 2, {2, 0}},
      {0x51, 1, 2, {0, 0}},
      {0x57, 0x84, 2, {0, 0}},
      {0x58, 0, 4, {0, 0, 0, 0x84}},
      {0x41, 0x110, 3, {0, 0, 0}},
      {0x41, 3, 3, {2, 0, 0}},
      {0x41, 0x200, 3, {2, 0, 0}},
      {0x61, 1, 3, {0, 0, 0}},
      {0x67, 500, 2, {0, 0}},
      {0x5C, 0x1910, 4, {0, 0, 0, 3}},
      {0x56, 0, 15, {0, 0, 250, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
  };
  for (const auto& row : kTable) {
    EXPECT_EQ(user_->Command(row.request, row.value, row.length), row.reply)
        << "request " << int{row.request} << " value " << row.value;
  }
  EXPECT_EQ(user_->Command(0x5C, 0x1910, 64).size(), 64u);
  EXPECT_EQ(user_->Control(0xC0, 0x99, 0, 0, 2).status, UsbStatus::kStall);
  EXPECT_EQ(user_->Control(0x40, 0x48, 0, 0, 0).status, UsbStatus::kStall) << "commands are IN";
  const ProbeState state = bench_->State("P");
  EXPECT_THAT(state.leds, ElementsAre(0, 0, 3, 0));
  EXPECT_EQ(state.identify, 1);
  EXPECT_TRUE(state.supply_on);
  EXPECT_EQ(state.mode, 16);
  EXPECT_TRUE(state.external);
  EXPECT_EQ(state.swv_commit, 500);
  // Result, flags (logic valid, supply on), voltage code, measured, mode, versions, connector.
  EXPECT_THAT(user_->Command(0x44, 0, 14),
              ElementsAre(0, 0x14, 13, 250, 0, 16, 0x03, 0x02, 0x04, 0x01, 0, 1, 0x00, 0x01));
}

TEST_F(OneProbe, ClockSettlesAfterSomeReadsAndBothBitsDriveTheResetLine) {
  Plug(R"("kind": "evk", "clock_settle_reads": 3)");
  EXPECT_EQ(user_->ReadRegister(0x3A), 3);
  user_->WriteRegister(0x39, 0xFD);
  user_->WriteRegister(0x39, 0x05);
  Bytes reads;
  for (int i = 0; i < 5; ++i) reads.push_back(user_->ReadRegister(0x3A));
  EXPECT_THAT(reads, ElementsAre(1, 1, 1, 3, 3));
  EXPECT_EQ(user_->ReadRegister(0x39), 5);

  const std::uint8_t control = user_->ReadRegister(0x11);
  EXPECT_EQ(control, 0xC0);
  user_->WriteRegister(0x11, control | 0x30);
  user_->WriteRegister(0x11, control | 0x30);
  EXPECT_TRUE(bench_->State("P").reset_asserted);
  user_->WriteRegister(0x11, control | 0x10);
  user_->WriteRegister(0x11, control);
  EXPECT_FALSE(bench_->State("P").reset_asserted);
  EXPECT_EQ(bench_->State("P").resets, 1u);
}

TEST(Description, BadEntriesAreNamed) {
  const struct {
    const char* text;
    const char* complaint;
  } kTable[] = {
      {"{", "parse error"},
      {R"({"probe": []})", "bench: has no member \"probe\""},
      {R"({"probes": [{}]})", "probe.name: is missing"},
      {R"({"probes": [{"name": "A"}, {"name": "A"}]})", "taken"},
      {R"({"probes": [{"name": "A", "kind": "x"}]})", "probe A.kind"},
      {R"({"probes": [{"name": "A", "vid": 65536}]})", "probe A.vid: is out of range"},
      {R"({"probes": [{"name": "A", "vid": "0xZ"}]})", "probe A.vid: is not a number"},
      {R"({"probes": [{"name": "A", "jtag": {"taps": [{"idcode": 2}]}}]})", "bit 0 clear"},
      {R"({"probes": [{"name": "A", "swd": {"memory": {"address": 0, "size": 1e9}}}]})",
       "swd.memory.size"},
      {R"({"probes": [{"name": "A", "i2c": [{"address": 128}]}]})", "i2c[0].address"},
  };
  for (const auto& [text, complaint] : kTable) {
    EXPECT_THAT([&] { Bench{text}; },
                testing::ThrowsMessage<std::invalid_argument>(testing::HasSubstr(complaint)))
        << text;
  }
}

}  // namespace
}  // namespace sim
