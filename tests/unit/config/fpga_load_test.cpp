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
    return configure_.ConfigureFPGA(device);
  }

  // One attempt with an image of two bytes.
  static std::string Attempt(const std::string& finish_reply, const char* status) {
    return "C0 47 00 00 00 00 10 00 -> 00*16\n"
           "C0 45 01 00 00 00 10 00 -> 00*16\n"
           "out 02 : A1 A2 -> ok\n"
           "C0 46 00 00 00 00 10 00 -> " +
           finish_reply + "\nC0 44 00 00 00 00 0E 00 -> " + status + " 00*13\n";
  }

  unit::ScriptedDevice probe_;
  CTzWfxConfigure configure_;
};

TEST_F(FpgaLoadTest, OneAttemptWhenTheStatusSaysSo) {
  Attach("\xA1\xA2");
  bus_.Play(R"(
      C0 47 00 00 00 00 10 00 -> 00*16      # prepare
      C0 45 01 00 00 00 10 00 -> 00*16      # length, less one
      out 02 : A1 A2 -> ok
      C0 46 00 00 00 00 10 00 -> 00*16      # finish
      C0 44 00 00 00 00 0E 00 -> 00*14      # status
  )");
  const std::uint64_t before = clock_.NowMs();
  EXPECT_EQ(0U, Load());
  EXPECT_EQ(60U, clock_.NowMs() - before);
  bus_.ExpectPlayed();
}

TEST_F(FpgaLoadTest, AttemptsEndWithTheStatusAndTheFinishReplyDecides) {
  struct Case {
    const char* what;
    int attempts;
    const char* finish_reply;
    const char* last_status;
    std::uint32_t result;
  };
  const Case cases[] = {
      {"loaded at the third", 3, "00*16", "00", 0},
      {"status good, finish bad", 1, "01 02 00*14", "00", 3},
      {"finish error 5", 2, "01 05 00*14", "00", 5},
      {"error byte without an error", 1, "00 05 00*14", "00", 0},
      {"never good, finish good", 6, "00*16", "07", 0},
      {"never good, finish bad", 6, "80 04 00*14", "07", 3},
      {"never good, finish error 5", 6, "FF 05 00*14", "01", 5},
  };
  for (const Case& c : cases) {
    Attach("\xA1\xA2");
    std::string script;
    for (int i = 1; i < c.attempts; ++i) script += Attempt("01 09 00*14", "01");
    bus_.Play(script + Attempt(c.finish_reply, c.last_status));
    EXPECT_EQ(c.result, Load()) << c.what;
    bus_.ExpectPlayed();
  }
}

TEST_F(FpgaLoadTest, FailedTransferOfTheImageIsLeftToTheStatus) {
  Attach("\xA1\xA2");
  bus_.Play(R"(
      C0 47 00 00 00 00 10 00 -> 00*16
      C0 45 01 00 00 00 10 00 -> 00*16
      out 02 : A1 A2 -> stall
      C0 46 00 00 00 00 10 00 -> 00*16
      C0 44 00 00 00 00 0E 00 -> 00*14
  )");
  EXPECT_EQ(0U, Load());
  bus_.ExpectPlayed();
}

TEST_F(FpgaLoadTest, FailedRequestEndsIt) {
  Attach("\xA1\xA2");
  const std::string all = Attempt("01*16", "01") + Attempt("00*16", "00");
  std::vector<std::string> lines;
  std::istringstream text(all);
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  for (std::size_t failing = 0; failing < lines.size(); ++failing) {
    if (lines[failing].starts_with("out")) continue;
    std::string script;
    for (std::size_t i = 0; i < failing; ++i) script += lines[i] + "\n";
    bus_.Play(script + lines[failing].substr(0, lines[failing].find("->")) + "-> stall\n");
    EXPECT_EQ(3U, Load()) << lines[failing];
    bus_.ExpectPlayed();
  }
}

TEST_F(FpgaLoadTest, LengthIsAnnouncedLessOne) {
  struct Case {
    std::size_t size;
    const char* announce;
  };
  for (const Case& c : {Case{0, "C0 45 FF FF FF FF 10 00"}, Case{65536, "C0 45 FF FF 00 00 10 00"},
                        Case{65537, "C0 45 00 00 01 00 10 00"}}) {
    Attach(std::string(c.size, '\x5A'));
    bus_.Play("C0 47 00 00 00 00 10 00 -> 00*16\n" + std::string(c.announce) +
              " -> 00*16\nout 02 : " + unit::HexText(unit::Bytes(c.size, 0x5A)) +
              " -> ok\nC0 46 00 00 00 00 10 00 -> 00*16\nC0 44 00 00 00 00 0E 00 -> 00*14");
    EXPECT_EQ(0U, Load());
    bus_.ExpectPlayed();
  }
}

TEST_F(FpgaLoadTest, WithoutImageOrEndpointNothingIsSent) {
  AttachFile("");
  EXPECT_EQ(1U, Load());
  AttachFile(folder_.Path("missing.bin"));
  EXPECT_EQ(1U, Load());
  // A folder has no bytes to send.
  AttachFile(folder_.Path(""));
  EXPECT_EQ(1U, Load());
  Attach("\xA1\xA2");
  probe_.endpoints = {0x84};
  bus_.SetDevices({probe_});
  EXPECT_EQ(4U, Load());
  bus_.ExpectPlayed();
}

}  // namespace
