// Probes that come and go while clients work and watch.
#include <algorithm>
#include <thread>

#include "tests/system/harness.h"

namespace system_test {
namespace {

using Plugging = OnBench;

// A client's script with as many transfers, which read the identification of the probe's target.
std::string Transfers(const std::string& probe, int count) {
  std::string lines =
      std::string("mode ") + probe + " SWD\ntargets " + probe + "\ns = acquire " + probe + "\n";
  for (int i = 0; i < count; ++i) lines += "-swd $s a5\n";
  return lines;
}

// The errors of a client's transfers, in order, while the client goes on in the background.
class Transferring {
 public:
  explicit Transferring(std::unique_ptr<Client> client) : client_(std::move(client)) {
    for (int i = 0; i < 3; ++i) client_->ReadLine();  // mode, targets, session
    Read();
    reader_ = std::thread([this] {
      while (Read()) {
      }
    });
  }
  ~Transferring() {
    if (reader_.joinable()) reader_.join();
  }

  // All of them, once the client has ended.
  Words End() {
    reader_.join();
    EXPECT_EQ(client_->Wait(), 0);
    return errors_;
  }

 private:
  bool Read() {
    const auto line = client_->ReadLine();
    if (!line) return false;
    const auto result = nlohmann::json::parse(*line, nullptr, false);
    const std::string error = result.value("error", *line);
    errors_.push_back(error != "SUCCESS" || result["RESULT"] == "7714a02b01" ? error : *line);
    return true;
  }

  std::unique_ptr<Client> client_;
  Words errors_;
  std::thread reader_;
};

TEST_F(Plugging, ACommandWithPatienceGetsTheProbeThatComes) {
  ASSERT_EQ(Ctl({"unplug", "WFX0001"}).exit_status, 0);
  ASSERT_TRUE(ProbesBecome({"EVK0001", "WFX0002"}));
  const auto waits = StartWfx({"--wait", "60", "hwrev", "WFX0001"});
  const auto interrupted = StartWfx({"--wait", "100000", "hwrev", "WFX0001"});
  const Finished at_once = Wfx({"hwrev", "WFX0001"});
  const Finished expired = Wfx({"--wait", "1", "hwrev", "WFX0001"});
  EXPECT_EQ(expired.exit_status, 15);
  EXPECT_EQ(expired.err, at_once.err);
  EXPECT_TRUE(waits->IsRunning());
  interrupted->Interrupt();
  EXPECT_NE(interrupted->Wait(), support::kRuns);
  ASSERT_EQ(Ctl({"plug", "WFX0001"}).exit_status, 0);
  EXPECT_EQ(waits->Wait(), 0);
}

TEST_F(Plugging, EachChangeIsWrittenIntoTheFileAndSeenByAWatcher) {
  const auto watch = StartWfx({"watch", "--json"});
  const auto next = [&] {
    auto result = nlohmann::json::parse(watch->ReadLine().value_or(""), nullptr, false);
    auto names = result.value("wirefoxs", Words{"no line"});
    std::ranges::sort(names);
    return names;
  };
  EXPECT_EQ(next(), kAllProbes);
  const std::pair<Words, Words> changes[] = {
      {{"unplug", "EVK0001"}, {"WFX0001", "WFX0002"}},
      {{"unplug", "WFX0001"}, {"WFX0002"}},
      {{"unplug", "WFX0002"}, {}},
      // Fresh again: firmware first, then it is new in the list.
      {{"plug", "WFX0001"}, {"WFX0001"}},
      {{"plug", "EVK0001"}, {"EVK0001", "WFX0001"}},
  };
  for (const auto& [command, probes] : changes) {
    SCOPED_TRACE(command[0] + command[1]);
    ASSERT_EQ(Ctl(command).exit_status, 0);
    EXPECT_TRUE(ProbesBecome(probes));
    EXPECT_EQ(next(), probes);
  }
  watch->Interrupt();
  EXPECT_EQ(watch->Wait(), 0);
  EXPECT_EQ(watch->ReadAll(), "");
}

TEST_F(Plugging, AClientOfAnotherProbeNoticesNothing) {
  Transferring client(StartWfx({"script", "-", "--json"}, Transfers("WFX0002", 150)));
  ASSERT_EQ(Ctl({"unplug", "EVK0001"}).exit_status, 0);
  EXPECT_TRUE(ProbesBecome({"WFX0001", "WFX0002"}));
  ASSERT_EQ(Ctl({"plug", "EVK0001"}).exit_status, 0);
  EXPECT_TRUE(ProbesBecome(kAllProbes));
  EXPECT_EQ(client.End(), Words(150, "SUCCESS"));
}

TEST_F(Plugging, AClientOfTheProbeThatLeavesIsToldAndCanHaveItAgain) {
  constexpr int kMany = 4000;  // more than are done before the probe leaves
  Transferring client(StartWfx({"script", "-", "--json"}, Transfers("WFX0002", kMany)));
  ASSERT_EQ(Ctl({"unplug", "WFX0002"}).exit_status, 0);
  EXPECT_TRUE(ProbesBecome({"EVK0001", "WFX0001"}));
  // Transfers, then those that meet the lost device, then a session that has ended with its probe.
  const Words errors = client.End();
  ASSERT_EQ(std::ssize(errors), kMany);
  const auto failed = std::ranges::find_if(errors, [](const auto& e) { return e != "SUCCESS"; });
  const auto ended =
      std::find_if(failed, errors.end(), [](const auto& e) { return e != "WFX_ERROR"; });
  EXPECT_NE(ended, errors.end());
  EXPECT_EQ(Words(ended, errors.end()),
            Words(static_cast<std::size_t>(errors.end() - ended), "NOT_ACQUIRED"));

  ASSERT_EQ(Ctl({"plug", "WFX0002"}).exit_status, 0);
  EXPECT_TRUE(ProbesBecome(kAllProbes));
  EXPECT_EQ(Wfx({"mode", "WFX0002", "SWD"}).exit_status, 0);
  EXPECT_EQ(Wfx({"swd", "WFX0002", "read-dp", "0"}).out, "read-dp 0x00000000  0x2ba01477\n");
}

}  // namespace
}  // namespace system_test
