// The open keys of this process and the hives behind them: what the registry calls work on.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/registry/hive_file.h"

namespace linux_host {

using KeyPath = std::vector<std::wstring>;

// A key as all hives together show it.
class KeyView {
 public:
  KeyView() = default;
  // The same key of each hive that has it, the caller's own first; `own`: that is among them.
  KeyView(std::vector<const RegistryKey*> layers, bool own)
      : layers_(std::move(layers)), own_(own) {}

  bool exists() const { return !layers_.empty(); }
  bool own() const { return own_; }
  const RegistryValue* FindValue(const std::wstring& name) const;
  std::set<std::wstring, NameLess> SubkeyNames() const;

 private:
  std::vector<const RegistryKey*> layers_;
  bool own_ = false;
};

// One per process. Every member is called with `mutex` held; what it hands out is valid until the
// next call of a member.
class Registry {
 public:
  static Registry& Get();

  std::mutex mutex;

  struct OpenKey {
    KeyPath path;
    REGSAM access = 0;
    bool deleted = false;
  };

  // Null when the handle is not open.
  OpenKey* FindOpenKey(HKEY handle);
  HKEY AddOpenKey(KeyPath path, REGSAM access);
  bool RemoveOpenKey(HKEY handle);

  // The latest state of a key. Statuses of HiveFile::Read.
  std::uint32_t View(const KeyPath& path, KeyView* view);

  // Alters the caller's own hive; statuses of HiveFile::Change.
  std::uint32_t Change(const HiveFile::Alteration& alteration);

  // Removes the caller's own hive; see HiveFile.
  bool RemoveIfBare();

  // Tells the handles of a key that it is gone. The key may exist anew afterwards; they do not go
  // over to it. (A key that another process deletes and creates anew between two calls here is not
  // told from the old one.)
  void MarkDeleted(const KeyPath& path);

 private:
  // The hives' places are asked for at each call: a test may move them.
  std::vector<HiveFile*> Hives();

  std::map<std::string, std::unique_ptr<HiveFile>> hives_;
  std::uintptr_t next_handle_ = 0x20000004;
  std::map<std::uintptr_t, OpenKey> open_keys_;
  OpenKey root_{.path = {}, .access = KEY_ALL_ACCESS, .deleted = false};
};

}  // namespace linux_host
