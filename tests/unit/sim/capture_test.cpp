#include "tests/unit/hex_bytes.h"
#include "tests/unit/scratch_folder.h"
#include "tests/unit/sim/bench_user.h"

namespace sim {
namespace {

std::uint64_t Number(const Bytes& file, std::size_t at, int size) {
  std::uint64_t value = 0;
  for (int i = size - 1; i >= 0; --i) value = value << 8 | file.at(at + static_cast<unsigned>(i));
  return value;
}

std::string Part(const Bytes& file, std::size_t at, std::size_t size) {
  Bytes part;
  for (std::size_t i = 0; i < size; ++i) part.push_back(file.at(at + i));
  return unit::HexText(part);
}

// The records of a capture, laid out as the Linux usbmon format has it, a line each: what it is,
// kind of transfer, endpoint, address, marks for setup packet and data, status, length, setup
// packet, data.
std::string Records(const Bytes& file) {
  std::string text;
  std::uint64_t submitted = 0;
  for (std::size_t at = 24; at < file.size();) {
    const std::size_t header = at + 16;
    const std::size_t stored = Number(file, at + 8, 4);
    const std::uint64_t id = Number(file, header, 8);
    const char type = static_cast<char>(file.at(header + 8));
    const auto mark = [&](std::size_t offset) {
      return file.at(header + offset) == 0 ? '.' : static_cast<char>(file.at(header + offset));
    };
    char line[64];
    std::snprintf(line, sizeof line, "%c %d %02X %d %c%c %d %u, ", type, file.at(header + 9),
                  file.at(header + 10), file.at(header + 11), mark(14), mark(15),
                  static_cast<int>(Number(file, header + 28, 4)),
                  static_cast<unsigned>(Number(file, header + 32, 4)));
    text += line + Part(file, header + 40, 8) + ": " + Part(file, header + 64, stored - 64) + "\n";
    EXPECT_EQ(Number(file, at + 12, 4), stored) << "nothing is cut";
    EXPECT_EQ(Number(file, header + 36, 4), stored - 64);
    EXPECT_EQ(Number(file, header + 16, 8), Number(file, at, 4)) << "seconds";
    EXPECT_EQ(Number(file, header + 24, 4), Number(file, at + 4, 4)) << "microseconds";
    EXPECT_EQ(Number(file, header + 48, 8), 0u) << "interval and start frame";
    EXPECT_EQ(type == 'C', id == submitted) << "a completion has its submission's id";
    submitted = id;
    at = header + stored;
  }
  return text;
}

TEST(Capture, HoldsEachTransferAsSubmittedAndAsEnded) {
  const unit::ScratchFolder folder;
  {
    Bench bench(R"({"probes": [{"name": "A", "kind": "evk"}, {"name": "P", "kind": "evk"}]})");
    ASSERT_TRUE(bench.CaptureTo(folder.Path("capture")));
    User user = User::Of(bench, "P");
    user.Command(0x41, 0x110, 3);
    user.Out(0x01, {0xAA, 0xBB});
    user.In(0x81, 64);
    user.In(0x84, 64);  // cancelled
    bench.ArmFault("P", {.kind = FaultKind::kStall});
    user.Command(0x44, 0, 14);
  }
  const std::string content = folder.Read("capture");
  const Bytes file(content.begin(), content.end());
  EXPECT_EQ(Number(file, 0, 4), 0xA1B2C3D4u);
  EXPECT_EQ(Number(file, 20, 4), 220u);
  EXPECT_EQ(Records(file),
            "S 2 80 2 .< -115 3, C0 41 10 01 00 00 03 00: \n"
            "C 2 80 2 -. 0 3, 00*8: 00 00 00\n"
            "S 3 01 2 -. -115 2, 00*8: AA BB\n"
            "C 3 01 2 -> 0 2, 00*8: \n"
            "S 3 81 2 -< -115 64, 00*8: \n"
            "C 3 81 2 -. 0 2, 00*8: AA BB\n"
            "S 3 84 2 -< -115 64, 00*8: \n"
            "C 3 84 2 -. -104 0, 00*8: \n"
            "S 2 80 2 .< -115 14, C0 44 00 00 00 00 0E 00: \n"
            "C 2 80 2 -. -32 0, 00*8: \n");
}

}  // namespace
}  // namespace sim
