// Numbers and bytes as people type them on a command line, and bytes as they are printed.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace client {

using Bytes = std::vector<std::uint8_t>;

// A decimal number, or a hexadecimal one after "0x", with a minus sign in front if need be.
// Nothing when the text is anything else or the value lies outside [lowest, highest].
std::optional<std::int64_t> ParseNumber(std::string_view text, std::int64_t lowest,
                                        std::int64_t highest);

// `bits` bits, least significant first, in whole bytes, from a number of any size: hexadecimal
// after "0x", binary after "0b", otherwise decimal (below 2^64). Nothing when the text is no number
// or needs more bits.
std::optional<Bytes> ParseBits(std::string_view text, std::uint32_t bits);

// Pairs of hexadecimal digits. Blanks, line ends, commas and colons may stand between the bytes,
// "0x" in front of each, and a '#' begins a comment up to the line's end. Nothing for any other
// text.
std::optional<Bytes> BytesFromHex(std::string_view text);

// Lower case, two digits a byte, nothing between them.
std::string HexFromBytes(std::span<const std::uint8_t> bytes);

// The number that `bits` bits, least significant first, make: "0x" and one digit for each started
// group of four.
std::string NumberFromBits(std::span<const std::uint8_t> bytes, std::uint32_t bits);

// "0x" and eight digits.
std::string HexWord(std::uint32_t value);

// The four numbers of a version, which are its bytes, the highest first.
std::string VersionText(std::int32_t version);

// A dump for people: address, sixteen bytes and their ASCII characters on each line.
std::string HexDump(std::span<const std::uint8_t> bytes, std::uint64_t first_address = 0);

std::uint32_t LoadWord(std::span<const std::uint8_t> bytes, std::size_t offset);
void AppendWord(Bytes& bytes, std::uint32_t value);

}  // namespace client
