#include "config/intel_hex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>

#include "tests/unit/hex_bytes.h"
#include "tests/unit/random_seed.h"

namespace {

using unit::Bytes;

using LiteralBlocks = std::map<std::uint32_t, Bytes>;

// Blocks as "address:bytes; ...", or "refused".
void Add(std::string& text, std::uint32_t address, const Bytes& bytes) {
  char start[16];
  std::snprintf(start, sizeof start, "%04X:", address);
  text.append(text.empty() ? "" : "; ").append(start).append(unit::HexText(bytes));
}

std::string Text(const LiteralBlocks& blocks) {
  std::string text;
  for (const auto& [address, bytes] : blocks) Add(text, address, bytes);
  return text;
}

std::string Text(const HexImage& image) {
  std::string text;
  image.ForEachBlock([&](std::uint32_t address, std::span<const std::uint8_t> bytes) {
    Add(text, address, Bytes(bytes.begin(), bytes.end()));
    return true;
  });
  return text;
}

std::string Parsed(const std::string& file) {
  std::istringstream stream(file);
  HexImage image;
  return ReadIntelHex(stream, image) ? Text(image) : "refused";
}

TEST(IntelHex, FilesAndTheirBlocks) {
  const struct {
    const char* what;
    const char* file;
    const char* blocks;
  } cases[] = {
      {"an empty file", "", ""},
      {"a continued block", ":0200000001020A\n:02000200030400\n:00000001FF\n", "0000:01 02 03 04"},
      {"later blocks first", ":0100100001FF :0100000002FF", "0000:02; 0010:01"},
      {"the same address twice", ":0200000001020A\n:02000000AABB0A\n", "0000:01 02"},
      {"the same address, at which a block ends",
       ":0100000001FF\n:0100010002FF\n:0200020003040A\n:0100020005FF", "0000:01 02 03 04; 0002:05"},
      {"an overlapping record", ":0400000001020304FF\n:02000100AABBFF",
       "0000:01 02 03 04; 0001:AA BB"},
      {"CR LF, lower case, leading blanks", "  :02abcd00feDCff\r\n:00000001ff\r\n", "ABCD:FE DC"},
      {"a wrong checksum", ":0100000001EE", "0000:01"},
      {"more data than announced", ":0100000001020304", "0000:01"},
      {"half a last byte", ":020000000A0", "0000:0A 00"},
      {"data cut off", ":020000000A", "refused"},
      {"no data at all", ":01000000", "refused"},
      {"data that is not hexadecimal", ":01000000G1", "refused"},
      {"data with a digit too few", ":010000000G", "0000:00"},
      {"a type with a digit too few", ":0100000G01", "0000:01"},
      {"addresses are not extended", ":020000040001F9\n:0100000007FF", "0000:07"},
      {"other types whatever they hold", ":02000005zz\n:10000003\n:FF000002", ""},
      {"no colon", "0100000001", "refused"},
      {"a record in two pieces", ":01000 00001", "refused"},
      {"too few digits", ":0100", "refused"},
      {"an empty record, continued", ":00001000\n:01001000AA", "0010:AA"},
      {"signs count as digits", ":+1+010+07F", "0010:7F"},
      {"a negative count", ":-1000000", "refused"},
      {"data with a sign", ":01000000-1", "0000:FF"},
      {"records before the bad one do not help", ":0100000001\nbad", "refused"},
  };
  for (const auto& [what, file, blocks] : cases) EXPECT_EQ(blocks, Parsed(file)) << what;
}

// Also where plain addresses end, and those that are written with a sign.
TEST(IntelHex, RandomOverlappingRecordsMergeAsALiteralSearchDoes) {
  std::mt19937 random(unit::RandomSeed());
  for (const std::uint32_t lowest : {0U, 0xFFE0U, 0xFFFFFFE0U}) {
    for (int round = 0; round < 100; ++round) {
      HexImage image;
      LiteralBlocks literal;
      for (int record = 0; record < 80; ++record) {
        const std::uint32_t address = lowest + random() % (4 + round / 2);
        const Bytes bytes(random() % 6, static_cast<std::uint8_t>(record));
        MergeHexRecord(image, address, bytes);
        const auto end = std::ranges::find_if(literal, [&](const auto& block) {
          return block.first + block.second.size() == address;
        });
        if (end == literal.end()) {
          literal.emplace(address, bytes);
        } else {
          end->second.insert(end->second.end(), bytes.begin(), bytes.end());
        }
      }
      ASSERT_EQ(Text(literal), Text(image));
    }
  }
}

// The same 32,768 blocks in each pass, none of which ends where another record begins: every record
// after the first pass is compared with all of them by a plain search, which takes minutes.
TEST(IntelHex, LongFilesMayHoldTokensAnywhereAndAreNotSearchedBlockByBlock) {
  std::mt19937 random(unit::RandomSeed());
  LiteralBlocks blocks;
  HexImage image;
  for (int pass = 0; pass < 10; ++pass) {
    std::string file;
    for (unsigned address = 0; address < 0x10000; address += 2) {
      char text[32];
      std::snprintf(text, sizeof text, ":01%04X00%02X", address, address >> 8);
      blocks[address] = {static_cast<std::uint8_t>(address >> 8)};
      // Behind what a record can hold a token may go on as long as it likes.
      file += text + std::string(address % 0x4000 == 0 ? 300000 : 0, 'z') +
              std::string(1 + random() % 40, " \n\r\t\v\f"[random() % 6]);
    }
    std::istringstream stream(file);
    ASSERT_TRUE(ReadIntelHex(stream, image));
  }
  EXPECT_EQ(Text(blocks), Text(image));
}

// Gives its text, then fails to read on.
struct FailingBuffer : std::stringbuf {
  using std::stringbuf::stringbuf;
  int_type underflow() override { throw std::runtime_error("read error"); }
};

TEST(IntelHex, StreamThatFailsBeforeItsEndIsRefused) {
  FailingBuffer buffer(":0100000001\n:0100010002\n");
  std::istream stream(&buffer);
  HexImage image;
  EXPECT_FALSE(ReadIntelHex(stream, image));
}

}  // namespace
