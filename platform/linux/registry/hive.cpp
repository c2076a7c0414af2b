#include "platform/linux/registry/hive.h"

#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <utility>

#include "platform/linux/kernel/text.h"

namespace linux_host {
namespace {

wchar_t UpperCase(wchar_t unit) {
  // Not the process's own locale, which a program may set to anything.
  static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  if (locale) return static_cast<wchar_t>(towupper_l(static_cast<wint_t>(unit), locale));
  return unit >= L'a' && unit <= L'z' ? unit - L'a' + L'A' : unit;
}

}  // namespace

bool NameLess::operator()(std::wstring_view a, std::wstring_view b) const {
  return std::lexicographical_compare(
      a.begin(), a.end(), b.begin(), b.end(),
      [](wchar_t x, wchar_t y) { return UpperCase(x) < UpperCase(y); });
}

const RegistryKey* RegistryKey::Find(const std::vector<std::wstring>& path) const {
  const RegistryKey* key = this;
  for (const std::wstring& name : path) {
    const auto found = key->subkeys.find(name);
    if (found == key->subkeys.end()) return nullptr;
    key = found->second.get();
  }
  return key;
}

RegistryKey* RegistryKey::Find(const std::vector<std::wstring>& path) {
  return const_cast<RegistryKey*>(std::as_const(*this).Find(path));
}

RegistryKey& RegistryKey::FindOrCreate(const std::vector<std::wstring>& path) {
  RegistryKey* key = this;
  for (const std::wstring& name : path) {
    auto& subkey = key->subkeys.try_emplace(name).first->second;
    if (!subkey) subkey = std::make_unique<RegistryKey>();
    key = subkey.get();
  }
  return *key;
}

std::optional<std::string> PlainUtf8(std::wstring_view text) {
  const bool printable =
      std::all_of(text.begin(), text.end(), [](wchar_t c) { return c >= 0x20 && c != 0x7F; });
  if (!printable) return std::nullopt;
  bool malformed = false;
  std::string utf8 = WideToUtf8(text, &malformed);
  if (malformed) return std::nullopt;
  return utf8;
}

bool IsKeyName(std::wstring_view name) {
  return !name.empty() && name.size() <= kMaxKeyName && name.find(L'\\') == name.npos &&
         PlainUtf8(name).has_value();
}

bool IsValueName(std::wstring_view name) {
  return name.size() <= kMaxValueName && PlainUtf8(name).has_value();
}

std::vector<std::wstring> SplitKeyPath(std::wstring_view path) {
  std::vector<std::wstring> components;
  while (!path.empty()) {
    const auto end = std::min(path.find(L'\\'), path.size());
    components.emplace_back(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return components;
}

}  // namespace linux_host
