#include "platform/linux/registry/registry.h"

#include <algorithm>
#include <utility>

#include "platform/linux/kernel/home.h"

namespace linux_host {
namespace {

std::string HivePath(const std::string& directory) { return directory + "/registry"; }

bool SamePath(const KeyPath& a, const KeyPath& b) {
  const NameLess less;
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](const auto& x, const auto& y) { return !less(x, y) && !less(y, x); });
}

}  // namespace

const RegistryValue* KeyView::FindValue(const std::wstring& name) const {
  for (const RegistryKey* key : layers_) {
    const auto found = key->values.find(name);
    if (found != key->values.end()) return &found->second;
  }
  return nullptr;
}

std::set<std::wstring, NameLess> KeyView::SubkeyNames() const {
  std::set<std::wstring, NameLess> names;
  for (const RegistryKey* key : layers_) {
    for (const auto& [name, subkey] : key->subkeys) names.insert(name);
  }
  return names;
}

Registry& Registry::Get() {
  // Never destroyed: other threads may still read while the process exits.
  static auto& registry = *new Registry;
  return registry;
}

Registry::OpenKey* Registry::FindOpenKey(HKEY handle) {
  if (handle == HKEY_CLASSES_ROOT) return &root_;
  const auto found = open_keys_.find(reinterpret_cast<std::uintptr_t>(handle));
  return found == open_keys_.end() ? nullptr : &found->second;
}

HKEY Registry::AddOpenKey(KeyPath path, REGSAM access) {
  const std::uintptr_t handle = std::exchange(next_handle_, next_handle_ + 4);
  open_keys_[handle] = {.path = std::move(path), .access = access, .deleted = false};
  return reinterpret_cast<HKEY>(handle);
}

bool Registry::RemoveOpenKey(HKEY handle) {
  return open_keys_.erase(reinterpret_cast<std::uintptr_t>(handle)) == 1;
}

std::vector<HiveFile*> Registry::Hives() {
  std::vector<HiveFile*> hives;
  std::vector<std::string> directories = {HomePath(HomeKind::kState),
                                          MachineHomePath(HomeKind::kState)};
  if (InstallationHome().empty()) directories.emplace_back(kInstalledFolder);
  for (const std::string& directory : directories) {
    auto& hive = hives_[HivePath(directory)];
    if (!hive) hive = std::make_unique<HiveFile>(HivePath(directory));
    if (std::find(hives.begin(), hives.end(), hive.get()) == hives.end()) {
      hives.push_back(hive.get());
    }
  }
  return hives;
}

std::uint32_t Registry::View(const KeyPath& path, KeyView* view) {
  std::vector<const RegistryKey*> layers;
  bool own = false;
  const auto hives = Hives();
  for (HiveFile* hive : hives) {
    const RegistryKey* root = nullptr;
    if (const std::uint32_t status = hive->Read(&root)) return status;
    const RegistryKey* key = root->Find(path);
    if (!key) continue;
    layers.push_back(key);
    own |= hive == hives.front();
  }
  *view = KeyView(std::move(layers), own);
  return ERROR_SUCCESS;
}

std::uint32_t Registry::Change(const HiveFile::Alteration& alteration) {
  const std::uint32_t status = Hives().front()->Change(alteration);
  // An ending service of an account that nothing is registered for removes the directory: it is
  // made once more.
  return status == ERROR_WRITE_FAULT ? Hives().front()->Change(alteration) : status;
}

bool Registry::RemoveIfBare() { return Hives().front()->RemoveIfBare(); }

void Registry::MarkDeleted(const KeyPath& path) {
  for (auto& [handle, key] : open_keys_) {
    if (SamePath(key.path, path)) key.deleted = true;
  }
}

}  // namespace linux_host
