// Open devices of the probe driver and their requests in flight.
#pragma once

#include <windows.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/events.h"
#include "platform/linux/kernel_object.h"
#include "platform/probe_driver/probe_driver.h"

namespace linux_host {

// A request from its start until it has completed and its start has returned. Its buffers and its
// block are the client's.
class DeviceRequest {
 public:
  DeviceRequest(LPOVERLAPPED overlapped, ObjectRef<Event> event);

  void AddRef() { references_.fetch_add(1, std::memory_order_relaxed); }
  void Release() {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  probe_driver::DriverRequest driver_request;
  const LPOVERLAPPED overlapped;
  const ObjectRef<Event> event;  // null: none
  const DWORD thread_id;
  // Set when everything that a completion does to the client's block and event is done.
  std::atomic<bool> completed = false;

  // The file's list of requests in flight.
  DeviceRequest* next = nullptr;
  DeviceRequest* previous = nullptr;

 private:
  std::atomic<int> references_ = 1;
};

class DeviceFile : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kDeviceFile;

  explicit DeviceFile(std::unique_ptr<probe_driver::UsbDevice> device);

  // 0: has succeeded, and `returned` holds the bytes; 997: in flight; otherwise why it was refused.
  // `request` has no completion yet.
  DWORD Start(const ObjectRef<DeviceRequest>& request, DWORD& returned);

  // Aborts the requests for which `chosen` holds; false when there is none.
  bool Cancel(const std::function<bool(const DeviceRequest&)>& chosen);

  // After it, a request whose block shows it completed has set its event as well.
  void AwaitCompletionInProgress() { const std::lock_guard lock(mutex_); }

 protected:
  // Aborts what is in flight, and waits for its completion.
  void LastHandleClosed() override;

 private:
  class Call;

  void Complete(DeviceRequest& request);
  void Link(DeviceRequest& request);
  void Unlink(DeviceRequest& request);

  // Calls in progress, and whether the file has been closed; a closed one is idle for good when the
  // last call has left.
  static constexpr std::uint32_t kClosed = 0x80000000;
  std::atomic<std::uint32_t> calls_ = 0;

  std::unique_ptr<probe_driver::ProbeDriver> driver_;
  std::mutex mutex_;  // guards the list, and orders completions with who looks at their blocks
  DeviceRequest* in_flight_ = nullptr;
};

}  // namespace linux_host
