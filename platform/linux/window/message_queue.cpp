#include "platform/linux/window/message_queue.h"

#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

#include "platform/linux/window/window.h"

namespace linux_host {
namespace {

// Guarded by the dispatcher lock. Never destroyed: threads that outlive main still use it.
std::map<DWORD, MessageQueue*>& Queues() {
  static auto& queues = *new std::map<DWORD, MessageQueue*>;
  return queues;
}

// The queue of a thread of this process that has one, otherwise null. With the lock held.
MessageQueue* FindMessageQueue(DWORD thread_id) {
  const auto found = Queues().find(thread_id);
  return found == Queues().end() ? nullptr : found->second;
}

thread_local MessageQueue* t_queue = nullptr;

const HWND kThreadOnly = reinterpret_cast<HWND>(static_cast<LONG_PTR>(-1));

// The thread's windows and its queue go.
void EndThreadMessageQueue() {
  const std::unique_ptr<MessageQueue> queue(std::exchange(t_queue, nullptr));
  if (!queue) return;
  DispatcherLock lock;
  ForgetWindowsOf(lock, *queue);
  Queues().erase(queue->owner().thread_id);
}

}  // namespace

MessageQueue& ThreadMessageQueue() {
  if (t_queue) return *t_queue;
  ThreadRecord& self = CurrentThread();
  t_queue = new MessageQueue(self);
  self.at_end = &EndThreadMessageQueue;
  const DispatcherLock lock;
  Queues()[self.thread_id] = t_queue;
  return *t_queue;
}

MessageQueue::~MessageQueue() {
  if (wake_descriptor_ >= 0) close(wake_descriptor_);
}

bool MessageQueue::Filter::Takes(const MSG& message) const {
  if (window == kThreadOnly ? message.hwnd != nullptr : window && message.hwnd != window) {
    return false;
  }
  return (first == 0 && last == 0) || (message.message >= first && message.message <= last);
}

void MessageQueue::Wake(DispatcherLock& lock) {
  if (owner_.blocked && owner_.wake_descriptor >= 0) lock.Grant(owner_, 0);
}

void MessageQueue::Post(DispatcherLock& lock, const MSG& message) {
  posted_.push_back(message);
  posted_.back().time = static_cast<DWORD>(Now() / kNsPerMs);
  ++arrivals_;
  Wake(lock);
}

void MessageQueue::Send(DispatcherLock& lock, std::function<void()> call) {
  sent_.push_back(std::move(call));
  ++arrivals_;
  Wake(lock);
}

UINT_PTR MessageQueue::SetTimer(HWND window, UINT_PTR id, UINT period_ms, TIMERPROC procedure) {
  constexpr UINT kMinPeriodMs = 10;
  constexpr UINT kMaxPeriodMs = 0x7FFFFFFF;
  if (!window) id = next_timer_id_++;
  KillTimer(window, id);
  const Deadline period = std::clamp(period_ms, kMinPeriodMs, kMaxPeriodMs) * kNsPerMs;
  timers_.push_back({window, id, period, Now() + period, procedure});
  return window && id == 0 ? 1 : id;
}

bool MessageQueue::KillTimer(HWND window, UINT_PTR id) {
  return std::erase_if(timers_, [&](const Timer& timer) {
           return timer.window == window && timer.id == id;
         }) > 0;
}

void MessageQueue::ForgetWindow(HWND window) {
  std::erase_if(timers_, [&](const Timer& timer) { return timer.window == window; });
}

Deadline MessageQueue::NextDue() const {
  Deadline due = kNever;
  for (const Timer& timer : timers_) due = std::min(due, timer.due);
  return due;
}

std::optional<MSG> MessageQueue::NextTimer(const Filter& filter, bool remove) {
  if (timers_.empty()) return std::nullopt;
  const Deadline now = Now();
  for (Timer& timer : timers_) {
    if (timer.due > now) continue;
    MSG message = {};
    message.hwnd = timer.window;
    message.message = WM_TIMER;
    message.wParam = timer.id;
    message.lParam = reinterpret_cast<LPARAM>(timer.procedure);
    message.time = static_cast<DWORD>(now / kNsPerMs);
    if (!filter.Takes(message)) continue;
    if (remove) {
      // Ticks that were missed are not made up for.
      timer.due += timer.period * ((now - timer.due) / timer.period + 1);
      std::rotate(timers_.begin(), timers_.begin() + (&timer - timers_.data()) + 1, timers_.end());
    }
    return message;
  }
  return std::nullopt;
}

std::optional<MSG> MessageQueue::Next(DispatcherLock& lock, const Filter& filter, bool remove) {
  while (!sent_.empty()) {
    const std::function<void()> call = std::move(sent_.front());
    sent_.pop_front();
    lock.Unlock();
    call();
    lock.Lock();
  }
  looked_at_ = arrivals_;
  const auto found = std::find_if(posted_.begin(), posted_.end(),
                                  [&](const MSG& message) { return filter.Takes(message); });
  if (found != posted_.end()) {
    const MSG message = *found;
    if (remove) posted_.erase(found);
    return message;
  }
  return NextTimer(filter, remove);
}

}  // namespace linux_host

