#include "client/numbers.h"

#include <gtest/gtest.h>

namespace client {
namespace {

TEST(Numbers, DecimalAndHexadecimalWithinTheRangeAreRead) {
  const std::pair<const char*, std::optional<std::int64_t>> cases[] = {
      {"0", 0},
      {"255", 255},
      {"0xff", 255},
      {"0XFF", 255},
      {"-10", -10},
      {"-0xA", -10},
      {"256", std::nullopt},  // above the range
      {"-11", std::nullopt},  // below it
      {"", std::nullopt},
      {"-", std::nullopt},
      {"0x", std::nullopt},
      {"12 ", std::nullopt},
      {"1a", std::nullopt},
      {"+1", std::nullopt},
      {"99999999999999999999", std::nullopt},  // beyond 64 bits
      {"0xffffffffffffffff", std::nullopt},
  };
  for (const auto& [text, value] : cases) EXPECT_EQ(ParseNumber(text, -10, 255), value) << text;
}

TEST(Numbers, BitsComeLeastSignificantFirstAndMustFit) {
  struct Case {
    const char* text;
    std::uint32_t bits;
    std::optional<Bytes> bytes;
  };
  const Case cases[] = {
      {"0x1ff", 9, Bytes{0xFF, 0x01}},
      {"0x3ff", 9, std::nullopt},
      {"0b101", 3, Bytes{0x05}},
      {"0b101", 2, std::nullopt},
      {"511", 9, Bytes{0xFF, 0x01}},
      {"512", 9, std::nullopt},
      {"0x0000000001", 1, Bytes{0x01}},  // leading zeros need no room
      {"0x0123456789abcdef0123", 80,
       Bytes{0x23, 0x01, 0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x01}},
      {"0", 1, Bytes{0x00}},
      {"0x", 8, std::nullopt},
      {"", 8, std::nullopt},
      {"0b2", 8, std::nullopt},
      {"18446744073709551616", 80, std::nullopt},
  };
  for (const Case& c : cases) EXPECT_EQ(ParseBits(c.text, c.bits), c.bytes) << c.text;
}

TEST(Numbers, BitsPrintOnlyWhatTheirCountCovers) {
  EXPECT_EQ(NumberFromBits(Bytes{0xFF, 0xFF}, 9), "0x1ff");
  EXPECT_EQ(NumberFromBits(Bytes{0xF5}, 1), "0x1");
  EXPECT_EQ(NumberFromBits(Bytes{0x77, 0x14, 0xA0, 0x1B}, 32), "0x1ba01477");
}

TEST(Bytes, HexadecimalTextIsReadWithSeparatorsAndComments) {
  const std::pair<const char*, std::optional<Bytes>> cases[] = {
      {"", Bytes{}},
      {"f0F020", Bytes{0xF0, 0xF0, 0x20}},
      {"f0 f0,0x20:01\n", Bytes{0xF0, 0xF0, 0x20, 0x01}},
      {"01 # 02\n03", Bytes{0x01, 0x03}},
      {"01 # no end of line", Bytes{0x01}},
      {"0", std::nullopt},
      {"01 2", std::nullopt},
      {"0g", std::nullopt},
      {"0x", std::nullopt},
  };
  for (const auto& [text, bytes] : cases) EXPECT_EQ(BytesFromHex(text), bytes) << text;
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
