#include "platform/linux/kernel/waits.h"

#include <array>

#include "platform/linux/kernel/handle_table.h"

namespace linux_host {

DWORD Waitable::Taken(ThreadRecord&, DWORD result, const WaitLimit&) { return result; }

void Waitable::AddWaiter(WaitEntry& entry) {
  entry.object = this;
  entry.next = nullptr;
  entry.previous = last_;
  (last_ ? last_->next : first_) = &entry;
  last_ = &entry;
  MarkWaiters(true);
}

void Waitable::RemoveWaiter(WaitEntry& entry) {
  (entry.previous ? entry.previous->next : first_) = entry.next;
  (entry.next ? entry.next->previous : last_) = entry.previous;
  if (!first_) MarkWaiters(false);
}

WaitEntry* Waitable::FirstWaiter() const {
  for (WaitEntry* entry = first_; entry; entry = entry->next) {
    if (entry->thread->blocked) return entry;
  }
  return nullptr;
}

namespace {

// A wait for up to 64 objects; ends with the result that it had for one of them, or WAIT_TIMEOUT.
class Wait {
 public:
  Wait(ThreadRecord& self, Waitable* const* objects, DWORD count)
      : self_(self), objects_(objects), count_(count) {}

  DWORD Run(DWORD timeout_ms) {
    WaitLimit limit = {.timeout_ms = timeout_ms};
    std::optional<DWORD> result = TryTakeOne();
    if (!result && timeout_ms != 0) {
      limit.deadline = DeadlineIn(timeout_ms);
      if (count_ == 1) result = objects_[0]->TakeAfterWork(self_, limit.deadline);
      if (!result) result = Block(limit.deadline);
    }
    return result ? Finish(*result, limit) : WAIT_TIMEOUT;
  }

 private:
  std::optional<DWORD> TryTakeOne() {
    for (DWORD i = 0; i < count_; ++i) {
      if (const auto taken = objects_[i]->TryTake(self_)) return *taken + i;
    }
    return std::nullopt;
  }

  std::optional<DWORD> Block(Deadline deadline) {
    DispatcherLock lock;
    for (DWORD i = 0; i < count_; ++i) {
      entries_[i].thread = &self_;
      entries_[i].index = i;
      objects_[i]->AddWaiter(entries_[i]);
    }
    // Looked at again: it may have come free before the objects were marked.
    std::optional<DWORD> result = TryTakeOne();
    if (!result && lock.Block(self_, deadline)) result = self_.result;
    for (DWORD i = 0; i < count_; ++i) objects_[i]->RemoveWaiter(entries_[i]);
    return result;
  }

  DWORD Finish(DWORD result, const WaitLimit& limit) {
    const DWORD index = result & (WAIT_ABANDONED_0 - 1);
    const DWORD taken = objects_[index]->Taken(self_, result - index, limit);
    return taken == WAIT_TIMEOUT || taken == WAIT_FAILED ? taken : taken + index;
  }

  ThreadRecord& self_;
  Waitable* const* objects_;
  const DWORD count_;
  std::array<WaitEntry, MAXIMUM_WAIT_OBJECTS> entries_;
};

DWORD Fail(DWORD error) {
  SetLastError(error);
  return WAIT_FAILED;
}

ObjectRef<Waitable> LookUpWaitable(HANDLE handle) {
  ObjectRef<KernelObject> object = LookUpHandle(handle);
  if (!object || !object->waitable()) return {};
  return ObjectRef<Waitable>::Adopt(static_cast<Waitable*>(object.Detach()));
}

}  // namespace

DWORD WaitForObject(Waitable& object, DWORD timeout_ms) {
  Waitable* const pointer = &object;
  return Wait(CurrentThread(), &pointer, 1).Run(timeout_ms);
}

}  // namespace linux_host

using namespace linux_host;

DWORD WaitForSingleObject(HANDLE handle, DWORD timeout_ms) {
  const ObjectRef<Waitable> object = LookUpWaitable(handle);
  if (!object) return Fail(ERROR_INVALID_HANDLE);
  return WaitForObject(*object, timeout_ms);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all, DWORD timeout_ms) {
  if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || !handles) return Fail(ERROR_INVALID_PARAMETER);
  if (wait_all) return Fail(ERROR_NOT_SUPPORTED);
  std::array<ObjectRef<Waitable>, MAXIMUM_WAIT_OBJECTS> objects;
  std::array<Waitable*, MAXIMUM_WAIT_OBJECTS> pointers;
  for (DWORD i = 0; i < count; ++i) {
    objects[i] = LookUpWaitable(handles[i]);
    if (!objects[i]) return Fail(ERROR_INVALID_HANDLE);
    if (!objects[i]->CanBeOneOfMany()) return Fail(ERROR_NOT_SUPPORTED);
    pointers[i] = objects[i].get();
  }
  return Wait(CurrentThread(), pointers.data(), count).Run(timeout_ms);
}
