// Loading the firmware of a fresh probe's controller, and the FPGA of a Wirefox probe.
#include "device/wfx_device.h"
#include "tests/unit/config/configure_fixture.h"

namespace {

class LoadTest : public ConfigureTest {
 protected:
  // A device whose setting of this kind is `file`.
  void AttachWith(const char* kind, const std::string& file) {
    probe_ = Device(NewProduct(), "P");
    Set(probe_.product_id, kind, file);
    bus_.SetDevices({probe_});
  }
  void AttachImage(const std::string& content) {
    AttachWith("FPGA", folder_.Write("image.bin", content));
  }

  template <typename Configure>
  static std::uint32_t LoadFirmware(Configure& configure) {
    CTzWfxDevice device(0, false);
    return configure.ConfigureKX7(device);
  }
  std::uint32_t LoadFpga() {
    CTzWfxDevice device(0, true);
    return wfx_.ConfigureFPGA(device);
  }

  static std::string Record(unsigned address, unsigned count, const char* byte) {
    char text[16];
    std::snprintf(text, sizeof text, ":%02X%04X00", count, address);
    std::string record = text;
    for (unsigned i = 0; i < count; ++i) record += byte;
    return record + "00\n";
  }

  // One attempt, by default with an image of two bytes.
  static std::string Attempt(const std::string& finish_reply, const std::string& status,
                             const std::string& transfer = "ok",
                             const std::string& length_less_one = "01 00 00 00",
                             const std::string& image = "A1 A2") {
    return "C0 47 00 00 00 00 10 00 -> 00*16     # prepare\npause 10\nC0 45 " + length_less_one +
           " 10 00 -> 00*16\npause 50\nout 02 : " + image + " -> " + transfer +
           "\nC0 46 00 00 00 00 10 00 -> " + finish_reply + "\nC0 44 00 00 00 00 0E 00 -> " +
           status + " 00*13\n";
  }

  unit::ScriptedDevice probe_;
};

TEST_F(LoadTest, FirmwareBlocksGoOutInChunksUntilARequestFails) {
  std::string file;
  for (unsigned address = 0; address < 5000; address += 200) file += Record(address, 200, "AA");
  file += Record(0x2000, 16, "BB") + Record(0x2010, 16, "BB") + Record(0x2030, 3, "CC");
  AttachWith("KX7", folder_.Write("fw.hex", file + ":00000001FF\n"));
  const char* const all = R"(
      40 A0 00 E6 00 00 01 00 : 01 -> ok         # hold the processor
      40 A0 00 00 00 00 00 08 : AA*2048 -> ok
      40 A0 00 08 00 00 00 08 : AA*2048 -> ok
      40 A0 00 10 00 00 88 03 : AA*904 -> ok
      40 A0 00 20 00 00 20 00 : BB*32 -> ok      # two records that lie back to back
      40 A0 30 20 00 00 03 00 : CC CC CC -> ok
      40 A0 00 E6 00 00 01 00 : 00 -> ok         # let it run
  )";
  bus_.Play(all);
  EXPECT_EQ(0U, LoadFirmware(evk_));
  PlayUpToEachFailure(all, [&] { EXPECT_EQ(3U, LoadFirmware(evk_)); });
  PlayUpToEachFailure(all, [&] { EXPECT_EQ(6U, LoadFirmware(wfx_)); });
}

TEST_F(LoadTest, FirmwareFileThatCannotBeUsedSendsNothing) {
  const std::string bad = folder_.Write("bad.hex", Record(0, 4, "AA") + ":04000400AABB\n");
  for (const std::string& setting : {std::string(), folder_.Path("missing.hex"),
                                     std::string("no such file beside the program.hex"), bad}) {
    AttachWith("KX7", setting);
    EXPECT_EQ(setting == bad ? 2U : 1U, LoadFirmware(evk_)) << setting;
    EXPECT_EQ(setting == bad ? 2U : 1U, LoadFirmware(wfx_)) << setting;
  }
  const std::string text =
      "::ConfigureKX7())]Programming KX7 of device VID=0F0F with hex file bad.hex\n";
  EXPECT_EQ("[CTzEvkConfigure" + text + "[CTzWfxConfigure" + text, TakeLog());
}

