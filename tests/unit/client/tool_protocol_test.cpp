#include "client/serve/tool_protocol.h"

#include <gtest/gtest.h>

#include <random>

#include "sim/jtag_stream.h"
#include "sim/targets/jtag_chain.h"
#include "tests/unit/random_seed.h"

namespace client {
namespace {

const sim::ChainDescription kChain = {
    .taps = {{.idcode = 0x1BA01477}, {.idcode = 0x0684617F, .ir_length = 5}}};

// A chain behind a bridge, and what was asked of the probe besides.
class ToolProtocols : public testing::Test {
 protected:
  ToolProtocols() { EXPECT_TRUE(bridge.Reset()); }

  // The answers, and behind a bar what ended the conversation.
  std::string Work(ToolProtocol& protocol, const std::string& input) {
    Bytes answers;
    std::string problem;
    const bool goes_on = protocol.Work(Bytes(input.begin(), input.end()), answers, problem);
    return std::string(answers.begin(), answers.end()) + (goes_on ? "" : "|" + problem);
  }

  sim::JtagChain chain{kChain};
  int packets = 0;
  JtagBridge bridge{[this](std::span<const std::uint8_t> packet, Bytes& tdo) {
    ++packets;
    tdo = sim::RunChunk(packet.data(), static_cast<std::uint32_t>(4 * packet.size()),
                        [this](bool tms, bool tdi) { return chain.Clock(tms, tdi); });
    return true;
  }};
  std::string asked;
  const ProbeControls controls{[this](std::uint32_t period) {
                                 asked += " period " + std::to_string(period);
                                 return period + 1;
                               },
                               [this](bool active) {
                                 asked += active ? " reset" : " release";
                                 return true;
                               }};
};

// The bit is read before the clock's rising edge or behind it, and the characters come in pieces of
// any length.
TEST_F(ToolProtocols, RemoteBitbangReadsTheBitOfEachCycle) {
  std::mt19937 random(unit::RandomSeed());
  sim::JtagChain direct(kChain);
  const auto bitbang = MakeRemoteBitbang(bridge, controls);
  std::string waiting, expected, answers;
  for (int cycle = 0; cycle < 20000; ++cycle) {
    const bool shifts =
        direct.state() == sim::TapState::kShiftDr || direct.state() == sim::TapState::kShiftIr;
    const bool tms = random() % (shifts ? 20 : 2) == 0;
    const bool tdi = random() % 2 != 0;
    const auto levels = [&](bool tck) {
      return static_cast<char>('0' + (tck ? 4 : 0) + (tms ? 2 : 0) + (tdi ? 1 : 0));
    };
    const bool tdo = direct.Clock(tms, tdi);
    const unsigned reads = shifts ? static_cast<unsigned>(random() % 4) : 0;
    waiting += levels(false) + std::string((reads & 1) != 0 ? "R" : "") + levels(true) +
               ((reads & 2) != 0 ? "R" : "");
    for (unsigned i = reads; i > 0; i &= i - 1) expected += tdo ? '1' : '0';
    while (waiting.size() > 40 || random() % 4 == 0) {
      const std::size_t part = random() % (waiting.size() + 1);
      answers += Work(*bitbang, waiting.substr(0, part));
      waiting.erase(0, part);
    }
  }
  answers += Work(*bitbang, waiting);
  EXPECT_EQ(answers, expected);
}

TEST_F(ToolProtocols, RemoteBitbangResetsAndEndsAsItIsTold) {
  const auto bitbang = MakeRemoteBitbang(bridge, controls);
  EXPECT_EQ(Work(*bitbang, "B0404"), "");
  EXPECT_EQ(chain.state(), sim::TapState::kRunTestIdle);
  EXPECT_EQ(Work(*bitbang, "rtsubr"), "");
  EXPECT_EQ(chain.state(), sim::TapState::kTestLogicReset);
  EXPECT_EQ(asked, " reset release");
  EXPECT_EQ(Work(*bitbang, "04Q"), "|");
  EXPECT_EQ(chain.state(), sim::TapState::kRunTestIdle);
  // A reset forgets what ran ahead, and no clock ends it.
  EXPECT_EQ(Work(*bitbang, "2604040Rt040406r04"), "1");
  EXPECT_EQ(chain.state(), sim::TapState::kRunTestIdle);
  EXPECT_EQ(Work(*bitbang, "x"), "|the tool sent 'x', which is no action of remote_bitbang's JTAG");
  // Into Shift-DR, where a bit is read ahead of an edge that then comes with another TDI.
  EXPECT_EQ(Work(*bitbang, "2604040R"), "1");
  EXPECT_EQ(Work(*bitbang, "15"),
            "|the tool changed TMS or TDI after it had read TDO, before the clock's edge");
  // A tool that leaves the target in reset.
  asked.clear();
  EXPECT_EQ(Work(*MakeRemoteBitbang(bridge, controls), "s"), "");
  EXPECT_EQ(asked, " reset release");
}

TEST_F(ToolProtocols, XvcAnswersEachMessageAndGathersShiftsIntoOnePacket) {
  const auto xvc = MakeXvc(bridge, controls);
  // To Idle and Shift-DR; 64 bits out of it; and one more that ends the scan.
  const std::string shifts(
      "shift:\x04\0\0\0\x02\0"
      "shift:\x40\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
      "shift:\x01\0\0\0\xFF\xFF",
      50);
  packets = 0;
  EXPECT_EQ(Work(*xvc, shifts), std::string("\x0F\x7F\x61\x84\x06\x77\x14\xA0\x1B\0", 10));
  EXPECT_EQ(packets, 1);
  EXPECT_EQ(Work(*xvc, "get"), "");
  EXPECT_FALSE(xvc->IsBetweenMessages());
  EXPECT_EQ(Work(*xvc, std::string("info:settck:\x64\0\0\0sh", 18)),
            std::string("xvcServer_v1.0:8128\n\x65\0\0\0", 24));
  EXPECT_EQ(asked, " period 100");
  EXPECT_EQ(Work(*xvc, std::string("ift:\0\0\0\0", 8)), "");
  EXPECT_TRUE(xvc->IsBetweenMessages());
}

}  // namespace
}  // namespace client
