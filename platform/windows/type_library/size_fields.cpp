#include "platform/windows/type_library/size_fields.h"

#include <windows.h>

#include <oleauto.h>

#include <algorithm>
#include <cstddef>

#include "base/little_endian.h"

namespace type_library {
namespace {

using File = std::vector<std::uint8_t>;

// The file begins with a header of fixed size, in which the number of types stands. The offset of
// each type's name follows, then one more number when a flag says so, then the directory of the
// file's sections, of which the first holds the types.
constexpr std::uint32_t kSignature = 0x5446534D;  // "MSFT"
constexpr std::size_t kHeaderFlags = 0x14;
constexpr std::uint32_t kHasHelpLibrary = 0x100;
constexpr std::size_t kTypeCount = 0x20;
constexpr std::size_t kHeaderSize = 0x54;

constexpr std::size_t kTypeRecordSize = 0x64;
constexpr std::uint32_t kKindMask = 0x0F;  // of the record's first number
constexpr std::size_t kTypeSize = 0x50;

constexpr std::uint32_t kConstantSize = 4;

// 0: the field stays as it is.
std::uint32_t SizeOf(std::uint32_t kind, std::uint32_t record_size) {
  switch (kind) {
    case TKIND_ENUM:
    case TKIND_ALIAS:
      return kConstantSize;
    case TKIND_RECORD:
      return record_size;
    default:
      return 0;
  }
}

}  // namespace

bool MendSizeFields(File& file, const interface_schema::Library& described) {
  const auto is_record = [](const auto& type) { return type.record != nullptr; };
  const auto record = std::ranges::find_if(described.types, is_record);
  // One size is known to the file's record type: that of the only record.
  const auto records = std::ranges::count_if(described.types, is_record);
  if (records != 1 || file.size() < kHeaderSize || LoadLe32(&file[0]) != kSignature) return false;

  const std::size_t types = LoadLe32(&file[kTypeCount]);
  const std::size_t directory =
      kHeaderSize + 4 * types + ((LoadLe32(&file[kHeaderFlags]) & kHasHelpLibrary) != 0 ? 4 : 0);
  if (directory + 4 > file.size()) return false;
  const std::size_t first = LoadLe32(&file[directory]);
  if (first + types * kTypeRecordSize > file.size()) return false;
  for (std::size_t i = 0; i < types; ++i) {
    const std::size_t at = first + i * kTypeRecordSize;
    const std::uint32_t size = SizeOf(LoadLe32(&file[at]) & kKindMask, record->record->size);
    if (size != 0) StoreLe32(&file[at + kTypeSize], size);
  }
  return true;
}

}  // namespace type_library
