#include "service/registry_script.h"

#include <algorithm>

#include "service/registry_key.h"
#include "service/status.h"

namespace {

constexpr wchar_t kReplacementMark = L'%';

std::wstring UpperCase(std::wstring_view text) {
  std::wstring upper(text);
  std::ranges::transform(upper, upper.begin(), [](wchar_t c) {
    return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
  });
  return upper;
}

LONG WriteValue(HKEY key, const ScriptValue& value, const ScriptReplacements& replacements) {
  if (value.text) return SetText(key, value.name, replacements.Expand(value.text));
  return RegSetValueExW(key, value.name, 0, REG_BINARY, value.binary.data(),
                        static_cast<DWORD>(value.binary.size()));
}

LONG WriteKey(HKEY root, const ScriptKey& entry, const ScriptReplacements& replacements) {
  const std::wstring path = replacements.Expand(entry.path);
  if (entry.rule == ScriptKeyRule::kForceRemove) {
    if (const LONG deleted = DeleteTree(root, path); deleted != ERROR_SUCCESS) return deleted;
  }
  RegistryKey key;
  // A parent key that others share may be one that this account can only read.
  LONG result = entry.rule == ScriptKeyRule::kNoRemove ? OpenKey(root, path, KEY_READ, key)
                                                       : ERROR_FILE_NOT_FOUND;
  if (result != ERROR_SUCCESS) result = CreateKey(root, path, KEY_READ | KEY_WRITE, key);
  if (result != ERROR_SUCCESS) return result;
  for (const ScriptValue& value : entry.values) {
    if (const LONG written = WriteValue(key.Get(), value, replacements); written != ERROR_SUCCESS) {
      return written;
    }
  }
  return ERROR_SUCCESS;
}

LONG RemoveKey(HKEY root, const ScriptKey& entry, const ScriptReplacements& replacements) {
  const std::wstring path = replacements.Expand(entry.path);
  RegistryKey key;
  const bool shared = entry.rule == ScriptKeyRule::kNoRemove && entry.values.empty();
  if (shared) return ERROR_SUCCESS;
  const LONG opened = OpenKey(root, path, KEY_READ | KEY_WRITE, key);
  if (opened == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
  if (opened != ERROR_SUCCESS) return opened;
  for (const ScriptValue& value : entry.values) {
    if (const LONG deleted = DeleteValueIfPresent(key.Get(), value.name);
        deleted != ERROR_SUCCESS) {
      return deleted;
    }
  }
  if (entry.rule == ScriptKeyRule::kNoRemove || HasSubkeys(key.Get())) return ERROR_SUCCESS;
  key.Reset();
  return RegDeleteKeyW(root, path.c_str());
}

}  // namespace

void ScriptReplacements::Add(std::wstring_view name, std::wstring text) {
  texts_[UpperCase(name)] = std::move(text);
}

std::wstring ScriptReplacements::Expand(std::wstring_view text) const {
  std::wstring expanded;
  std::size_t position = 0;
  while (position < text.size()) {
    const std::size_t begin = text.find(kReplacementMark, position);
    const std::size_t end = begin == text.npos ? text.npos : text.find(kReplacementMark, begin + 1);
    if (end == text.npos) break;
    expanded.append(text, position, begin - position);
    const auto found = texts_.find(UpperCase(text.substr(begin + 1, end - begin - 1)));
    if (found != texts_.end()) {
      expanded += found->second;
      position = end + 1;
    } else {
      expanded += kReplacementMark;
      position = begin + 1;
    }
  }
  expanded.append(text, position);
  return expanded;
}

HRESULT RunRegisterScript(HKEY root, RegistryScript script,
                          const ScriptReplacements& replacements) {
  for (const ScriptKey& entry : script) {
    if (const LONG result = WriteKey(root, entry, replacements); result != ERROR_SUCCESS) {
      return StatusOf(result);
    }
  }
  return S_OK;
}

HRESULT RunUnregisterScript(HKEY root, RegistryScript script,
                            const ScriptReplacements& replacements) {
  // Backwards, so that a key comes after the keys below it.
  for (auto at = script.rbegin(); at != script.rend(); ++at) {
    const ScriptKey& entry = *at;
    if (const LONG result = RemoveKey(root, entry, replacements); result != ERROR_SUCCESS) {
      return StatusOf(result);
    }
  }
  return S_OK;
}
