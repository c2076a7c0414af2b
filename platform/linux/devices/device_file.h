// Open devices of the probe driver and their requests in flight.
#pragma once

#include <windows.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/kernel/events.h"
#include "platform/linux/kernel/kernel_object.h"
#include "platform/probe_driver/probe_driver.h"

namespace linux_host {

class DeviceFile;

// A request from its start until it has completed and its start has returned. Its buffers and its
// block are the client's.
class DeviceRequest {
 public:
  // With two references: of the start, and of the completion.
  DeviceRequest(DeviceFile& file, LPOVERLAPPED overlapped, ObjectRef<Event> event);

  void AddRef() { references_.fetch_add(1, std::memory_order_relaxed); }
  // Whoever has all that are left need not count down.
  void Release(int references = 1) {
    if (references_.load(std::memory_order_acquire) == references ||
        references_.fetch_sub(references, std::memory_order_acq_rel) == references) {
      delete this;
    }
  }

  probe_driver::DriverRequest driver_request;
  const LPOVERLAPPED overlapped;
  const ObjectRef<Event> event;  // null: none

  // The start's own: it has completed on the starting thread, before the driver's call returned; it
  // completes, or has completed, elsewhere.
  bool completed_at_once = false;
  bool handed_over = false;

  // The file's list of requests in flight; guarded by its lock. A request comes into it when the
  // driver has taken it, unless it has completed by then.
  bool completed = false;
  bool listed = false;
  DeviceRequest* next = nullptr;
  DeviceRequest* previous = nullptr;

 private:
  std::atomic<int> references_ = 2;
};

class DeviceFile : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kDeviceFile;

  // Keeps the file of an open handle from being closed under a call.
  class Call;

  explicit DeviceFile(std::unique_ptr<probe_driver::UsbDevice> device);

  // Submit and Cancel are made within a Call.
  //
  // 0: has succeeded, and `returned` holds the bytes; 997: in flight; otherwise why it was refused.
  // `request` is new, was made for this file, and is its own from now on.
  DWORD Submit(DeviceRequest& request, DWORD& returned);

  // Aborts the requests for which `chosen` holds; false when there is none. One that is just being
  // started counts as started afterwards.
  bool Cancel(const std::function<bool(const DeviceRequest&)>& chosen);

  // After it, a request whose block shows it completed has set its event as well.
  void AwaitCompletionInProgress() { const std::lock_guard lock(mutex_); }

 protected:
  // Aborts what is in flight, and waits for its completion.
  void LastHandleClosed() override;

 private:
  friend class DeviceRequest;

  DWORD SubmitToDriver(DeviceRequest& request, DWORD& returned);
  void Complete(DeviceRequest& request);
  void Link(DeviceRequest& request);
  void Unlink(DeviceRequest& request);

  // Calls in progress, and whether the file has been closed: none begins after that.
  static constexpr std::uint32_t kClosed = 0x80000000;
  std::atomic<std::uint32_t> calls_ = 0;

  std::unique_ptr<probe_driver::ProbeDriver> driver_;
  WaitingWork* const work_;  // of who waits for a request; null: none
  std::mutex mutex_;  // guards the list, and orders completions with who looks at their blocks
  DeviceRequest* in_flight_ = nullptr;
};

}  // namespace linux_host
