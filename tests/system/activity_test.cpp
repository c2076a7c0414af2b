// Who holds what, as `wfx` tells it of a service that runs.
#include <signal.h>

#include "tests/system/harness.h"

namespace system_test {
namespace {

class Holders : public OnBench {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(OnBench::SetUp());
    Json({"mode", "WFX0002", "SWD"});
    Json({"targets", "WFX0002"});
    Json({"vtarg", "WFX0002", "3.3"});
    // Holds the chain as one target without an id.
    serve_ = StartWfx({"serve", "WFX0001", "--remote-bitbang", "0"});
    ASSERT_TRUE(serve_->ReadLine());
  }

  // With the process that holds WFX0001 for each PID.
  std::string Told(std::string text) const {
    for (std::size_t at; (at = text.find("PID")) != text.npos;) {
      text.replace(at, 3, std::to_string(serve_->id()));
    }
    return text;
  }

  std::unique_ptr<Client> serve_;
};

TEST_F(Holders, AreNamedInTheLongListInErrorsAndInTop) {
  EXPECT_EQ(Wfx({"list", "--long"}).out, Told(R"(PROBE    MODE  VTARG  TARGET        HOLDER
EVK0001  IDLE  -      -             -
WFX0001  JTAG  -      0 0x00000000  PID wfx
WFX0002  SWD   3.3    0 0x2BA01477  free
)"));
  EXPECT_EQ(
      Wfx({"list", "--long", "--json"}).out,
      Told(
          R"({"error":"SUCCESS","wirefoxs":["EVK0001","WFX0001","WFX0002"],"probes":[)"
          R"({"name":"EVK0001","mode":"IDLE","targets":[]},{"name":"WFX0001","mode":"JTAG",)"
          R"("targets":[{"id":"00000000","held":true,"pid":PID,"program":"wfx"}]},{"name":"WFX0002",)"
          R"("mode":"SWD","voltage":"3.3","targets":[{"id":"2BA01477","held":false}]}]})"
          "\n"));

  for (const Words& refused : {Words{"mode", "WFX0001", "SWD"}, Words{"jtag", "WFX0001", "00"},
                               Words{"serve", "WFX0001", "--xvc", "0"}}) {
    const Finished finished = Wfx(refused);
    EXPECT_EQ(finished.exit_status, 11);
    EXPECT_EQ(finished.out + finished.err,
              Told("wfx: IN_USE (error 1): WFX0001: target 0 is held by PID wfx; wait until it "
                   "lets go or ends (`wfx list` frees what dead programs held)\n"))
        << refused[0];
  }
  EXPECT_EQ(Wfx({"--json", "mode", "WFX0001", "SWD"}).out,
            Told(R"({"error":"IN_USE","holders":[{"target":0,"pid":PID,"program":"wfx"}]})"
                 "\n"));

  EXPECT_EQ(Wfx({"top", "-n", "2", "-d", "0.01"}).out,
            Told(R"(PROBE    MODE  VTARG  CALLS/S  BYTES/S  TARGET        HOLDER
EVK0001  IDLE  -      -        -        -             -
WFX0001  JTAG  -      -        -        0 0x00000000  PID wfx
WFX0002  SWD   3.3    -        -        0 0x2BA01477  free
PROBE    MODE  VTARG  CALLS/S  BYTES/S  TARGET        HOLDER
EVK0001  IDLE  -      0        0        -             -
WFX0001  JTAG  -      0        0        0 0x00000000  PID wfx
WFX0002  SWD   3.3    0        0        0 0x2BA01477  free
)"));

  // A holder that was killed is gone with the next look at the probes.
  serve_->Kill();
  EXPECT_EQ(Json({"list", "--long"})["probes"][1]["targets"],
            nlohmann::json::parse(R"([{"id":"00000000","held":false}])"));
}

TEST_F(Holders, TopCountsWhatOthersDoUntilItIsInterruptedOrTheServiceEnds) {
  const auto top = StartWfx({"top", "--json", "-d", "0.01"});
  const auto wait_for = [&](const std::function<bool(const nlohmann::json& probes)>& holds) {
    for (std::optional<std::string> line; (line = top->ReadLine());) {
      if (holds(nlohmann::json::parse(*line)["probes"])) return true;
    }
    return false;
  };
  nlohmann::json before;
  ASSERT_TRUE(wait_for([&](const auto& probes) {
    before = probes[2];
    return probes[2].contains("callsPerSecond");
  }));
  // The probe is asked for its mode, its target acquired, asked and released.
  Json({"swd", "WFX0002", "a5"});
  bool had_calls = false;
  bool had_bytes = false;
  EXPECT_TRUE(wait_for([&](const auto& probes) {
    had_calls = had_calls || probes[2]["callsPerSecond"] > 0;
    had_bytes = had_bytes || probes[2]["bytesPerSecond"] > 0;
    return probes[2]["calls"] == before["calls"].template get<int>() + 4;
  }));
  EXPECT_TRUE(had_calls && had_bytes);
  // Seen to end, and not yet swept.
  serve_->Kill();
  EXPECT_TRUE(wait_for([&](const auto& probes) {
    const auto& target = probes[1]["targets"][0];
    return target["held"] == true && !target.contains("program");
  }));
  top->Interrupt();
  EXPECT_EQ(top->Wait(), 0);

  const auto other = StartWfx({"top", "-d", "0.01"});
  EXPECT_TRUE(other->ReadLine());
  for (const pid_t pid : ServicePids()) kill(pid, SIGKILL);
  other->ReadAll();
  EXPECT_EQ(other->Wait(), 3);
  // The file that it has left is not believed, and the next service makes its own.
  EXPECT_EQ(Wfx({"top", "-n", "1"}).exit_status, 0);
}

// Where nothing can be made beside the devices-changed file, all else goes as ever.
TEST_F(SystemTest, AServiceThatCannotShowWhatItDoesWorksAsEver) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const std::filesystem::path blocked = devices_changed_path().string() + ".activity";
  std::filesystem::create_directories(blocked);
  holder = Hold();
  ASSERT_TRUE(ProbesBecome(kAllProbes));
  const Finished listed = Wfx({"list", "--long"});
  EXPECT_EQ(listed.out,
            "PROBE    MODE  VTARG  TARGET  HOLDER\n"
            "EVK0001  IDLE  ?      ?       ?\n"
            "WFX0001  IDLE  ?      ?       ?\n"
            "WFX0002  IDLE  ?      ?       ?\n");
  EXPECT_EQ(listed.err, "wfx: the service does not show who holds what\n");
  EXPECT_EQ(Wfx({"top", "-n", "1"}).exit_status, 2);
  // Once the place is free, the file is made with the next look at the probes.
  std::filesystem::remove(blocked);
  EXPECT_EQ(Json({"list", "--long"})["probes"][0]["targets"], nlohmann::json::array());
  holder.reset();
  ASSERT_TRUE(ServiceEnds());
  EXPECT_FALSE(std::filesystem::exists(blocked));
}

}  // namespace
}  // namespace system_test
