// What tests of probe objects share: a scripted probe on the host's bus, the test clock, and the
// lines that the log holds.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "platform/test_host.h"
#include "tests/unit/scratch_folder.h"
#include "tests/unit/scripted_bus.h"

using unit::Bytes;

// The log at full level while one lives.
class LogCapture {
 public:
  // The lines since the last call, each from its source's bracket on.
  std::vector<std::string> Take() {
    std::vector<std::string> lines = file_.Lines();
    const std::size_t taken = std::exchange(taken_, lines.size());
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(taken));
    return lines;
  }

  // Of these the ones that report a status.
  std::vector<std::string> TakeErrors() {
    std::vector<std::string> lines = Take();
    std::erase_if(
        lines, [](const std::string& line) { return line.find("]Error ") == std::string::npos; });
    return lines;
  }

 private:
  unit::LogFile file_{31};
  std::size_t taken_ = 0;
};

class ScriptedProbeTest : public testing::Test {
 protected:
  explicit ScriptedProbeTest(unit::ScriptedDevice device = {}) : bus_({std::move(device)}) {
    test_host::UseBus(&bus_);
  }
  ~ScriptedProbeTest() override { test_host::UseBus(nullptr); }

  void TearDown() override { ExpectPlayed(); }

  // What has come so far was what the script said; what comes next is to be `script`.
  void Play(const std::string& script) {
    bus_.ExpectPlayed();
    bus_.Play(script);
  }
  void ExpectPlayed() { bus_.ExpectPlayed(); }

  // `operation`, which makes the exchanges of `script`, ends in failure with each of its control
  // requests that fails, and asks for nothing more.
  void ExpectEndsAtEachFailure(const std::function<std::uint32_t()>& operation,
                               const std::string& script) {
    std::istringstream lines(script);
    std::string before;
    for (std::string line; std::getline(lines, line); before += line + "\n") {
      if (line.find("C0 ") == std::string::npos) continue;
      SCOPED_TRACE("fails: " + line);
      Play(before + line.substr(0, line.find("->")) + "-> stall");
      EXPECT_NE(operation(), 0U);
      ExpectPlayed();
    }
  }

  LogCapture log_;
  test_host::TestClock clock_;
  unit::ScriptedBus bus_;
};
