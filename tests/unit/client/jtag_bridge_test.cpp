// Random cycles through the bridge and the probe's packets, against the same chain clocked
// directly.
#include "client/serve/jtag_bridge.h"

#include <gtest/gtest.h>

#include <random>

#include "sim/jtag_stream.h"
#include "sim/targets/jtag_chain.h"
#include "tests/unit/random_seed.h"

namespace client {
namespace {

// What a chain went through: states in which it stays are told once, however long it stayed.
class Chain {
 public:
  explicit Chain(const sim::ChainDescription& description) : chain_(description) {}

  bool Clock(bool tms, bool tdi) {
    const bool tdo = chain_.Clock(tms, tdi);
    ++cycles;
    const auto state = chain_.state();
    const bool acts = state == sim::TapState::kCaptureDr || state == sim::TapState::kUpdateDr ||
                      state == sim::TapState::kCaptureIr || state == sim::TapState::kUpdateIr;
    if (acts) story.push_back(static_cast<char>('0' + static_cast<int>(state)));
    if (state == sim::TapState::kUpdateDr) {
      for (const auto& tap : chain_.taps()) story += std::to_string(tap.scratch()) + ' ';
    }
    if (state == sim::TapState::kTestLogicReset && story.back() != 'R') story.push_back('R');
    return tdo;
  }
  bool Packet(std::span<const std::uint8_t> packet, Bytes& tdo) {
    EXPECT_EQ(packet.size() % 2, 0u);
    EXPECT_LT(packet.size(), 0x1000u);
    const auto clock = [this](bool tms, bool tdi) { return Clock(tms, tdi); };
    tdo = sim::RunChunk(packet.data(), static_cast<std::uint32_t>(4 * packet.size()), clock);
    return true;
  }
  bool shifts() const {
    return chain_.state() == sim::TapState::kShiftDr || chain_.state() == sim::TapState::kShiftIr;
  }
  int state() const { return static_cast<int>(chain_.state()); }

  std::string story = "R";
  std::size_t cycles = 0;

