#include "platform/linux/kernel/object_names.h"

#include <string_view>

#include "platform/linux/kernel/handle_table.h"

namespace linux_host {

ObjectName ParseObjectName(LPCWSTR name) {
  if (!name) return {};
  std::wstring_view text = name;
  for (const std::wstring_view prefix : {L"Local\\", L"Global\\"}) {
    if (text.starts_with(prefix)) {
      text.remove_prefix(prefix.size());
      break;
    }
  }
  if (text.size() > MAX_PATH) return {{}, ERROR_FILENAME_EXCED_RANGE};
  if (text.find(L'\\') != std::wstring_view::npos) return {{}, ERROR_PATH_NOT_FOUND};
  return {std::wstring(text), ERROR_SUCCESS};
}

HANDLE ObjectNames::OpenOrCreate(const std::wstring& name, ObjectKind kind,
                                 const std::function<ObjectRef<KernelObject>()>& make) {
  const std::lock_guard lock(mutex_);
  if (const auto found = bearers_.find(name); found != bearers_.end()) {
    if (found->second->kind() != kind) {
      SetLastError(ERROR_INVALID_HANDLE);
      return nullptr;
    }
    const HANDLE handle = MakeHandle(ObjectRef<KernelObject>::Share(found->second));
    if (handle) SetLastError(ERROR_ALREADY_EXISTS);
    return handle;
  }
  SetLastError(ERROR_SUCCESS);
  const ObjectRef<KernelObject> object = make();
  if (!object) return nullptr;
  const DWORD error = GetLastError();
  const HANDLE handle = MakeHandle(object);
  if (!handle) return nullptr;
  bearers_.emplace(name, object.get());
  SetLastError(error);
  return handle;
}

void ObjectNames::Look(const std::function<void()>& look) {
  const std::lock_guard lock(mutex_);
  look();
}

bool ObjectNames::HandleClosed(std::atomic<std::uint32_t>& handles, const std::wstring& name) {
  // Under the lock, so that nobody finds an object by its name that has no handle any more.
  const std::lock_guard lock(mutex_);
  if (handles.fetch_sub(1, std::memory_order_acq_rel) != 1) return false;
  bearers_.erase(name);
  return true;
}

// Never destroyed: threads that outlive main still use it.
ObjectNames& Names() {
  static auto& names = *new ObjectNames;
  return names;
}

}  // namespace linux_host
