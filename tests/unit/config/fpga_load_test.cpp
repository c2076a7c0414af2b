// Loading the FPGA of a Wirefox probe.
#include "device/wfx_device.h"
#include "tests/unit/config/configure_fixture.h"

namespace {

class FpgaLoadTest : public ConfigureTest {
 protected:
  // A configured probe whose image is `content`.
  void Attach(const std::string& content) { AttachFile(folder_.Write("image.bin", content)); }

  void AttachFile(const std::string& setting) {
    const std::uint16_t product = NewProduct();
    Set(product, "FPGA", setting);
    probe_ = Device(product, "WFX");
    bus_.SetDevices({probe_});
  }

  std::uint32_t Load() {
    CTzWfxDevice device(0, true);
    return wfx_.ConfigureFPGA(device);
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

TEST_F(FpgaLoadTest, AttemptsEndWithTheStatusAndTheFinishReplyDecides) {
  const struct {
    const char* what;
    unsigned attempts;
    std::string last;
    std::uint32_t result;
  } cases[] = {
      {"loaded at once", 1, Attempt("00*16", "00"), 0},
      {"a failed transfer of the image is left to the status", 1, Attempt("00*16", "00", "stall"),
       0},
      {"loaded at the third", 3, Attempt("00*16", "00"), 0},
      {"status good, finish bad", 1, Attempt("01 02 00*14", "00"), 3},
      {"finish error 5", 2, Attempt("01 05 00*14", "00"), 5},
      {"error byte without an error", 1, Attempt("00 05 00*14", "00"), 0},
      {"never good, finish good", 6, Attempt("00*16", "07"), 0},
      {"never good, finish bad", 6, Attempt("80 04 00*14", "07"), 3},
      {"never good, finish error 5", 6, Attempt("FF 05 00*14", "01"), 5},
  };
  Attach("\xA1\xA2");
  for (const auto& [what, attempts, last, result] : cases) {
    SCOPED_TRACE(what);
    std::string script = "size 02 512\n";
    for (unsigned i = 1; i < attempts; ++i) script += Attempt("01 09 00*14", "01");
    bus_.Play(script + last);
    EXPECT_EQ(result, Load());
    bus_.ExpectPlayed();
  }
  PlayUpToEachFailure("size 02 512\n" + Attempt("01*16", "01") + Attempt("00*16", "00"),
                      [&] { EXPECT_EQ(3U, Load()); });
}

// By the pass: a probe gets its entry when its FPGA has loaded.
TEST_F(FpgaLoadTest, ProbeIsTriedByEveryPassUntilItsFpgaLoads) {
  Attach("\xA1\xA2");
  Set(probe_.product_id, "WFXDEVICE", "CONFIGURED");
  for (const char* const finish_reply : {"01 02 00*14", "00*16"}) {
    bus_.Play("size 02 512\n" + Attempt(finish_reply, "00"));
    EXPECT_EQ(finish_reply[1] == '0', wfx_.ConfigureNewDevices(enumerator_));
  }
  EXPECT_FALSE(wfx_.ConfigureNewDevices(enumerator_));
  const std::string programming =
      "[CTzWfxConfigure::ConfigureFPGA())]Programming FPGA of device VID=0F0F with hex file "
      "image.bin\n";
  EXPECT_EQ(programming +
                "[CTzWfxConfigure::ProgramFPGA]Error 3 programming device WFX, with file "
                "image.bin.\n" +
                programming +
                "[CTzDeviceConfigure::AddConfiguredDevice]Device WFX available for use\n",
            TakeLog());
  // Both families may handle one device.
  Set(probe_.product_id, "EVKDEVICE", "CONFIGURED");
  EXPECT_TRUE(evk_.ConfigureNewDevices(enumerator_));
  EXPECT_EQ("WFX WFX ", Names());
  EXPECT_EQ(evk_.GetConfiguredDevices()[0], FindProbeByName(L"WFX"));
}

TEST_F(FpgaLoadTest, LengthIsAnnouncedLessOne) {
  const struct {
    std::size_t size;
    std::string announced, transfer_size;  // whole packets
  } cases[] = {
      {0, "FF FF FF FF", "0"}, {65536, "FF FF 00 00", "65536"}, {65537, "00 00 01 00", "66048"}};
  for (const auto& [size, announced, transfer_size] : cases) {
    Attach(std::string(size, '\x5A'));
    bus_.Play("size 02 " + transfer_size + "\n" +
              Attempt("00*16", "00", "ok", announced, "5A*" + std::to_string(size)));
    EXPECT_EQ(0U, Load());
  }
}

TEST_F(FpgaLoadTest, WithoutImageOrEndpointNothingIsSent) {
  // The last one is a folder, which has no bytes to send.
  for (const std::string& file : {std::string(), folder_.Path("missing.bin"), folder_.Path("")}) {
    AttachFile(file);
    EXPECT_EQ(1U, Load()) << file;
  }
  Attach("\xA1\xA2");
  probe_.endpoints = {0x84};
  bus_.SetDevices({probe_});
  EXPECT_EQ(4U, Load());
}

}  // namespace
