#include "client/numbers.h"

#include <gtest/gtest.h>

namespace client {
namespace {

TEST(Numbers, DecimalAndHexadecimalWithinTheRangeAreRead) {
  const std::pair<const char*, std::int64_t> cases[] = {{"0", 0},      {"255", 255}, {"0xff", 255},
                                                        {"0XFF", 255}, {"-10", -10}, {"-0xA", -10}};
  for (const auto& [text, value] : cases) EXPECT_EQ(ParseNumber(text, -10, 255), value) << text;
  for (const char* text : {"256", "-11", "", "-", "0x", "12 ", "1a", "+1", "99999999999999999999",
                           "0xffffffffffffffff"}) {
    EXPECT_FALSE(ParseNumber(text, -10, 255)) << text;
  }
}

TEST(Numbers, BitsComeLeastSignificantFirstAndMustFit) {
  const std::tuple<const char*, std::uint32_t, Bytes> cases[] = {
      {"0x1ff", 9, Bytes{0xFF, 0x01}},
      {"0b101", 3, Bytes{0x05}},
      {"511", 9, Bytes{0xFF, 0x01}},
      {"0x0000000001", 1, Bytes{0x01}},
      {"0x0123456789abcdef0123", 80,
       Bytes{0x23, 0x01, 0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x01}},
      {"0", 1, Bytes{0x00}}};
  for (const auto& [text, bits, bytes] : cases) EXPECT_EQ(ParseBits(text, bits), bytes) << text;
  const std::pair<const char*, std::uint32_t> wrong[] = {{"0x3ff", 9},
                                                         {"0b101", 2},
                                                         {"512", 9},
                                                         {"0x", 8},
                                                         {"", 8},
                                                         {"0b2", 8},
                                                         {"18446744073709551616", 80}};
  for (const auto& [text, bits] : wrong) EXPECT_FALSE(ParseBits(text, bits)) << text;
}

TEST(Numbers, BitsPrintOnlyWhatTheirCountCovers) {
  EXPECT_EQ(NumberFromBits(Bytes{0xFF, 0xFF}, 9), "0x1ff");
  EXPECT_EQ(NumberFromBits(Bytes{0xF5}, 1), "0x1");
  EXPECT_EQ(NumberFromBits(Bytes{0x77, 0x14, 0xA0, 0x1B}, 32), "0x1ba01477");
}

TEST(Bytes, HexadecimalTextIsReadWithSeparatorsAndComments) {
  const std::pair<const char*, Bytes> cases[] = {{"", Bytes{}},
                                                 {"f0F020", Bytes{0xF0, 0xF0, 0x20}},
                                                 {"f0 f0,0x20:01\n", Bytes{0xF0, 0xF0, 0x20, 0x01}},
                                                 {"01 # 02\n03", Bytes{0x01, 0x03}},
                                                 {"01 # no end of line", Bytes{0x01}}};
  for (const auto& [text, bytes] : cases) EXPECT_EQ(BytesFromHex(text), bytes) << text;
  for (const char* text : {"0", "01 2", "0g", "0x"}) EXPECT_FALSE(BytesFromHex(text)) << text;
}

TEST(Bytes, ADumpShowsAddressBytesAndCharacters) {
  Bytes bytes;
  for (int i = 0; i < 17; ++i) bytes.push_back(static_cast<std::uint8_t>('A' + i));
  bytes[1] = 0x7F;
  EXPECT_EQ(HexDump(bytes, 0x20000000),
            "20000000  41 7f 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50  A.CDEFGHIJKLMNOP\n"
            "20000010  51                                               Q\n");
}

}  // namespace
}  // namespace client
