#include <numeric>

#include "sim/controller.h"
#include "tests/unit/sim/bench_user.h"

namespace sim {
namespace {

using probe_driver::UsbStatus;
using testing::ElementsAre;

constexpr char kWirefox[] = R"({"probes": [{"name": "P", "kind": "wirefox"}]})";
constexpr char kEvk[] = R"({"probes": [{"name": "P", "kind": "evk"}]})";
constexpr char kFresh[] = R"({"probes": [{"name": "P", "kind": "wirefox", "state": "fresh"}]})";

UsbStatus WriteRam(User& user, std::uint16_t address, const Bytes& data) {
  return user.Control(0x40, 0xA0, address, 0, static_cast<std::uint16_t>(data.size()), data).status;
}

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
  const Bytes configuration = evk.Control(0x80, 6, 0x0200, 0, 255).data;
  ASSERT_EQ(configuration.size(), 9u + 9 + 5 * 7);
  Bytes endpoints;
  for (std::size_t at = 18; at < configuration.size(); at += 7) {
    EXPECT_THAT(Bytes(configuration.begin() + static_cast<std::ptrdiff_t>(at) + 3,
                      configuration.begin() + static_cast<std::ptrdiff_t>(at) + 7),
                ElementsAre(2, 0x00, 0x02, 0));
    endpoints.push_back(configuration[at + 2]);
  }
  EXPECT_THAT(endpoints, ElementsAre(0x01, 0x81, 0x02, 0x84, 0x86));
  EXPECT_EQ(evk.Control(0x80, 6, 0x0200, 0, 9).data.size(), 9u) << "cut to what was asked for";
  EXPECT_THAT(evk.Control(0x80, 6, 0x0303, 0x0409, 255).data,
              ElementsAre(16, 3, 'E', 0, 'V', 0, 'K', 0, '0', 0, '0', 0, '0', 0, '1', 0));
  EXPECT_THAT(evk.Control(0x80, 6, 0x0300, 0, 255).data, ElementsAre(2, 3));
  EXPECT_EQ(evk.Control(0x80, 6, 0x0309, 0x0409, 255).status, UsbStatus::kStall);
}

TEST(Controller, RamIsWrittenOnlyWhileTheProcessorIsHeld) {
  ManualTime time;
  Bench bench(kFresh, {.scheduler = time.scheduler()});
  User user = User::Of(bench, "P");
  EXPECT_EQ(WriteRam(user, 0x0000, {1, 2}), UsbStatus::kStall);
  EXPECT_EQ(WriteRam(user, 0xE600, {1, 0}), UsbStatus::kStall) << "two bytes are data";
  EXPECT_EQ(WriteRam(user, 0xE600, {1}), UsbStatus::kOk);
  EXPECT_TRUE(bench.State("P").processor_held);
  EXPECT_EQ(WriteRam(user, 0x0000, {1, 2}), UsbStatus::kOk);
  EXPECT_EQ(WriteRam(user, 0xE600, {0, 9}), UsbStatus::kOk);
  EXPECT_TRUE(bench.State("P").processor_held);
  EXPECT_EQ(WriteRam(user, 0xFFFF, {7, 8}), UsbStatus::kOk) << "wraps";
  EXPECT_EQ(bench.DumpRam("P"), Bytes(65536, 0xFF)) << "not released yet";
  EXPECT_EQ(WriteRam(user, 0xE600, {0}), UsbStatus::kOk);
  const Bytes ram = bench.DumpRam("P");
  EXPECT_THAT(Bytes(ram.begin(), ram.begin() + 3), ElementsAre(8, 2, 0xFF));
  EXPECT_THAT(Bytes(ram.begin() + 0xE600, ram.begin() + 0xE603), ElementsAre(0, 9, 0xFF));
  EXPECT_EQ(ram.back(), 7);
  EXPECT_EQ(WriteRam(user, 0x0000, {1}), UsbStatus::kStall) << "it runs again";
}

TEST(Controller, ComesBackConfiguredAfterHoldWriteAndRelease) {
  ManualTime time;
  Bench bench(kFresh, {.scheduler = time.scheduler()});
  const std::string path = bench.PathOf("P");
  User user = User::Of(bench, "P");
  WriteRam(user, 0xE600, {1});
  WriteRam(user, 0xE600, {0});
  time.Advance(1000);
  EXPECT_EQ(bench.PathOf("P"), path) << "nothing was written: there is nothing to start";

  WriteRam(user, 0xE600, {1});
  WriteRam(user, 0x0100, {0x02});
  WriteRam(user, 0xE600, {0});
  EXPECT_EQ(bench.ListDevices(), std::vector{path}) << "answered before it detaches";
  time.Advance(5);
  EXPECT_TRUE(bench.ListDevices().empty());
  EXPECT_FALSE(bench.Plug("P")) << "it is coming back";
  EXPECT_EQ(user.Command(0x44, 0, 14), Bytes{});
  time.Advance(100);
  const ProbeState state = bench.State("P");
  EXPECT_TRUE(state.configured);
  EXPECT_EQ(state.product_id, 0x1002);
  EXPECT_EQ(bench.ListDevices(), std::vector{state.path});
  EXPECT_NE(state.path, path);
  EXPECT_EQ(bench.DumpRam("P")[0x100], 0x02);
  bench.Unplug("P");
  bench.Plug("P");
  EXPECT_FALSE(bench.State("P").configured) << "firmware does not outlive the supply";
}

TEST(Controller, UnpluggingWhileItRestartsCancelsTheReturn) {
  ManualTime time;
  Bench bench(kFresh, {.scheduler = time.scheduler()});
  User user = User::Of(bench, "P");
  WriteRam(user, 0xE600, {1});
  WriteRam(user, 0, {0});
  WriteRam(user, 0xE600, {0});
  time.Advance(5);
  EXPECT_TRUE(bench.Unplug("P"));
  time.Advance(1000);
  EXPECT_TRUE(bench.ListDevices().empty());
  EXPECT_TRUE(bench.Plug("P"));
}

TEST(Fpga, LoadsExactlyTheAnnouncedLength) {
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
  for (const auto& row : kTable) {
    Bench bench(kWirefox);
    User user = User::Of(bench, "P");
    EXPECT_EQ(user.Command(0x47, 0, 16), Bytes(16, 0));
    EXPECT_EQ(user.Command(0x45, static_cast<std::uint16_t>(row.announced), 16,
                           static_cast<std::uint16_t>(row.announced >> 16)),
              Bytes(16, 0));
    Bytes sent;
    for (const std::size_t size : row.transfers) {
      Bytes part(size);
      std::iota(part.begin(), part.end(), static_cast<std::uint8_t>(sent.size()));
      user.Out(0x02, part);
      sent.insert(sent.end(), part.begin(), part.end());
    }
    Bytes finish = user.Command(0x46, 0, 16);
    finish.resize(2);
    EXPECT_EQ(finish, row.finish) << row.what;
    EXPECT_EQ(user.Command(0x44, 0, 14)[0], row.status) << row.what;
    EXPECT_EQ(bench.State("P").fpga_loaded, row.status == 0) << row.what;
    EXPECT_EQ(bench.DumpFpga("P"), sent) << row.what;
  }
}

TEST(Fpga, StepsOutOfOrderAreRefused) {
  Bench bench(kWirefox);
  User user = User::Of(bench, "P");
  EXPECT_EQ(user.Command(0x45, 9, 16)[0], 5);
  EXPECT_THAT(Bytes(user.Command(0x46, 0, 2)), ElementsAre(1, 2));
  EXPECT_EQ(user.Command(0x41, 0x101, 3)[0], 4) << "no mode without logic";
  EXPECT_EQ(user.Command(0x43, 0x3A, 8)[0], 4) << "no registers without logic";
  user.LoadFpga(Bytes(10));
  EXPECT_EQ(user.Command(0x41, 0x101, 3)[0], 0);
  user.Command(0x47, 0, 16);
  EXPECT_EQ(user.Command(0x43, 0x3A, 8)[0], 4) << "a new download takes the old image away";
}

TEST(ProbeCommands, EachSetsWhatItNamesAndRefusesWhatDoesNotExist) {
  Bench bench(kEvk);
  User user = User::Of(bench, "P");
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
    EXPECT_EQ(user.Command(row.request, row.value, row.length), row.reply)
        << "request " << int{row.request} << " value " << row.value;
  }
  EXPECT_EQ(user.Command(0x5C, 0x1910, 64).size(), 64u);
  EXPECT_EQ(user.Control(0xC0, 0x99, 0, 0, 2).status, UsbStatus::kStall);
  EXPECT_EQ(user.Control(0x40, 0x48, 0, 0, 0).status, UsbStatus::kStall) << "commands are IN";
  const ProbeState state = bench.State("P");
  EXPECT_THAT(state.leds, ElementsAre(0, 0, 3, 0));
  EXPECT_EQ(state.identify, 1);
  EXPECT_TRUE(state.supply_on);
  EXPECT_EQ(state.mode, 16);
  EXPECT_TRUE(state.external);
  EXPECT_EQ(state.swv_commit, 500);
  // Result, flags (logic valid, supply on), voltage code, measured, mode, versions, connector.
  EXPECT_THAT(user.Command(0x44, 0, 14),
              ElementsAre(0, 0x14, 13, 250, 0, 16, 0x03, 0x02, 0x04, 0x01, 0, 1, 0x00, 0x01));
}

