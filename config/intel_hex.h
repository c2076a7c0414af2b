// Intel HEX files as blocks of bytes by start address.
#pragma once

#include <cstdint>
#include <istream>
#include <map>
#include <set>
#include <span>
#include <utility>
#include <vector>

// The blocks of a file. A record continues the block that ends at its address, and is a block of
// its own otherwise, even where it overlaps another: blocks need not be disjoint.
class HexImage {
 public:
  using Blocks = std::map<std::uint32_t, std::vector<std::uint8_t>>;  // by start address

  const Blocks& GetBlocks() const { return blocks_; }

 private:
  friend void MergeHexRecord(HexImage& image, std::uint32_t address,
                             std::span<const std::uint8_t> bytes);

  // Every block as (end address, start address), so that the lowest block with a given end is found
  // without looking at the others. Files with many overlapping blocks would take minutes otherwise.
  using Ends = std::set<std::pair<std::uint64_t, std::uint32_t>>;

  Blocks blocks_;
  Ends ends_;
};

// Appends the record to the lowest block that ends at its address (an empty block ends where it
// starts), or else makes it a block of its own. A record that does neither, since a block starts
// at its address already, is dropped.
void MergeHexRecord(HexImage& image, std::uint32_t address, std::span<const std::uint8_t> bytes);

// Adds the data records of `file` to `image`. False when the stream fails before its end, a token
// does not begin like a record, or a data record is cut short; records before it are in the image.
// Addresses are those of the records' 16 bits: other record types, those that extend addresses
// included, are ignored, and checksums are not checked.
bool ReadIntelHex(std::istream& file, HexImage& image);
