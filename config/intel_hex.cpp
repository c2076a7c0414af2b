#include "config/intel_hex.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>

namespace {

// A record in a token: colon, two digits of byte count, four of address, two of type, the data.
constexpr std::size_t kCountAt = 1;
constexpr std::size_t kAddressAt = 3;
constexpr std::size_t kTypeAt = 7;
constexpr std::size_t kDataAt = 9;
constexpr std::size_t kMaxDataBytes = 255;
constexpr std::uint32_t kDataRecord = 0;

// As much of a token as a record can hold with its checksum; the rest is of no interest.
constexpr std::size_t kTokenBytes = kDataAt + 2 * kMaxDataBytes + 2;
constexpr std::size_t kBufferBytes = 64 * 1024;

constexpr std::uint8_t kNoDigit = 0xFF;

constexpr std::array<std::uint8_t, 256> kDigits = [] {
  std::array<std::uint8_t, 256> digits{};
  digits.fill(kNoDigit);
  for (std::uint8_t i = 0; i < 10; ++i) digits['0' + i] = i;
  for (std::uint8_t i = 0; i < 6; ++i) digits['a' + i] = digits['A' + i] = 10 + i;
  return digits;
}();

constexpr std::array<bool, 256> kBlanks = [] {
  std::array<bool, 256> blanks{};
  for (const char c : {' ', '\t', '\n', '\v', '\f', '\r'})
    blanks[static_cast<std::uint8_t>(c)] = true;
  return blanks;
}();

bool IsBlank(char c) { return kBlanks[static_cast<std::uint8_t>(c)]; }

struct Header {
  unsigned long count = 0;
  unsigned long address = 0;
  unsigned long type = 0;
};

// The number in `digits` places, or false when one of them is no digit.
bool ParseDigits(std::string_view token, std::size_t at, std::size_t digits, unsigned long& value) {
  value = 0;
  std::uint8_t seen = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    const std::uint8_t digit = kDigits[static_cast<std::uint8_t>(token[at + i])];
    seen |= digit;
    value = value << 4 | (digit & 0xF);
  }
  return seen != kNoDigit;
}

// Files are read as scanf reads them, signs, "0x" and numbers of fewer digits included: files that
// loaded before must go on loading. Only what is not plain digits takes that way.
bool ScanHeader(std::string_view token, Header& header) {
  std::array<char, kDataAt + 1> text{};
  token.copy(text.data(), kDataAt);
  return std::sscanf(text.data(), ":%2lX%4lX%2lX", &header.count, &header.address, &header.type) ==
         3;
}

bool ParseHeader(std::string_view token, Header& header) {
  if (token.size() >= kDataAt && token[0] == ':' &&
      ParseDigits(token, kCountAt, kAddressAt - kCountAt, header.count) &&
      ParseDigits(token, kAddressAt, kTypeAt - kAddressAt, header.address) &&
      ParseDigits(token, kTypeAt, kDataAt - kTypeAt, header.type)) {
    return true;
  }
  return ScanHeader(token, header);
}

bool ScanByte(std::string_view token, std::size_t at, std::uint8_t& byte) {
  std::array<char, 3> text{};
  token.copy(text.data(), 2, at);
  unsigned long value = 0;
  if (std::sscanf(text.data(), "%2lX", &value) != 1) return false;
  byte = static_cast<std::uint8_t>(value);
  return true;
}

bool ParseByte(std::string_view token, std::size_t at, std::uint8_t& byte) {
  if (at + 2 <= token.size()) {
    const std::uint8_t high = kDigits[static_cast<std::uint8_t>(token[at])];
    const std::uint8_t low = kDigits[static_cast<std::uint8_t>(token[at + 1])];
    if ((high | low) != kNoDigit) {
      byte = static_cast<std::uint8_t>(high << 4 | low);
      return true;
    }
  }
  return at < token.size() && ScanByte(token, at, byte);
}

// Takes one token, of which `token` is at most the first kTokenBytes.
bool TakeToken(std::string_view token, HexImage& image) {
  Header header;
  if (!ParseHeader(token, header)) return false;
  if (static_cast<std::uint32_t>(header.type) != kDataRecord) return true;
  // A count that was written with a sign is larger than any token.
  const auto count = static_cast<std::uint32_t>(header.count);
  if (count > kMaxDataBytes) return false;
  std::array<std::uint8_t, kMaxDataBytes> bytes;
  for (std::size_t i = 0; i < count; ++i) {
    if (!ParseByte(token, kDataAt + 2 * i, bytes[i])) return false;
  }
  MergeHexRecord(image, static_cast<std::uint32_t>(header.address), {bytes.data(), count});
  return true;
}

// Cuts a stream into tokens at white space. Holds a piece of the stream at a time; a token that
// goes on in the next piece is moved to the front of it.
class TokenReader {
 public:
  explicit TokenReader(std::istream& stream)
      : stream_(stream), buffer_(std::make_unique_for_overwrite<char[]>(kBufferBytes)) {
    Refill();
  }

