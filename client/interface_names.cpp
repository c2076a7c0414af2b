#include "client/interface_names.h"

#include <algorithm>
#include <cstring>

#include "api/interface_table.h"
#include "client/text.h"

namespace client {

namespace {

using interface_schema::Constant;
using interface_schema::Enumeration;
using interface_schema::Field;
using interface_schema::FieldType;
using interface_schema::Record;
using interface_schema::UserType;

const Enumeration& FindEnumeration(const NameSet& set) {
  const auto found = std::ranges::find_if(api::kLibrary.types, [&](const UserType& type) {
    return type.enumeration && std::wstring_view(type.enumeration->name) == set.enumeration;
  });
  return *found->enumeration;
}

const Record& FindStatusRecord() {
  const auto found = std::ranges::find_if(
      api::kLibrary.types, [](const UserType& type) { return type.record != nullptr; });
  return *found->record;
}

std::string Normalised(std::string_view name) {
  std::string text = LowerCase(name);
  std::ranges::replace(text, '-', '_');
  std::ranges::replace(text, '.', '_');
  return text;
}

}  // namespace

std::optional<std::int32_t> ValueOfName(const NameSet& set, std::string_view name) {
  const std::string wanted = Normalised(name);
  const std::string prefix = LowerCase(set.optional_prefix);
  for (const Constant& constant : FindEnumeration(set).constants) {
    const std::string full = LowerCase(Utf8FromWide(constant.name));
    if (full == wanted || full == prefix + wanted) return constant.value;
  }
  return std::nullopt;
}

std::string NameOfValue(const NameSet& set, std::int32_t value) {
  for (const Constant& constant : FindEnumeration(set).constants) {
    if (constant.value == value) return Utf8FromWide(constant.name);
  }
  return std::to_string(value);
}

std::string AllNames(const NameSet& set) {
  std::string names;
  for (const Constant& constant : FindEnumeration(set).constants) {
    if (!names.empty()) names += ", ";
    names += Utf8FromWide(constant.name);
  }
  return names;
}

void VisitStatusFields(
    const TzWFXStatus& status,
    const std::function<void(const std::string& name, std::int32_t value)>& visit) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&status);
  for (const Field& field : FindStatusRecord().fields) {
    std::int32_t value = bytes[field.offset];
    if (field.type == FieldType::kSigned16) {
      value = static_cast<std::int16_t>(value | bytes[field.offset + 1] << 8);
    }
    visit(Utf8FromWide(field.name), value);
  }
}

}  // namespace client
