// Intel HEX files as blocks of bytes by start address.
#pragma once

#include <algorithm>
#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <utility>
#include <vector>

// The blocks of a file. A record continues the block that ends at its address, and is a block of
// its own otherwise, even where it overlaps another: blocks need not be disjoint.
class HexImage {
 public:
  // Calls visit(start address, bytes) for the blocks in ascending order of their start addresses,
  // which differ, until it returns false; then false. The bytes are the image's.
  template <typename Visit>
  bool ForEachBlock(Visit visit) const {
    const auto visit_at = [&](const Place& place) {
      if (place.starting == 0) return true;
      const Block& block = blocks_[place.starting - 1];
      return visit(block.address, std::span(bytes_).subspan(block.begin, block.size));
    };
    for (const auto& page : low_) {
      if (page && !std::all_of(page->places.begin(), page->places.end(), visit_at)) return false;
    }
    return std::all_of(high_.begin(), high_.end(),
                       [&](const auto& entry) { return visit_at(entry.second); });
  }

 private:
  friend void MergeHexRecord(HexImage& image, std::uint32_t address,
                             std::span<const std::uint8_t> bytes);

  // Its bytes lie in bytes_. Once they have been moved there, the power of two that holds them is
  // theirs.
  struct Block {
    std::uint32_t address;
    std::uint32_t size;
    std::uint64_t begin : 63;
    std::uint64_t moved : 1;
    std::uint64_t End() const { return std::uint64_t{address} + size; }
  };

  // What there is at an address: places in blocks_, counted from 1, 0 for none.
  struct Place {
    std::uint32_t starting = 0;
    std::uint32_t ending = 0;  // the lowest of those that end here
  };

  // A record finds its place at once however many blocks there are: files of many small blocks
  // would take minutes otherwise. Above are the ends of the highest blocks, and addresses with a
  // sign.
  static constexpr std::size_t kLowPages = 256;
  static constexpr std::size_t kPageAddresses = 256;
  struct Page {
    // Where there is something. Most records come where nothing is: this tells without a look into
    // the places, which are too many for the cache.
    std::bitset<kPageAddresses> used;
    std::array<Place, kPageAddresses> places;
  };

  Place* Find(std::uint64_t address);  // null: nothing is there
  Place& Use(std::uint64_t address);
  void Append(Block& block, std::span<const std::uint8_t> bytes);
  void AddEnd(std::uint32_t number);
  void RemoveEnd(std::uint64_t address);

  std::vector<std::uint8_t> bytes_;
  std::vector<Block> blocks_;  // in the order of the file
  std::array<std::unique_ptr<Page>, kLowPages> low_;
  std::map<std::uint64_t, Place> high_;
  // Where several blocks end, all but the lowest: end address, start address.
  std::set<std::pair<std::uint64_t, std::uint32_t>> other_ends_;
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