  // The next token's beginning, or an empty one at the end of the stream or after it failed.
  std::string_view Next() {
    for (;;) {
      while (at_ < end_ && IsBlank(buffer_[at_])) ++at_;
      if (at_ < end_) break;
      if (!Refill()) return {};
    }
    std::size_t stop = at_;
    for (;;) {
      while (stop < end_ && !IsBlank(buffer_[stop])) ++stop;
      if (stop < end_) break;
      const std::size_t length = std::min(stop - at_, kTokenBytes);
      const bool more = Refill();
      stop = at_ + length;
      if (!more) break;
    }
    const std::string_view token(&buffer_[at_], std::min(stop - at_, kTokenBytes));
    at_ = stop;
    return token;
  }

 private:
  // Keeps the beginning of the token at at_, and reads on behind it. False when nothing came.
  bool Refill() {
    const std::size_t kept = std::min(end_ - at_, kTokenBytes);
    std::copy_n(&buffer_[at_], kept, &buffer_[0]);
    at_ = 0;
    stream_.read(&buffer_[kept], static_cast<std::streamsize>(kBufferBytes - kept));
    const auto read = static_cast<std::size_t>(stream_.gcount());
    end_ = kept + read;
    return read > 0;
  }

  std::istream& stream_;
  std::unique_ptr<char[]> buffer_;
  std::size_t at_ = 0;
  std::size_t end_ = 0;
};

}  // namespace

HexImage::Place* HexImage::Find(std::uint64_t address) {
  if (address >= kLowPages * kPageAddresses) {
    const auto found = high_.find(address);
    return found != high_.end() ? &found->second : nullptr;
  }
  Page* const page = low_[address / kPageAddresses].get();
  const std::size_t at = address % kPageAddresses;
  return page && page->used[at] ? &page->places[at] : nullptr;
}

HexImage::Place& HexImage::Use(std::uint64_t address) {
  if (address >= kLowPages * kPageAddresses) return high_[address];
  std::unique_ptr<Page>& page = low_[address / kPageAddresses];
  if (!page) page = std::make_unique<Page>();
  const std::size_t at = address % kPageAddresses;
  page->used[at] = true;
  return page->places[at];
}

// A block that cannot grow where it lies is moved behind all others, with room to grow: blocks that
// grow in turns are not moved at every record.
void HexImage::Append(Block& block, std::span<const std::uint8_t> bytes) {
  const std::size_t room = block.moved ? std::bit_ceil(std::size_t{block.size}) : block.size;
  const std::size_t size = block.size + bytes.size();
  if (size > room && block.begin + room == bytes_.size()) {
    bytes_.resize(block.begin + (block.moved ? std::bit_ceil(size) : size));
  } else if (size > room) {
    const std::size_t begin = bytes_.size();
    bytes_.resize(begin + std::bit_ceil(size));
    std::copy_n(bytes_.data() + block.begin, block.size, bytes_.data() + begin);
    block.begin = begin;
    block.moved = 1;
  }
  std::copy(bytes.begin(), bytes.end(), bytes_.data() + block.begin + block.size);
  block.size = static_cast<std::uint32_t>(size);
}

void HexImage::AddEnd(std::uint32_t number) {
  const Block& added = blocks_[number - 1];
  Place* const place = Find(added.End());
  if (!place || place->ending == 0) {
    Use(added.End()).ending = number;
    return;
  }
  if (added.address < blocks_[place->ending - 1].address) std::swap(number, place->ending);
  other_ends_.emplace(added.End(), blocks_[number - 1].address);
}

void HexImage::RemoveEnd(std::uint64_t address) {
  std::uint32_t next = 0;
  const auto other = other_ends_.lower_bound({address, 0});
  if (other != other_ends_.end() && other->first == address) {
    next = Use(other->second).starting;
    other_ends_.erase(other);
  }
  Use(address).ending = next;
}

void MergeHexRecord(HexImage& image, std::uint32_t address, std::span<const std::uint8_t> bytes) {
  const HexImage::Place* const place = image.Find(address);
  std::uint32_t number = place ? place->ending : 0;
  if (number != 0) {
    image.RemoveEnd(address);
  } else if (!place || place->starting == 0) {
    image.blocks_.push_back({address, 0, image.bytes_.size(), 0});
    number = static_cast<std::uint32_t>(image.blocks_.size());
    image.Use(address).starting = number;
  } else {
    return;
  }
  image.Append(image.blocks_[number - 1], bytes);
  image.AddEnd(number);
}

bool ReadIntelHex(std::istream& file, HexImage& image) {
  if (file.eof()) return true;
  TokenReader tokens(file);
  for (std::string_view token = tokens.Next(); !token.empty(); token = tokens.Next()) {
    if (!TakeToken(token, image)) return false;
  }
  return file.eof() && !file.bad();
}
