#include "config/intel_hex.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <random>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "bench/rows.h"
#include "bench/table.h"

namespace bench {
namespace {

constexpr std::size_t kFileBytes = std::size_t{16} << 20;
constexpr std::uint32_t kRecordBytes = 32;
constexpr int kToolRounds = 5;
constexpr int kMergeRounds = 101;

void AppendRecord(std::string& text, std::uint32_t type, std::uint32_t address,
                  const std::vector<std::uint8_t>& bytes) {
  char part[16];
  std::uint32_t sum = static_cast<std::uint32_t>(bytes.size()) + (address >> 8) + address + type;
  std::snprintf(part, sizeof part, ":%02X%04X%02X", static_cast<unsigned>(bytes.size()), address,
                type);
  text += part;
  for (const std::uint8_t byte : bytes) {
    std::snprintf(part, sizeof part, "%02X", byte);
    text += part;
    sum += byte;
  }
  std::snprintf(part, sizeof part, "%02X\n", (~sum + 1) & 0xFF);
  text += part;
}

// A file of about 16 MiB, its data back to back, with the address records that other tools need.
std::string LargeFile() {
  std::string text;
  text.reserve(kFileBytes + 256);
  std::vector<std::uint8_t> bytes(kRecordBytes);
  for (std::uint32_t address = 0; text.size() < kFileBytes; address += kRecordBytes) {
    if ((address & 0xFFFF) == 0) {
      const std::uint32_t high = address >> 16;
      AppendRecord(text, 4, 0,
                   {static_cast<std::uint8_t>(high >> 8), static_cast<std::uint8_t>(high)});
    }
    std::iota(bytes.begin(), bytes.end(), static_cast<std::uint8_t>(address >> 5));
    AppendRecord(text, 0, address & 0xFFFF, bytes);
  }
  AppendRecord(text, 1, 0, {});
  return text;
}

// One-byte records at every second address below 65536, shuffled: no two are neighbours.
std::string ScatteredFile(std::uint32_t records, std::uint32_t seed) {
  std::vector<std::uint32_t> addresses(records);
  for (std::uint32_t i = 0; i < records; ++i) addresses[i] = 2 * i;
  std::shuffle(addresses.begin(), addresses.end(), std::mt19937(seed));
  std::string text;
  for (const std::uint32_t address : addresses) AppendRecord(text, 0, address, {0x5A});
  return text;
}

// Reads the file and visits its blocks, as a download does.
void Read(std::istream& stream) {
  HexImage image;
  std::size_t bytes = 0;
  const auto add = [&](std::uint32_t, std::span<const std::uint8_t> block) {
    bytes += block.size();
    return true;
  };
  if (!ReadIntelHex(stream, image) || !image.ForEachBlock(add) || bytes == 0) {
    std::fprintf(stderr, "bench: the HEX file was not read\n");
    std::exit(1);
  }
}

void RunTool(const std::string& command) {
  if (std::system(command.c_str()) != 0) {
    std::fprintf(stderr, "bench: failed: %s\n", command.c_str());
    std::exit(1);
  }
}

}  // namespace

void IntelHexRows(const std::string& scratch) {
  const std::string path = scratch + "/large.hex";
  std::ofstream(path, std::ios::binary) << LargeFile();
  const auto ours = [&] {
    std::ifstream file(path);
    Read(file);
  };
  const std::string objcopy = "objcopy -I ihex -O binary '" + path + "' '" + scratch + "/out.bin'";
  const std::string srec_cat =
      "srec_cat '" + path + "' -intel -o '" + scratch + "/out.bin' -binary";
  const double faster_than_objcopy =
      1 / MeasureInTurns(kToolRounds, ours, [&] { RunTool(objcopy); }).Value();
  const double faster_than_srec_cat =
      1 / MeasureInTurns(kToolRounds, ours, [&] { RunTool(srec_cat); }).Value();
  // The target is held against the faster of the two tools: the one we gain less on.
  const bool objcopy_is_faster = faster_than_objcopy < faster_than_srec_cat;
  const Target target{Wanted::kAtLeast, 1.5};
  PrintRow("Intel HEX file of 16 MiB, times faster", "objcopy reading it", faster_than_objcopy,
           objcopy_is_faster ? std::optional(target) : std::nullopt);
  PrintRow("Intel HEX file of 16 MiB, times faster", "srec_cat reading it", faster_than_srec_cat,
           objcopy_is_faster ? std::nullopt : std::optional(target));

  const std::string many = ScatteredFile(32768, 1);
  const std::string half = ScatteredFile(16384, 2);
  const auto read_text = [](const std::string& text) {
    std::istringstream stream(text);
    Read(stream);
  };
  PrintRow("32,768 scattered one-byte records", "16,384 of them",
           MeasureInTurns(
               kMergeRounds, [&] { read_text(many); }, [&] { read_text(half); })
               .Value(),
           Target{Wanted::kAtMost, 2.2});
}

}  // namespace bench
