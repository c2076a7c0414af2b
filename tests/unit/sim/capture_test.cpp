#include "base/little_endian.h"
#include "tests/unit/scratch_folder.h"
#include "tests/unit/sim/bench_script.h"

namespace sim {
namespace {

// The records, laid out as the Linux usbmon format has it, a line each, without their times. The
// fields: id, S or C, kind of transfer, endpoint, address, bus, marks for setup packet and data;
// then status, length, stored length, setup packet, what other kinds of transfers need, data.
std::string Records(const Bytes& file) {
  std::string text = "\n" + unit::HexText({file.begin(), file.begin() + 24}) + "\n";
  for (std::size_t at = 24; at < file.size();) {
    const auto part = [&](std::size_t first, std::size_t end) {
      const std::uint8_t* const record = file.data() + at;
      return unit::HexText({record + first, record + end});
    };
    const std::size_t end = 16 + LoadLe32(&file.at(at + 8));
    EXPECT_EQ(part(8, 12), part(12, 16)) << "nothing is cut";
    EXPECT_EQ(part(0, 8), part(32, 36) + " " + part(40, 44)) << "seconds, microseconds";
    text += part(16, 32) + "; " + part(44, end) + "\n";
    at += end;
  }
  return text;
}

TEST(Capture, HoldsEachTransferAsSubmittedAndAsEnded) {
  const unit::ScratchFolder folder;
  {
    Bench bench(R"({"probes": [{"name": "A"}, {"name": "P", "kind": "evk"}]})");
    ASSERT_TRUE(bench.CaptureTo(folder.Path("capture")));
    Script(bench, "P").Play(R"(
      vendor 41 0110 3 | out 01 AA BB | in 81 64 | in 84 64
      fault "kind": "stall" | vendor 44 0000 14)");
  }
  const std::string content = folder.Read("capture");
  const Bytes file(content.begin(), content.end());
  EXPECT_EQ(Records(file), R"(
D4 C3 B2 A1 02 00 04 00*12 04 DC 00 00 00
01 00 00 00 00 00 00 00 53 02 80 02 01 00 00 3C; 8D FF FF FF 03 00 00 00 00 00 00 00 C0 41 10 01 00 00 03 00*17
01 00 00 00 00 00 00 00 43 02 80 02 01 00 2D 00; 00 00 00 00 03 00 00 00 03 00*30
02 00 00 00 00 00 00 00 53 03 01 02 01 00 2D 00; 8D FF FF FF 02 00 00 00 02 00*27 AA BB
02 00 00 00 00 00 00 00 43 03 01 02 01 00 2D 3E; 00 00 00 00 02 00*31
03 00 00 00 00 00 00 00 53 03 81 02 01 00 2D 3C; 8D FF FF FF 40 00*31
03 00 00 00 00 00 00 00 43 03 81 02 01 00 2D 00; 00 00 00 00 02 00 00 00 02 00*27 AA BB
04 00 00 00 00 00 00 00 53 03 84 02 01 00 2D 3C; 8D FF FF FF 40 00*31
04 00 00 00 00 00 00 00 43 03 84 02 01 00 2D 00; FE FF FF FF 00*32
05 00 00 00 00 00 00 00 53 02 80 02 01 00 00 3C; 8D FF FF FF 0E 00 00 00 00 00 00 00 C0 44 00 00 00 00 0E 00*17
05 00 00 00 00 00 00 00 43 02 80 02 01 00 2D 00; E0 FF FF FF 00*32
)");
}

}  // namespace
}  // namespace sim