TEST(ProbeRegisters, ClockSettlesAfterSomeReads) {
  Bench bench(R"({"probes": [{"name": "P", "kind": "evk", "clock_settle_reads": 3}]})");
  User user = User::Of(bench, "P");
  EXPECT_EQ(user.ReadRegister(0x3A), 3);
  user.WriteRegister(0x39, 0xFD);
  user.WriteRegister(0x39, 0x05);
  Bytes reads;
  for (int i = 0; i < 5; ++i) reads.push_back(user.ReadRegister(0x3A));
  EXPECT_THAT(reads, ElementsAre(1, 1, 1, 3, 3));
  EXPECT_EQ(user.ReadRegister(0x39), 5);
}

TEST(ProbeRegisters, ResetLineIsDrivenWhileBothBitsAreSet) {
  Bench bench(kEvk);
  User user = User::Of(bench, "P");
  const std::uint8_t control = user.ReadRegister(0x11);
  EXPECT_EQ(control, 0xC0);
  user.WriteRegister(0x11, control | 0x30);
  user.WriteRegister(0x11, control | 0x30);
  EXPECT_TRUE(bench.State("P").reset_asserted);
  user.WriteRegister(0x11, control | 0x10);
  user.WriteRegister(0x11, control);
  EXPECT_FALSE(bench.State("P").reset_asserted);
  EXPECT_EQ(bench.State("P").resets, 1u);
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
  for (const auto& row : kTable) {
    try {
      const Bench bench(row.text);
      ADD_FAILURE() << row.text;
    } catch (const std::invalid_argument& error) {
      EXPECT_THAT(error.what(), testing::HasSubstr(row.complaint)) << row.text;
    }
  }
}

TEST(Description, DefaultBenchHasItsThreeProbes) {
  const auto bench = Bench::Default();
  std::vector<std::string> probes;
  for (const ProbeState& state : bench->List()) {
    char ids[32];
    std::snprintf(ids, sizeof ids, " %04X:%04X ", state.vendor_id, state.product_id);
    probes.push_back(state.name + ids + (state.configured ? "configured" : "fresh"));
  }
  EXPECT_THAT(probes, ElementsAre("WFX0001 0F0F:1001 fresh", "WFX0002 0F0F:1002 configured",
                                  "EVK0001 0F0F:2002 configured"));
}

}  // namespace
}  // namespace sim
