// Eight client processes at once on the probes of one bench: none gets another's reply.
#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <sstream>
#include <thread>

#include "tests/system/harness.h"
#include "tests/unit/random_seed.h"

namespace system_test {
namespace {

constexpr int kClients = 8;
constexpr int kLines = 250;

std::string Hex(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<std::uint8_t>(byte) >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

// A scan of random bits, and the reply that belongs to it alone. The packet goes through reset into
// Shift-DR: the ids of the chain come out, and then what went in.
struct Scan {
  explicit Scan(std::mt19937& random) {
    std::string bytes("\xF0\xF0\xF0\x20", 4);
    std::string bits("\x7F\x61\x84\x06\x77\x14\xA0\x1B", 8);
    const std::size_t pairs = 8 + random() % (random() % 8 == 0 ? 3000 : 100);
    for (std::size_t i = 0; i < pairs; ++i) {
      const auto byte = static_cast<std::uint8_t>(random());
      bytes += static_cast<char>(byte & 15);
      bytes += static_cast<char>(byte >> 4);
      bits += static_cast<char>(byte);
    }
    packet = Hex(bytes);
    expected = Hex(bits.substr(0, pairs));  // from the third byte on
  }

  std::string packet;
  std::string expected;
};

using SharedProbes = OnBench;

TEST_F(SharedProbes, EightProcessesLoseAndMixNothing) {
  std::mt19937 random(unit::RandomSeed());
  Json({"mode", "WFX0001", "JTAG"});
  std::array<std::vector<Scan>, kClients> scans;
  std::array<std::string, kClients> outputs;
  {
    std::vector<std::jthread> clients;
    for (std::size_t i = 0; i < kClients; ++i) {
      std::string script;
      for (int line = 0; line < kLines; ++line) {
        const Scan& scan = scans[i].emplace_back(random);
        script +=
            std::string("-jtag WFX0001 ") + scan.packet + "\n-targets WFX0002\n-status EVK0001\n";
      }
      std::shared_ptr<Client> client = StartWfx({"script", "-", "--json"}, script);
      clients.emplace_back([&outputs, client, i] {
        outputs[i] = client->ReadAll(2 * support::kPatience);
        EXPECT_EQ(client->Wait(), 0);
      });
    }
  }
  holder.reset();
  const std::string sent =
      Capture("usb.urb_type == 'S' && usb.transfer_type == 3 && usb.endpoint_address == 0x02",
              {"usb.capdata"});
  int answered = 0;
  for (std::size_t i = 0; i < kClients; ++i) {
    std::istringstream lines(outputs[i]);
    const auto next = [&lines] {
      std::string line;
      std::getline(lines, line);
      return nlohmann::json::parse(line, nullptr, false);
    };
    std::size_t at = 0;
    for (const Scan& scan : scans[i]) {
      const auto result = next();
      EXPECT_EQ(next()["error"], "SUCCESS");
      EXPECT_EQ(next()["error"], "SUCCESS");
      if (result["error"] == "IN_USE") continue;
      ASSERT_EQ(result["error"], "SUCCESS");
      EXPECT_EQ(result["RESULT"].get<std::string>().substr(4), scan.expected);
      at = sent.find(scan.packet, at);
      ASSERT_NE(at, std::string::npos) << "not whole on the wire, or not in order";
      ++answered;
    }
    EXPECT_EQ(lines.peek(), std::char_traits<char>::eof());
  }
  EXPECT_GT(answered, 50);
}

}  // namespace
}  // namespace system_test
