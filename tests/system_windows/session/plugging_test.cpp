// Probes that come and go while clients work and watch.
#include <algorithm>
#include <thread>

#include "tests/system_windows/session/session.h"

namespace system_windows {
namespace {

class Plugging : public Session {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(Session::SetUp());
    ASSERT_NO_FATAL_FAILURE(InstallAll());
    hold_ = Hold();
    ASSERT_TRUE(AllProbesCome());
  }

 private:
  std::unique_ptr<Client> hold_;
};

// A client with as many transfers, which reads the identification of the probe's target.
std::string Transfers(const std::string& probe, int count) {
  std::string lines = std::string("mode ") + probe + " SWD\ntargets " + probe + "\n";
  lines += std::string("s = acquire ") + probe + "\n";
  for (int i = 0; i < count; ++i) lines += "-swd $s a5\n";
  return lines;
}

// The errors of a client's transfers, in order, while the client goes on in the background.
class Transferring {
 public:
  explicit Transferring(std::unique_ptr<Program> client) : client_(std::move(client)) {
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
    std::string line = client_->ReadLine();
    while (line.starts_with("wfx: ")) line = client_->ReadLine();  // the same error in words
    if (line.empty()) return false;
    const auto result = nlohmann::json::parse(line, nullptr, false);
    const bool answered = result.is_object() && result.contains("error");
    errors_.push_back(answered ? result["error"].get<std::string>() : line);
    if (errors_.back() == "SUCCESS" && result["RESULT"] != "7714a02b01") errors_.back() = line;
    return true;
  }

  std::unique_ptr<Program> client_;
  Words errors_;
  std::thread reader_;
};

TEST_F(Plugging, EachChangeIsWrittenIntoTheFileAndSeenByAWatcher) {
  Client watch("watch --json");
  const auto next = [&] {
    auto result = nlohmann::json::parse(watch.ReadLine(), nullptr, false);
    Words names = result.value("wirefoxs", Words{"no line"});
    std::ranges::sort(names);
    return names;
  };
  EXPECT_EQ(next(), Words({"EVK0001", "WFX0001", "WFX0002"}));
  struct Change {
    const char* command;
    const char* file;
    Words seen;
  };
  const Change changes[] = {
      {"unplug EVK0001", "WFX0001\r\nWFX0002\r\n", {"WFX0001", "WFX0002"}},
      {"unplug WFX0001", "WFX0002\r\n", {"WFX0002"}},
      // Fresh again: firmware first, then it is new in the list.
      {"plug WFX0001", "WFX0002\r\nWFX0001\r\n", {"WFX0001", "WFX0002"}},
      {"plug EVK0001", "EVK0001\r\nWFX0001\r\nWFX0002\r\n", {"EVK0001", "WFX0001", "WFX0002"}},
  };
  for (const Change& change : changes) {
    SCOPED_TRACE(change.command);
    ASSERT_EQ(bench->Control(change.command), 0);
    EXPECT_TRUE(FileBecomes(change.file));
    EXPECT_EQ(next(), change.seen);
  }
}

TEST_F(Plugging, AClientOfAnotherProbeNoticesNothing) {
  Transferring client(StartScript(Transfers("WFX0002", 150)));
  ASSERT_EQ(bench->Control("unplug EVK0001"), 0);
  EXPECT_TRUE(FileBecomes("WFX0001\r\nWFX0002\r\n"));
  ASSERT_EQ(bench->Control("plug EVK0001"), 0);
  EXPECT_TRUE(FileBecomes("EVK0001\r\nWFX0001\r\nWFX0002\r\n"));
  EXPECT_EQ(client.End(), Words(150, "SUCCESS"));
}

TEST_F(Plugging, AClientOfTheProbeThatLeavesIsToldAndCanHaveItAgain) {
  Transferring client(StartScript(Transfers("WFX0002", 1000)));
  ASSERT_EQ(bench->Control("unplug WFX0002"), 0);
  EXPECT_TRUE(FileBecomes("EVK0001\r\nWFX0001\r\n"));
  // Transfers, then those that meet the lost device, then a session that has ended with its probe.
  const Words errors = client.End();
  ASSERT_EQ(errors.size(), 1000u);
  const auto failed = std::ranges::find_if(errors, [](const auto& e) { return e != "SUCCESS"; });
  const auto ended =
      std::find_if(failed, errors.end(), [](const auto& e) { return e != "WFX_ERROR"; });
  EXPECT_NE(ended, errors.end());
  EXPECT_EQ(Words(ended, errors.end()),
            Words(static_cast<std::size_t>(errors.end() - ended), "NOT_ACQUIRED"));

  ASSERT_EQ(bench->Control("plug WFX0002"), 0);
  EXPECT_TRUE(FileBecomes("EVK0001\r\nWFX0001\r\nWFX0002\r\n"));
  EXPECT_EQ(Wfx("mode WFX0002 SWD").exit_status, 0);
  EXPECT_EQ(Wfx("swd WFX0002 read-dp 0").out, "read-dp 0x00000000  0x2ba01477\r\n");
}

}  // namespace
}  // namespace system_windows
