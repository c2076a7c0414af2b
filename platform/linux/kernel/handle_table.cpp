#include "platform/linux/kernel/handle_table.h"

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace linux_host {

// One handle's place. While a thread looks at the object it takes it out and leaves the mark;
// others that come meanwhile try again. That takes a few instructions, so that it almost never
// happens.
class HandleSlot {
 public:
  KernelObject* Take() {
    for (;;) {
      KernelObject* object = object_.exchange(Busy(), std::memory_order_acquire);
      if (object != Busy()) return object;
      std::this_thread::yield();
    }
  }
  void PutBack(KernelObject* object) { object_.store(object, std::memory_order_release); }

 private:
  static KernelObject* Busy() { return reinterpret_cast<KernelObject*>(1); }
  std::atomic<KernelObject*> object_ = nullptr;
};

namespace {

constexpr std::size_t kBlockSize = 1024;
constexpr std::size_t kBlocks = 4096;

class HandleTable {
 public:
  HANDLE Add(KernelObject& object) {
    std::size_t index;
    {
      const std::lock_guard lock(mutex_);
      if (!free_.empty()) {
        index = free_.back();
        free_.pop_back();
      } else {
        if (used_ == kBlockSize * kBlocks) return nullptr;
        index = used_++;
        std::atomic<HandleSlot*>& block = blocks_[index / kBlockSize];
        // The blocks live as long as the process: threads read them without a lock.
        if (!block.load(std::memory_order_relaxed)) {
          block.store(new HandleSlot[kBlockSize], std::memory_order_release);
        }
      }
    }
    HandleSlot* slot = At(index);
    slot->Take();
    slot->PutBack(&object);
    return reinterpret_cast<HANDLE>((index + 1) * 4);
  }

  // Where the handle stands if it is open; null when it cannot be.
  HandleSlot* Of(HANDLE handle) {
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    if (value == 0 || value % 4 != 0 || value > kBlockSize * kBlocks * 4) return nullptr;
    return At(IndexOf(handle));
  }

  // The reference that the handle held; null when it was not open or is of another kind.
  ObjectRef<KernelObject> Remove(HANDLE handle, const ObjectKind* kind) {
    HandleSlot* slot = Of(handle);
    if (!slot) return {};
    KernelObject* object = slot->Take();
    const ObjectKind own = object ? object->kind() : ObjectKind::kDeviceSet;
    if (!object || (kind ? own != *kind : own == ObjectKind::kDeviceSet)) {
      slot->PutBack(object);
      return {};
    }
    slot->PutBack(nullptr);
    const std::lock_guard lock(mutex_);
    free_.push_back(IndexOf(handle));
    return ObjectRef<KernelObject>::Adopt(object);
  }

 private:
  static std::size_t IndexOf(HANDLE handle) {
    return reinterpret_cast<std::uintptr_t>(handle) / 4 - 1;
  }

  HandleSlot* At(std::size_t index) {
    HandleSlot* block = blocks_[index / kBlockSize].load(std::memory_order_acquire);
    return block ? block + index % kBlockSize : nullptr;
  }

  std::mutex mutex_;
  std::size_t used_ = 0;
  std::vector<std::size_t> free_;
  std::array<std::atomic<HandleSlot*>, kBlocks> blocks_ = {};
};

// Never destroyed: threads that outlive main still use it.
HandleTable& Table() {
  static auto& table = *new HandleTable;
  return table;
}

}  // namespace

HANDLE MakeHandle(ObjectRef<KernelObject> object) {
  // Counted first: another thread may close the handle as soon as it is in the table.
  object->HandleOpened();
  const HANDLE handle = Table().Add(*object);
  if (!handle) {
    object->HandleNotMade();
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  static_cast<void>(object.Detach());
  return handle;
}

OpenHandle::OpenHandle(HANDLE handle) : slot_(Table().Of(handle)) {
  if (slot_) object_ = slot_->Take();
}

OpenHandle::~OpenHandle() {
  if (slot_) slot_->PutBack(object_);
}

ObjectRef<KernelObject> LookUpHandle(HANDLE handle) {
  return ObjectRef<KernelObject>::Share(OpenHandle(handle).object());
}

bool CloseOpenHandle(HANDLE handle, const ObjectKind* kind) {
  const ObjectRef<KernelObject> object = Table().Remove(handle, kind);
  if (!object) {
    SetLastError(ERROR_INVALID_HANDLE);
    return false;
  }
  object->HandleClosed();
  return true;
}

}  // namespace linux_host

BOOL CloseHandle(HANDLE handle) { return linux_host::CloseOpenHandle(handle) ? TRUE : FALSE; }
