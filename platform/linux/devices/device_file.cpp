#include "platform/linux/devices/device_file.h"

#include <utility>

#include "platform/linux/devices/bus_selection.h"
#include "platform/linux/devices/driver_timers.h"
#include "platform/linux/kernel/file_mapping.h"
#include "platform/linux/kernel/handle_table.h"

namespace linux_host {
namespace {

// What a block's Internal holds, in its lower half: 0, STATUS_PENDING, or a failure with the system
// error in its lower half.
constexpr ULONG_PTR kFailed = 0xC0070000;
// In its upper half, which clients do not see: the event is set as well.
constexpr ULONG_PTR kSettled = ULONG_PTR{1} << 32;

ULONG_PTR InternalOf(std::uint32_t error) { return error == 0 ? 0 : kFailed | error; }

std::atomic_ref<ULONG_PTR> Internal(OVERLAPPED& overlapped) {
  return std::atomic_ref<ULONG_PTR>(overlapped.Internal);
}

// The request that the calling thread is handing to the driver.
thread_local const DeviceRequest* t_starting = nullptr;

}  // namespace

DeviceRequest::DeviceRequest(DeviceFile& file, LPOVERLAPPED block, ObjectRef<Event> its_event)
    : overlapped(block), event(std::move(its_event)) {
  driver_request.complete = [this, &file](probe_driver::DriverRequest&) { file.Complete(*this); };
}

class DeviceFile::Call {
 public:
  // Of no file, with error 6, when the handle is not one of a device file.
  explicit Call(HANDLE handle) {
    const OpenHandle open(handle);
    if (open.object() && open.object()->kind() == kKind) {
      file_ = static_cast<DeviceFile*>(open.object());
      file_->calls_.fetch_add(1, std::memory_order_acquire);
    } else {
      SetLastError(ERROR_INVALID_HANDLE);
    }
  }
  ~Call() {
    if (file_) End();
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  explicit operator bool() const { return file_ != nullptr; }
  DeviceFile* operator->() const { return file_; }
  DeviceFile& operator*() const { return *file_; }

 private:
  void End() {
    DeviceFile& file = *file_;
    std::uint32_t calls = file.calls_.load(std::memory_order_relaxed);
    while (!(calls & kClosed)) {
      if (file.calls_.compare_exchange_weak(calls, calls - 1, std::memory_order_release)) return;
    }
    // Who closes the file waits for this call, and may be done with the file before it is told.
    file.AddRef();
    if (file.calls_.fetch_sub(1, std::memory_order_release) == (kClosed | 1)) {
      file.calls_.notify_all();
    }
    file.Release();
  }

  DeviceFile* file_ = nullptr;
};

DeviceFile::DeviceFile(std::unique_ptr<probe_driver::UsbDevice> device)
    : KernelObject(kKind),
      driver_(std::make_unique<probe_driver::ProbeDriver>(std::move(device), Timers())),
      work_(driver_->Work()) {}

void DeviceFile::LastHandleClosed() {
  std::uint32_t calls = calls_.fetch_or(kClosed, std::memory_order_acq_rel) | kClosed;
  while (calls != kClosed) {
    calls_.wait(calls, std::memory_order_acquire);
    calls = calls_.load(std::memory_order_acquire);
  }
  driver_.reset();
}

void DeviceFile::Link(DeviceRequest& request) {
  request.listed = true;
  request.next = in_flight_;
  if (in_flight_) in_flight_->previous = &request;
  in_flight_ = &request;
}

void DeviceFile::Unlink(DeviceRequest& request) {
  if (!request.listed) return;
  (request.previous ? request.previous->next : in_flight_) = request.next;
  if (request.next) request.next->previous = request.previous;
}

DWORD DeviceFile::Submit(DeviceRequest& request, DWORD& returned) {
  const DWORD result = SubmitToDriver(request, returned);
  request.Release(request.handed_over ? 1 : 2);
  return result;
}

DWORD DeviceFile::SubmitToDriver(DeviceRequest& request, DWORD& returned) {
  OVERLAPPED& block = *request.overlapped;
  if (request.event) {
    request.event->Reset();
    if (work_) request.event->SetWork(work_);
  }
  block.InternalHigh = 0;
  Internal(block).store(STATUS_PENDING, std::memory_order_relaxed);
  const DeviceRequest* const outer = std::exchange(t_starting, &request);
  const DWORD refusal = driver_->Submit(request.driver_request);
  t_starting = outer;
  if (refusal != probe_driver::kSuccess) {
    Internal(block).store(InternalOf(refusal) | kSettled, std::memory_order_relaxed);
    return refusal;
  }
  request.handed_over = !request.completed_at_once;
  if (request.handed_over) {
    const std::lock_guard lock(mutex_);
    if (!request.completed) {
      Link(request);
      return ERROR_IO_PENDING;
    }
  }
  returned = request.driver_request.bytes;
  return probe_driver::StartResult(request.driver_request);
}

// The order is what clients rely on: the block is filled in before the event is set, and whoever
// finds the block filled in, and then passes the lock, finds the event set. Otherwise an event that
// serves the next request already could be set for this one. A request that completes at once is
// its starter's alone until the start returns, and needs no lock.
void DeviceFile::Complete(DeviceRequest& request) {
  const auto fill_in = [&](ULONG_PTR settled) {
    request.overlapped->InternalHigh = request.driver_request.bytes;
    Internal(*request.overlapped)
        .store(InternalOf(request.driver_request.error) | settled, std::memory_order_release);
    if (!request.event) return;
    if (work_) request.event->SetWork(nullptr);
    request.event->Set();
  };
  if (t_starting == &request) {
    fill_in(kSettled);
    request.completed_at_once = true;
    return;
  }
  const auto of_completion = ObjectRef<DeviceRequest>::Adopt(&request);
  const std::lock_guard lock(mutex_);
  Unlink(request);
  request.completed = true;
  // The client then does as with a driver that keeps a request: its memory stays.
  if (!request.driver_request.transfer.kept) fill_in(0);
}

bool DeviceFile::Cancel(const std::function<bool(const DeviceRequest&)>& chosen) {
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

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD, LPSECURITY_ATTRIBUTES, DWORD disposition,
                   DWORD flags, HANDLE) {
  if (path && !(flags & FILE_FLAG_OVERLAPPED)) {
    return OpenOrdinaryFile(path, access, disposition, flags);
  }
  if (!path || disposition != OPEN_EXISTING) {
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
  const HANDLE handle = MakeHandle(MakeObject<DeviceFile>(std::move(device)));
  return handle ? handle : INVALID_HANDLE_VALUE;
}

BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID input, DWORD input_size, LPVOID output,
                     DWORD output_size, LPDWORD returned, LPOVERLAPPED overlapped) {
  const DeviceFile::Call file(device);
  if (!file) return FALSE;
  if (!overlapped) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  ObjectRef<Event> event;
  if (overlapped->hEvent && !(event = LookUp<Event>(overlapped->hEvent))) return FALSE;

  auto* const request = new DeviceRequest(*file, overlapped, std::move(event));
  request->driver_request.code = code;
  request->driver_request.input = static_cast<std::uint8_t*>(input);
  request->driver_request.input_size = input_size;
  request->driver_request.output = static_cast<std::uint8_t*>(output);
  request->driver_request.output_size = output_size;
  DWORD bytes = 0;
  const DWORD result = file->Submit(*request, bytes);
  if (returned) *returned = bytes;
  if (result == ERROR_SUCCESS) return TRUE;
  SetLastError(result);
  return FALSE;
}

BOOL GetOverlappedResult(HANDLE device, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait) {
  ULONG_PTR status = Internal(*overlapped).load(std::memory_order_acquire);
  if (status == STATUS_PENDING) {
    if (!wait) {
      SetLastError(ERROR_IO_INCOMPLETE);
      return FALSE;
    }
    if (WaitForSingleObject(overlapped->hEvent, INFINITE) == WAIT_FAILED) return FALSE;
  }
  if (!(status & kSettled)) {
    // Closing the device has completed what it had in flight, so that its handle need not be open.
    const ObjectRef<KernelObject> file = LookUpHandle(device);
    if (file && file->kind() == DeviceFile::kKind) {
      static_cast<DeviceFile&>(*file).AwaitCompletionInProgress();
    }
    status = Internal(*overlapped).load(std::memory_order_acquire);
  }
  *transferred = static_cast<DWORD>(overlapped->InternalHigh);
  const auto error = static_cast<DWORD>(status & 0xFFFF);
  if (error == 0) return TRUE;
  SetLastError(error);
  return FALSE;
}

BOOL CancelIoEx(HANDLE device, LPOVERLAPPED overlapped) {
  const DeviceFile::Call file(device);
  if (!file) return FALSE;
  const bool found = file->Cancel([&](const DeviceRequest& request) {
    return !overlapped || request.overlapped == overlapped;
  });
  if (!found) SetLastError(ERROR_NOT_FOUND);
  return found ? TRUE : FALSE;
}