TEST_F(LoadTest, RelativeNamesAreBesideTheProgramUnlessTheyAreVeryShortFirmwareNames) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.Path(""));
  for (const auto& [name, result] : {std::pair{"wirefox-firmware-test.hex", 0U}, {"zz", 1U}}) {
    std::ofstream(GetModuleDirectory() + name) << ":00000001FF\n";  // no data: it only resets
    AttachWith("KX7", name);
    bus_.Play(result != 0
                  ? ""
                  : "40 A0 00 E6 00 00 01 00 : 01 -> ok\n40 A0 00 E6 00 00 01 00 : 00 -> ok");
    EXPECT_EQ(result, LoadFirmware(wfx_)) << name;
    AttachWith("FPGA", name);
    probe_.endpoints = {};
    bus_.SetDevices({probe_});
    EXPECT_EQ(4U, LoadFpga()) << "its file is found";
    std::remove((GetModuleDirectory() + name).c_str());
  }
  std::filesystem::current_path(before);
}

TEST_F(LoadTest, FpgaAttemptsEndWithTheStatusAndTheFinishReplyDecides) {
  const struct {
    const char* what;
    unsigned attempts;
    std::string last;
    std::uint32_t result;
  } cases[] = {
      {"a failed transfer is left to the status", 1, Attempt("00*16", "00", "stall"), 0},
      {"loaded at the third", 3, Attempt("00*16", "00"), 0},
      {"status good, finish bad", 1, Attempt("01 02 00*14", "00"), 3},
      {"finish error 5", 2, Attempt("01 05 00*14", "00"), 5},
      {"error byte without an error", 1, Attempt("00 05 00*14", "00"), 0},
      {"never good, finish good", 6, Attempt("00*16", "07"), 0},
      {"never good, finish bad", 6, Attempt("80 04 00*14", "07"), 3},
      {"never good, finish error 5", 6, Attempt("FF 05 00*14", "01"), 5},
  };
  AttachImage("\xA1\xA2");
  for (const auto& [what, attempts, last, result] : cases) {
    SCOPED_TRACE(what);
    std::string script = "size 02 512\n";
    for (unsigned i = 1; i < attempts; ++i) script += Attempt("01 09 00*14", "01");
    bus_.Play(script + last);
    EXPECT_EQ(result, LoadFpga());
    bus_.ExpectPlayed();
  }
  PlayUpToEachFailure("size 02 512\n" + Attempt("01*16", "01") + Attempt("00*16", "00"),
                      [&] { EXPECT_EQ(3U, LoadFpga()); });
}

// By the pass: a probe gets its entry when its FPGA has loaded.
TEST_F(LoadTest, ProbeIsTriedByEveryPassUntilItsFpgaLoads) {
  AttachImage("\xA1\xA2");
  Set(probe_.product_id, "WFXDEVICE", "CONFIGURED");
  for (const char* const finish_reply : {"01 02 00*14", "00*16"}) {
    bus_.Play("size 02 512\n" + Attempt(finish_reply, "00"));
    EXPECT_EQ(finish_reply[1] == '0', wfx_.ConfigureNewDevices(enumerator_));
  }
  EXPECT_FALSE(wfx_.ConfigureNewDevices(enumerator_));
  // Both families may handle one device.
  Set(probe_.product_id, "EVKDEVICE", "CONFIGURED");
  EXPECT_TRUE(evk_.ConfigureNewDevices(enumerator_));
  EXPECT_EQ(evk_.GetConfiguredDevices()[0], FindProbeByName(L"P"));
}

TEST_F(LoadTest, FpgaLengthIsAnnouncedLessOne) {
  const struct {
    std::size_t size;
    std::string announced, transfer_size;  // whole packets
  } cases[] = {
      {0, "FF FF FF FF", "0"}, {65536, "FF FF 00 00", "65536"}, {65537, "00 00 01 00", "66048"}};
  for (const auto& [size, announced, transfer_size] : cases) {
    AttachImage(std::string(size, '\x5A'));
    bus_.Play("size 02 " + transfer_size + "\n" +
              Attempt("00*16", "00", "ok", announced, "5A*" + std::to_string(size)));
    EXPECT_EQ(0U, LoadFpga());
  }
}

TEST_F(LoadTest, WithoutFpgaImageNothingIsSent) {
  // The last one is a folder, which has no bytes to send.
  for (const std::string& file : {std::string(), folder_.Path("missing.bin"), folder_.Path("")}) {
    AttachWith("FPGA", file);
    EXPECT_EQ(1U, LoadFpga()) << file;
  }
  const std::string programming =
      "[CTzWfxConfigure::ConfigureFPGA())]Programming FPGA of device VID=0F0F with hex file ";
  EXPECT_EQ(programming + "missing.bin\n" + programming + "\n", TakeLog());
}

}  // namespace
