#include "platform/linux/device_file.h"

#include <utility>

#include "platform/linux/bus_selection.h"
#include "platform/linux/driver_timers.h"
#include "platform/linux/handle_table.h"

namespace linux_host {
namespace {

// What a block's Internal holds: 0, STATUS_PENDING, or a failure with the system error in its lower
// half.
constexpr ULONG_PTR kFailed = 0xC0070000;

ULONG_PTR InternalOf(std::uint32_t error) { return error == 0 ? 0 : kFailed | error; }

std::atomic_ref<ULONG_PTR> Internal(OVERLAPPED& overlapped) {
  return std::atomic_ref<ULONG_PTR>(overlapped.Internal);
}

}  // namespace

DeviceRequest::DeviceRequest(LPOVERLAPPED block, ObjectRef<Event> its_event)
    : overlapped(block), event(std::move(its_event)), thread_id(GetCurrentThreadId()) {}

// Keeps the file from being closed under a call.
class DeviceFile::Call {
 public:
  explicit Call(DeviceFile& file) : file_(file) {
    open_ = !(file_.calls_.fetch_add(1, std::memory_order_acquire) & kClosed);
  }
  ~Call() {
    if (file_.calls_.fetch_sub(1, std::memory_order_release) == (kClosed | 1)) {
      file_.calls_.notify_all();
    }
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  bool open() const { return open_; }

 private:
  DeviceFile& file_;
  bool open_;
};

DeviceFile::DeviceFile(std::unique_ptr<probe_driver::UsbDevice> device)
    : KernelObject(kKind),
      driver_(std::make_unique<probe_driver::ProbeDriver>(std::move(device), Timers())) {}

void DeviceFile::LastHandleClosed() {
  std::uint32_t calls = calls_.fetch_or(kClosed, std::memory_order_acq_rel) | kClosed;
  while (calls != kClosed) {
    calls_.wait(calls, std::memory_order_acquire);
    calls = calls_.load(std::memory_order_acquire);
  }
  driver_.reset();
}

void DeviceFile::Link(DeviceRequest& request) {
  const std::lock_guard lock(mutex_);
  request.next = in_flight_;
  if (in_flight_) in_flight_->previous = &request;
  in_flight_ = &request;
}

void DeviceFile::Unlink(DeviceRequest& request) {
  (request.previous ? request.previous->next : in_flight_) = request.next;
  if (request.next) request.next->previous = request.previous;
}

DWORD DeviceFile::Start(const ObjectRef<DeviceRequest>& request, DWORD& returned) {
  const Call call(*this);
  if (!call.open()) return ERROR_INVALID_HANDLE;
  OVERLAPPED& block = *request->overlapped;
  if (request->event) request->event->Reset();
  block.InternalHigh = 0;
  Internal(block).store(STATUS_PENDING, std::memory_order_relaxed);
  Link(*request);

  request->AddRef();  // the completion's
  request->driver_request.complete = [this, &request = *request](probe_driver::DriverRequest&) {
    Complete(request);
  };
  const DWORD refusal = driver_->Submit(request->driver_request);
  if (refusal != probe_driver::kSuccess) {
    request->Release();
    const std::lock_guard lock(mutex_);
    Unlink(*request);
    Internal(block).store(InternalOf(refusal), std::memory_order_relaxed);
    return refusal;
  }
  if (!request->completed.load(std::memory_order_acquire)) return ERROR_IO_PENDING;
  returned = request->driver_request.bytes;
  return probe_driver::StartResult(request->driver_request);
}

// The order is what clients rely on: the block is filled in before the event is set, and whoever
// finds the block filled in, and then passes the lock, finds the event set. Otherwise an event that
// serves the next request already could be set for this one.
void DeviceFile::Complete(DeviceRequest& request) {
  const auto completed = ObjectRef<DeviceRequest>::Adopt(&request);
  const std::lock_guard lock(mutex_);
  Unlink(request);
  request.overlapped->InternalHigh = request.driver_request.bytes;
  Internal(*request.overlapped)
      .store(InternalOf(request.driver_request.error), std::memory_order_release);
  if (request.event) request.event->Set();
  request.completed.store(true, std::memory_order_release);
}

bool DeviceFile::Cancel(const std::function<bool(const DeviceRequest&)>& chosen) {
  const Call call(*this);
  if (!call.open()) return false;
  std::vector<ObjectRef<DeviceRequest>> requests;
  {
    const std::lock_guard lock(mutex_);
    for (DeviceRequest* request = in_flight_; request; request = request->next) {
      if (chosen(*request)) requests.push_back(ObjectRef<DeviceRequest>::Share(request));
    }
  }
  for (const auto& request : requests) driver_->Cancel(request->driver_request);
  return !requests.empty();
}

}  // namespace linux_host

using namespace linux_host;

HANDLE CreateFileW(LPCWSTR path, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD disposition,
                   DWORD flags, HANDLE) {
  const bool modelled = path && disposition == OPEN_EXISTING && (flags & FILE_FLAG_OVERLAPPED);
  if (!modelled) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  std::string device_path;
  for (; *path && *path < 0x7F; ++path) device_path += static_cast<char>(*path);
  auto device = *path ? nullptr : OpenBusDevice(device_path);
  if (!device) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  }
  const HANDLE handle = MakeHandle(*MakeObject<DeviceFile>(std::move(device)));
  return handle ? handle : INVALID_HANDLE_VALUE;
}

BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID input, DWORD input_size, LPVOID output,
                     DWORD output_size, LPDWORD returned, LPOVERLAPPED overlapped) {
  const auto file = LookUp<DeviceFile>(device);
  if (!file) return FALSE;
  if (!overlapped) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  ObjectRef<Event> event;
  if (overlapped->hEvent && !(event = LookUp<Event>(overlapped->hEvent))) return FALSE;

  const auto request = MakeObject<DeviceRequest>(overlapped, std::move(event));
  request->driver_request.code = code;
  request->driver_request.input = static_cast<std::uint8_t*>(input);
  request->driver_request.input_size = input_size;
  request->driver_request.output = static_cast<std::uint8_t*>(output);
  request->driver_request.output_size = output_size;
  DWORD bytes = 0;
  const DWORD result = file->Start(request, bytes);
  if (returned) *returned = bytes;
  if (result == ERROR_SUCCESS) return TRUE;
  SetLastError(result);
  return FALSE;
}

BOOL GetOverlappedResult(HANDLE device, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait) {
  if (Internal(*overlapped).load(std::memory_order_acquire) == STATUS_PENDING) {
    if (!wait) {
      SetLastError(ERROR_IO_INCOMPLETE);
      return FALSE;
    }
    if (WaitForSingleObject(overlapped->hEvent, INFINITE) == WAIT_FAILED) return FALSE;
  }
  // Closing the device has completed what it had in flight, so that its handle need not be open.
  const ObjectRef<KernelObject> file = LookUpHandle(device);
  if (file && file->kind() == DeviceFile::kKind) {
    static_cast<DeviceFile&>(*file).AwaitCompletionInProgress();
  }
  *transferred = static_cast<DWORD>(overlapped->InternalHigh);
  const ULONG_PTR status = Internal(*overlapped).load(std::memory_order_acquire);
  if (status == 0) return TRUE;
  SetLastError(static_cast<DWORD>(status & 0xFFFF));
  return FALSE;
}

BOOL CancelIo(HANDLE device) {
  const auto file = LookUp<DeviceFile>(device);
  if (!file) return FALSE;
  const DWORD thread_id = GetCurrentThreadId();
  file->Cancel([&](const DeviceRequest& request) { return request.thread_id == thread_id; });
  return TRUE;
}

BOOL CancelIoEx(HANDLE device, LPOVERLAPPED overlapped) {
  const auto file = LookUp<DeviceFile>(device);
  if (!file) return FALSE;
  const bool found = file->Cancel([&](const DeviceRequest& request) {
    return !overlapped || request.overlapped == overlapped;
  });
  if (!found) SetLastError(ERROR_NOT_FOUND);
  return found ? TRUE : FALSE;
}