using namespace linux_host;

namespace {

// Fails for a window that does not exist.
bool CheckFilterWindow(HWND window) {
  if (!window || window == kThreadOnly) return true;
  const DispatcherLock lock;
  if (FindWindowEntry(window)) return true;
  SetLastError(ERROR_INVALID_WINDOW_HANDLE);
  return false;
}

}  // namespace

BOOL PeekMessageW(LPMSG message, HWND window, UINT first, UINT last, UINT remove) {
  MessageQueue& queue = ThreadMessageQueue();
  if (!CheckFilterWindow(window)) return FALSE;
  DispatcherLock lock;
  const auto next = queue.Next(lock, {window, first, last}, (remove & PM_REMOVE) != 0);
  if (!next) return FALSE;
  *message = *next;
  return TRUE;
}

BOOL GetMessageW(LPMSG message, HWND window, UINT first, UINT last) {
  MessageQueue& queue = ThreadMessageQueue();
  if (!CheckFilterWindow(window)) return -1;
  DispatcherLock lock;
  for (;;) {
    if (const auto next = queue.Next(lock, {window, first, last}, true)) {
      *message = *next;
      return message->message != WM_QUIT;
    }
    if (!queue.WaitOrServe(lock)) return -1;
  }
}

// Nobody types at a service: there is nothing to translate.
BOOL TranslateMessage(const MSG*) { return FALSE; }

BOOL PostThreadMessageW(DWORD thread_id, UINT message, WPARAM w_param, LPARAM l_param) {
  DispatcherLock lock;
  MessageQueue* const queue = FindMessageQueue(thread_id);
  if (!queue) {
    SetLastError(ERROR_INVALID_THREAD_ID);
    return FALSE;
  }
  queue->Post(lock, {nullptr, message, w_param, l_param, 0, {}});
  return TRUE;
}

UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT period_ms, TIMERPROC procedure) {
  MessageQueue& queue = ThreadMessageQueue();
  const DispatcherLock lock;
  if (window) {
    const WindowEntry* const entry = FindWindowEntry(window);
    if (!entry || entry->queue != &queue) {
      SetLastError(entry ? ERROR_ACCESS_DENIED : ERROR_INVALID_WINDOW_HANDLE);
      return 0;
    }
  }
  return queue.SetTimer(window, id, period_ms, procedure);
}

BOOL KillTimer(HWND window, UINT_PTR id) {
  MessageQueue& queue = ThreadMessageQueue();
  const DispatcherLock lock;
  if (window && !FindWindowEntry(window)) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return FALSE;
  }
  if (queue.KillTimer(window, id)) return TRUE;
  SetLastError(ERROR_INVALID_PARAMETER);
  return FALSE;
}
