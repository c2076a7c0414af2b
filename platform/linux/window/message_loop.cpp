// The wait of GetMessageW: one ppoll over the thread's wake descriptor and what its sources wait
// on.
#include "platform/linux/window/message_loop.h"

#include <errno.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/linux/kernel/clock.h"
#include "platform/linux/window/message_queue.h"

namespace linux_host {
namespace {

// A source that always has more to serve must not keep the others, and the descriptors, from being
// looked at.
constexpr int kRoundsWithoutPoll = 16;

// The nearer of a deadline of the present clock and a limit in milliseconds of real time, as ppoll
// takes it; null: no limit. A test clock ends the wait by itself.
const timespec* WaitLimit(Deadline due, int limit_ms, timespec& storage) {
  Deadline left = limit_ms < 0 ? kNever : limit_ms * kNsPerMs;
  if (due != kNever && !TestClockLives()) left = std::min(left, std::max<Deadline>(due - Now(), 0));
  if (left == kNever) return nullptr;
  storage.tv_sec = left / 1'000'000'000;
  storage.tv_nsec = left % 1'000'000'000;
  return &storage;
}

}  // namespace

bool MessageQueue::OpenWakeDescriptor() {
  if (wake_descriptor_ < 0) wake_descriptor_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake_descriptor_ >= 0) return true;
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

void MessageQueue::CollectDescriptors() {
  const std::vector<ServedSource> before = std::exchange(served_, {});
  descriptors_.assign(1, {wake_descriptor_, POLLIN, 0});
  for (const RegisteredSource& source : sources_) {
    const std::size_t first = descriptors_.size();
    source.source->AppendDescriptors(descriptors_);
    const bool has_more = std::any_of(before.begin(), before.end(), [&](const auto& served) {
      return served.registered.id == source.id && served.has_more;
    });
    served_.push_back({source, first, descriptors_.size() - first, has_more});
  }
}

// Waits for the descriptors, a message or a timer. The lock is held on entry and on return.
bool MessageQueue::Poll(DispatcherLock& lock) {
  if (!OpenWakeDescriptor()) return false;
  lock.Unlock();
  // A source with more to serve is served after this look at the descriptors, whatever it shows.
  int limit_ms = HasMoreToServe() ? 0 : -1;
  CollectDescriptors();
  for (ServedSource& served : served_) {
    const int wanted = served.registered.source->WaitLimitMs();
    if (wanted >= 0 && (limit_ms < 0 || wanted < limit_ms)) limit_ms = wanted;
  }
  lock.Lock();
  // Something may have come while the lock was free.
  if (arrivals_ != looked_at_) limit_ms = 0;

  const Deadline due = NextDue();
  timespec storage;
  lock.BeginBlock(owner_, due, wake_descriptor_);
  const timespec* const limit = WaitLimit(due, limit_ms, storage);
  lock.Unlock();
  const int ready = ppoll(descriptors_.data(), descriptors_.size(), limit, nullptr);
  const int error = errno;
  if (ready > 0 && descriptors_[0].revents != 0) {
    std::uint64_t count;
    (void)!read(wake_descriptor_, &count, sizeof(count));
  }
  lock.Lock();
  lock.EndBlock(owner_);
  if (ready >= 0 || error == EINTR) {
    if (ready <= 0) {
      for (pollfd& descriptor : descriptors_) descriptor.revents = 0;
    }
    return true;
  }
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

void MessageQueue::ServeReady(bool polled) {
  // Kept here meanwhile: what a source serves may itself look for messages.
  std::vector<ServedSource> served = std::move(served_);
  std::vector<pollfd> descriptors = std::move(descriptors_);
  for (ServedSource& one : served) {
    // A source may have been removed while another was being served.
    if (!StillRegistered(one.registered)) {
      one.has_more = false;
      continue;
    }
    const pollfd* const first = descriptors.data() + one.first;
    const bool ready = std::any_of(first, first + one.count,
                                   [](const pollfd& descriptor) { return descriptor.revents; });
    if (one.has_more || ready || (polled && one.registered.source->WaitLimitMs() == 0)) {
      one.has_more = one.registered.source->Dispatch(first, one.count);
    }
  }
  served_ = std::move(served);
  descriptors_ = std::move(descriptors);
}

bool MessageQueue::StillRegistered(const RegisteredSource& source) const {
  return std::any_of(sources_.begin(), sources_.end(),
                     [&](const RegisteredSource& present) { return present.id == source.id; });
}

bool MessageQueue::HasMoreToServe() const {
  return std::any_of(served_.begin(), served_.end(),
                     [](const ServedSource& served) { return served.has_more; });
}

bool MessageQueue::WaitOrServe(DispatcherLock& lock) {
  const bool poll = !HasMoreToServe() || rounds_without_poll_ >= kRoundsWithoutPoll;
  if (poll) {
    rounds_without_poll_ = 0;
    if (!Poll(lock)) return false;
  } else {
    ++rounds_without_poll_;
    for (pollfd& descriptor : descriptors_) descriptor.revents = 0;
  }
  if (sources_.empty()) return true;
  lock.Unlock();
  ServeReady(poll);
  lock.Lock();
  return true;
}

void MessageQueue::AddSource(MessageLoopSource* source) {
  sources_.push_back({source, next_source_id_++});
}

void MessageQueue::RemoveSource(MessageLoopSource* source) {
  std::erase_if(sources_,
                [&](const RegisteredSource& present) { return present.source == source; });
  std::erase_if(served_,
                [&](const ServedSource& served) { return served.registered.source == source; });
}

void AddMessageLoopSource(MessageLoopSource* source) { ThreadMessageQueue().AddSource(source); }

void RemoveMessageLoopSource(MessageLoopSource* source) {
  ThreadMessageQueue().RemoveSource(source);
}

}  // namespace linux_host
