// Loading the firmware of a fresh probe's controller.
#include "device/evk_device.h"
#include "device/wfx_device.h"
#include "tests/unit/config/configure_fixture.h"

namespace {

class FirmwareDownloadTest : public ConfigureTest {
 protected:
  // A fresh device whose firmware setting is `setting`.
  void Attach(const std::string& setting) {
    const std::uint16_t product = NewProduct();
    Set(product, "KX7", setting);
    bus_.SetDevices({Device(product, "FRESH")});
  }

  std::uint32_t LoadEvk() {
    CTzEvkDevice device(0, false);
    return evk_.ConfigureKX7(device);
  }
  std::uint32_t LoadWfx() {
    CTzWfxDevice device(0, false);
    return wfx_.ConfigureKX7(device);
  }

  static std::string Record(unsigned address, unsigned count, const char* byte) {
    char text[16];
    std::snprintf(text, sizeof text, ":%02X%04X00", count, address);
    std::string record = text;
    for (unsigned i = 0; i < count; ++i) record += byte;
    return record + "00\n";
  }
};

TEST_F(FirmwareDownloadTest, BlocksGoOutInChunksBetweenTheTwoResets) {
  std::string file;
  for (unsigned address = 0; address < 5000; address += 200) file += Record(address, 200, "AA");
  file += Record(0x2000, 16, "BB") + Record(0x2010, 16, "BB") + Record(0x2030, 3, "CC");
  Attach(folder_.Write("fw.hex", file + ":00000001FF\n"));
  bus_.Play(R"(
      40 A0 00 E6 00 00 01 00 : 01 -> ok         # hold the processor
      40 A0 00 00 00 00 00 08 : AA*2048 -> ok
      40 A0 00 08 00 00 00 08 : AA*2048 -> ok
      40 A0 00 10 00 00 88 03 : AA*904 -> ok
      40 A0 00 20 00 00 20 00 : BB*32 -> ok      # two records that lie back to back
      40 A0 30 20 00 00 03 00 : CC CC CC -> ok
      40 A0 00 E6 00 00 01 00 : 00 -> ok         # let it run
  )");
  EXPECT_EQ(0U, LoadEvk());
}

TEST_F(FirmwareDownloadTest, FirstFailedRequestEndsIt) {
  Attach(folder_.Write("fw.hex", Record(0, 1, "AA") + Record(8, 1, "BB")));
  const char* const all = R"(
      40 A0 00 E6 00 00 01 00 : 01 -> ok
      40 A0 00 00 00 00 01 00 : AA -> ok
      40 A0 08 00 00 00 01 00 : BB -> ok
      40 A0 00 E6 00 00 01 00 : 00 -> ok
  )";
  PlayUpToEachFailure(all, [&] { EXPECT_EQ(3U, LoadEvk()); });
  PlayUpToEachFailure(all, [&] { EXPECT_EQ(6U, LoadWfx()); });
}

TEST_F(FirmwareDownloadTest, FileThatCannotBeUsedSendsNothing) {
  const std::string bad = folder_.Write("bad.hex", Record(0, 4, "AA") + ":04000400AABB\n");
  for (const std::string& setting : {std::string(), folder_.Path("missing.hex"),
                                     std::string("no such file beside the program.hex"), bad}) {
    Attach(setting);
    EXPECT_EQ(setting == bad ? 2U : 1U, LoadEvk()) << setting;
    EXPECT_EQ(setting == bad ? 2U : 1U, LoadWfx()) << setting;
  }
  EXPECT_EQ(
      "[CTzEvkConfigure::ConfigureKX7())]Programming KX7 of device VID=0F0F with hex file "
      "bad.hex\n"
      "[CTzWfxConfigure::ConfigureKX7())]Programming KX7 of device VID=0F0F with hex file "
      "bad.hex\n",
      TakeLog());
}

TEST_F(FirmwareDownloadTest, RelativeNamesAreBesideTheProgramUnlessTheyAreVeryShort) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.Path(""));
  for (const auto& [name, result] : {std::pair{"wirefox-firmware-test.hex", 0U}, {"zz", 1U}}) {
    std::ofstream(GetModuleDirectory() + name) << ":00000001FF\n";  // no data: it only resets
    Attach(name);
    if (result == 0) {
      bus_.Play("40 A0 00 E6 00 00 01 00 : 01 -> ok \n 40 A0 00 E6 00 00 01 00 : 00 -> ok");
    }
    EXPECT_EQ(result, LoadWfx()) << name;
    std::remove((GetModuleDirectory() + name).c_str());
  }
  std::filesystem::current_path(before);
}

}  // namespace
