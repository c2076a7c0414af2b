#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "tests/unit/sim/bench_user.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

// One record, as the Linux usbmon format lays it out.
struct Record {
  std::uint64_t id = 0;
  char type = 0;
  std::uint8_t transfer_type = 0, endpoint = 0, address = 0;
  std::uint8_t no_setup = 0, no_data = 0;
  std::int32_t status = 0;
  std::uint32_t length = 0;
  Bytes setup, data;
};

class CaptureFile {
 public:
  explicit CaptureFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  std::uint64_t Number(std::size_t at, int size) const {
    std::uint64_t value = 0;
    for (int i = size - 1; i >= 0; --i)
      value = value << 8 | bytes_.at(at + static_cast<std::size_t>(i));
    return value;
  }
  std::vector<Record> Records() const {
    std::vector<Record> records;
    std::size_t at = 24;
    while (at < bytes_.size()) {
      const auto stored = static_cast<std::size_t>(Number(at + 8, 4));
      EXPECT_EQ(Number(at + 12, 4), stored) << "nothing is cut";
      const std::size_t header = at + 16;
      EXPECT_EQ(Number(header + 36, 4), stored - 64);
      EXPECT_EQ(Number(header + 16, 8), Number(at, 4)) << "seconds";
      EXPECT_EQ(Number(header + 24, 4), Number(at + 4, 4)) << "microseconds";
      EXPECT_EQ(Number(header + 48, 8), 0u) << "interval and start frame";
      records.push_back({Number(header, 8), static_cast<char>(Number(header + 8, 1)),
                         Byte(header + 9), Byte(header + 10), Byte(header + 11), Byte(header + 14),
                         Byte(header + 15), static_cast<std::int32_t>(Number(header + 28, 4)),
                         static_cast<std::uint32_t>(Number(header + 32, 4)), Part(header + 40, 8),
                         Part(header + 64, stored - 64)});
      at = header + stored;
    }
    return records;
  }

 private:
  std::uint8_t Byte(std::size_t at) const { return bytes_.at(at); }
  Bytes Part(std::size_t at, std::size_t size) const {
    EXPECT_LE(at + size, bytes_.size());
    const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(at);
    return {begin, begin + static_cast<std::ptrdiff_t>(size)};
  }
  Bytes bytes_;
};

TEST(Capture, HoldsEachTransferAsSubmittedAndAsEnded) {
  const fs::path path =
      fs::temp_directory_path() / ("wfx_capture_" + std::to_string(std::random_device()()));
  {
    Bench bench(R"({"probes": [{"name": "A", "kind": "evk"}, {"name": "P", "kind": "evk"}]})");
    ASSERT_TRUE(bench.CaptureTo(path.string()));
    User user = User::Of(bench, "P");
    user.Command(0x41, 0x110, 3);
    user.Out(0x01, {0xAA, 0xBB});
    user.In(0x81, 64);
    user.In(0x84, 64);  // cancelled
    bench.ArmFault("P", {.kind = FaultKind::kStall});
    user.Command(0x44, 0, 14);
  }
  const CaptureFile file(path.string());
  fs::remove(path);
  EXPECT_EQ(file.Number(0, 4), 0xA1B2C3D4u);
  EXPECT_EQ(file.Number(20, 4), 220u);
  const std::vector<Record> records = file.Records();
  const struct {
    char type;
    int transfer_type, endpoint, no_setup, no_data, status;
    std::uint32_t length;
    Bytes setup, data;
  } kTable[] = {
      {'S', 2, 0x80, 0, '<', -115, 3, {0xC0, 0x41, 0x10, 0x01, 0, 0, 3, 0}, {}},
      {'C', 2, 0x80, '-', 0, 0, 3, Bytes(8, 0), {0, 0, 0}},
      {'S', 3, 0x01, '-', 0, -115, 2, Bytes(8, 0), {0xAA, 0xBB}},
      {'C', 3, 0x01, '-', '>', 0, 2, Bytes(8, 0), {}},
      {'S', 3, 0x81, '-', '<', -115, 64, Bytes(8, 0), {}},
      {'C', 3, 0x81, '-', 0, 0, 2, Bytes(8, 0), {0xAA, 0xBB}},
      {'S', 3, 0x84, '-', '<', -115, 64, Bytes(8, 0), {}},
      {'C', 3, 0x84, '-', 0, -104, 0, Bytes(8, 0), {}},
      {'S', 2, 0x80, 0, '<', -115, 14, {0xC0, 0x44, 0, 0, 0, 0, 14, 0}, {}},
      {'C', 2, 0x80, '-', 0, -32, 0, Bytes(8, 0), {}},
  };
  ASSERT_EQ(records.size(), std::size(kTable));
  for (std::size_t i = 0; i < records.size(); ++i) {
    const Record& record = records[i];
    const auto& row = kTable[i];
    EXPECT_EQ(record.type, row.type) << i;
    EXPECT_EQ(record.transfer_type, row.transfer_type) << i;
    EXPECT_EQ(record.endpoint, row.endpoint) << i;
    EXPECT_EQ(record.address, 2) << "the second attachment";
    EXPECT_EQ(record.no_setup, row.no_setup) << i;
    EXPECT_EQ(record.no_data, row.no_data) << i;
    EXPECT_EQ(record.status, row.status) << i;
    EXPECT_EQ(record.length, row.length) << i;
    EXPECT_EQ(record.setup, row.setup) << i;
    EXPECT_EQ(record.data, row.data) << i;
    EXPECT_EQ(record.id, records[i & ~std::size_t{1}].id) << "a completion has its submission's id";
  }
}

}  // namespace
}  // namespace sim
