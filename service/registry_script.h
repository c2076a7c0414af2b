// Registry scripts: tables of keys and values that are written when the server is registered and
// removed when it is unregistered.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>

// Texts by name, in any letter case, for what a script refers to as %NAME%.
class ScriptReplacements {
 public:
  void Add(std::wstring_view name, std::wstring text);

  // `text` with every %NAME% of a known name replaced; anything else stays as it is.
  std::wstring Expand(std::wstring_view text) const;

 private:
  std::map<std::wstring, std::wstring> texts_;  // by upper-case name
};

struct ScriptValue {
  const wchar_t* name;                        // null: the key's default value
  const wchar_t* text = nullptr;              // for a string value, with replacements
  std::span<const std::uint8_t> binary = {};  // for a binary one, when `text` is null
};

enum class ScriptKeyRule : std::uint8_t {
  kNormal,
  kNoRemove,     // shared with others: unregistering never deletes it
  kForceRemove,  // registering deletes it with everything below it, then writes it anew
};

struct ScriptKey {
  const wchar_t* path;  // below the root, with replacements
  ScriptKeyRule rule;
  std::span<const ScriptValue> values;
};

// A key stands in its script before the keys below it.
using RegistryScript = std::span<const ScriptKey>;

// Both stop at the first failure, with its status; what was done by then stays.

HRESULT RunRegisterScript(HKEY root, RegistryScript script, const ScriptReplacements& replacements);

// Deletes the listed values, and each listed key once no key is left below it. A key or value that
// is not there counts as removed.
HRESULT RunUnregisterScript(HKEY root, RegistryScript script,
                            const ScriptReplacements& replacements);