 private:
  sim::JtagChain chain_;
};

sim::ChainDescription RandomChain(std::mt19937& random) {
  sim::ChainDescription chain;
  for (unsigned i = 1 + random() % 3; i > 0; --i) {
    chain.taps.push_back({.has_idcode = random() % 2 == 0,
                          .idcode = static_cast<std::uint32_t>(random() | 1u),
                          .ir_length = 2 + static_cast<unsigned>(random() % 3),
                          .idcode_instruction = 1,
                          .scratch_instruction = 0,
                          .scratch_bits = 1 + static_cast<unsigned>(random() % 64)});
  }
  return chain;
}

TEST(JtagBridge, AToolSeesWhatItWouldSeeOnAnAdapterOfItsOwn) {
  std::mt19937 random(unit::RandomSeed());
  std::size_t extra = 0;
  std::size_t wrong = 0;
  for (int sequence = 0; sequence < 1000; ++sequence) {
    const sim::ChainDescription description = RandomChain(random);
    Chain direct(description);
    Chain behind(description);
    JtagBridge bridge([&](auto packet, Bytes& tdo) { return behind.Packet(packet, tdo); });
    ASSERT_TRUE(bridge.Reset());
    const unsigned longest = (1u << random() % 9) + (sequence % 500 == 0 ? 40000 : 0);
    const unsigned stay = 2 + static_cast<unsigned>(random() % 12);
    for (int run = 0; run < 30; ++run) {
      BitQueue tms, tdi, expected, care;
      for (std::size_t n = 1 + random() % longest; n > 0; --n) {
        const unsigned moves = direct.shifts() ? stay : 2;
        tms.Add(random() % moves == 0);
        tdi.Add(random() % 2 != 0);
        care.Add(direct.shifts());
        const std::size_t at = tms.size() - 1;
        expected.Add(direct.Clock(tms[at], tdi[at]) && care[at]);
      }
      const std::size_t single = random() % tms.size();
      for (std::size_t i = 0; i < single; ++i) bridge.Add(tms[i], tdi[i]);
      bridge.Add(SliceBits(tms.bytes(), single, tms.size() - single),
                 SliceBits(tdi.bytes(), single, tms.size() - single), tms.size() - single);
      ASSERT_EQ(static_cast<int>(bridge.state()), direct.state());
      Bytes tdo;
      ASSERT_TRUE(bridge.Run(tdo));
      for (std::size_t i = 0; i < tdo.size(); ++i) {
        wrong += (tdo[i] & care.bytes()[i]) != expected.bytes()[i];
      }
      ASSERT_EQ(tdo.size(), expected.bytes().size());
      ASSERT_EQ(static_cast<int>(bridge.state()), direct.state());
      ASSERT_EQ(wrong, 0u) << "sequence " << sequence << " run " << run;
    }
    // Into Idle, in which nothing is held.
    const Bytes out{0x1F};
    bridge.Add(out, Bytes{0}, 6);
    for (int i = 0; i < 6; ++i) direct.Clock(i < 5, false);
    Bytes tdo;
    ASSERT_TRUE(bridge.Run(tdo));
    ASSERT_EQ(behind.story, direct.story);
    ASSERT_EQ(behind.state(), direct.state());
    if (longest >= 256) extra = std::max(extra, behind.cycles * 100 / direct.cycles);
  }
  // Nothing worth mention on long runs.
  EXPECT_LT(extra, 125u);
}

// Of a chain of one TAP without an id the service's scan finds what stands for the probe's serial
// line, and ends no session. It comes before any packet, and ends in Shift-DR.
TEST(JtagBridge, AnotherProgramsScanOfOneTapWithoutAnIdIsNoticedOrDoesNotMatter) {
  std::mt19937 random(unit::RandomSeed());
  const sim::ChainDescription description = {.taps = {{.has_idcode = false, .ir_length = 4}}};
  std::size_t noticed = 0;
  for (int sequence = 0; sequence < 500; ++sequence) {
    Chain direct(description);
    Chain behind(description);
    int until_scan = -1;
    JtagBridge bridge([&](auto packet, Bytes& tdo) {
      for (int i = 0; until_scan == 0 && i < 16; ++i) behind.Clock(0x2FFF >> i & 1, false);
      --until_scan;
      return behind.Packet(packet, tdo);
    });
    ASSERT_TRUE(bridge.Reset());
    until_scan = static_cast<int>(random() % 6);
    for (int run = 0; run < 8; ++run) {
      Bytes tms(1 + random() % (random() % 20 == 0 ? 6000 : 4)), tdi(tms.size());
      for (std::size_t i = 0; i < tms.size(); ++i) {
        tms[i] = static_cast<std::uint8_t>(random() & random());
        tdi[i] = static_cast<std::uint8_t>(random());
      }
      const std::size_t cycles = 8 * tms.size() - random() % 8;
      bridge.Add(tms, tdi, cycles);
      Bytes tdo;
      const bool scanned_before = until_scan < 0;
      if (!bridge.Run(tdo)) {
        EXPECT_TRUE(bridge.was_moved());
        EXPECT_TRUE(until_scan < 0 && !scanned_before);
        ++noticed;
        ASSERT_TRUE(bridge.Reset());
        break;
      }
      for (std::size_t i = 0; i < cycles; ++i) {
        const bool shifts = direct.shifts();
        const bool bit = direct.Clock(tms[i / 8] >> i % 8 & 1, tdi[i / 8] >> i % 8 & 1);
        ASSERT_TRUE(!shifts || bit == ((tdo[i / 8] >> i % 8 & 1) != 0)) << sequence << ' ' << i;
      }
      ASSERT_EQ(static_cast<int>(bridge.state()), direct.state());
    }
  }
  EXPECT_GT(noticed, 250u);
}

TEST(JtagBridge, APacketThatFailsOrIsAnsweredShortFailsTheRun) {
  for (const bool answers : {false, true}) {
    int packets = 0;
    JtagBridge bridge([&](auto packet, Bytes& tdo) {
      ++packets;
      tdo.resize(packet.size() / 2 - (answers ? 1 : 0));
      return answers;
    });
    EXPECT_FALSE(bridge.Reset());
    EXPECT_EQ(packets, 1);
  }
}

}  // namespace
}  // namespace client
