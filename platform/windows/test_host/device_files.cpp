#include "platform/windows/test_host/device_files.h"

#include <dbt.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <utility>

#include "platform/probe_driver/probe_driver.h"
#include "platform/test_host.h"
#include "platform/windows/test_host/driver_timers.h"
#include "platform/windows/test_host/made_once.h"
#include "platform/windows/test_host/system_calls.h"
#include "platform/windows/test_host/taken_calls.h"

namespace test_host {
namespace {

class Listener : public probe_driver::UsbBusListener {
 public:
  void OnDeviceArrived(const std::string& path) override {
    QueueDeviceEvent(DBT_DEVICEARRIVAL, path);
  }
  void OnDeviceRemoved(const std::string& path) override {
    QueueDeviceEvent(DBT_DEVICEREMOVECOMPLETE, path);
  }
};

struct BusState {
  std::mutex mutex;
  probe_driver::UsbBus* bus = nullptr;
  bool watched = false;
  Listener listener;
};

constinit MadeOnce<BusState> TheBus;

// What a block's Internal holds: 0, STATUS_PENDING, or a failure with the system error in its lower
// half.
constexpr ULONG_PTR kFailed = 0xC0070000;

std::atomic_ref<ULONG_PTR> Internal(OVERLAPPED& block) {
  return std::atomic_ref<ULONG_PTR>(block.Internal);
}

struct Request {
  probe_driver::DriverRequest driver_request;
  LPOVERLAPPED block;
  std::atomic<bool> completed = false;
};

class DeviceFile {
 public:
  explicit DeviceFile(std::unique_ptr<probe_driver::UsbDevice> device)
      : driver_(std::make_unique<probe_driver::ProbeDriver>(std::move(device), Timers())) {}

  // While the list still stands, which completions take their requests from.
  ~DeviceFile() { driver_.reset(); }

  // 0: has succeeded, and `returned` holds the bytes; 997: in flight; otherwise why it was refused.
  DWORD Submit(const std::shared_ptr<Request>& request, DWORD& returned) {
    OVERLAPPED& block = *request->block;
    if (block.hEvent) ResetEvent(block.hEvent);
    block.InternalHigh = 0;
    Internal(block) = STATUS_PENDING;
    {
      const std::lock_guard lock(mutex_);
      in_flight_.push_back(request);
    }
    request->driver_request.complete = [this, request = request.get()](auto&) {
      Complete(*request);
    };
    const DWORD refusal = driver_->Submit(request->driver_request);
    if (refusal != probe_driver::kSuccess) {
      const std::lock_guard lock(mutex_);
      in_flight_.remove(request);
      Internal(block) = kFailed | refusal;
      return refusal;
    }
    if (!request->completed) return ERROR_IO_PENDING;
    returned = request->driver_request.bytes;
    return probe_driver::StartResult(request->driver_request);
  }

  bool Cancel(const std::function<bool(const Request&)>& chosen) {
    std::vector<std::shared_ptr<Request>> requests;
    {
      const std::lock_guard lock(mutex_);
      std::copy_if(in_flight_.begin(), in_flight_.end(), std::back_inserter(requests),
                   [&](const auto& request) { return chosen(*request); });
    }
    for (const auto& request : requests) driver_->Cancel(request->driver_request);
    return !requests.empty();
  }

  // After it, a request whose block shows it completed has set its event as well.
  void AwaitCompletionInProgress() { const std::lock_guard lock(mutex_); }

 private:
  void Complete(Request& request) {
    std::shared_ptr<Request> kept;
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(in_flight_.begin(), in_flight_.end(),
                                    [&](const auto& entry) { return entry.get() == &request; });
    kept = std::move(*found);
    in_flight_.erase(found);
    OVERLAPPED& block = *request.block;
    block.InternalHigh = request.driver_request.bytes;
    const ULONG_PTR error = request.driver_request.error;
    Internal(block) = error == 0 ? 0 : kFailed | error;
    if (block.hEvent) taken::SetEvent(block.hEvent);
    request.completed = true;
  }

  std::unique_ptr<probe_driver::ProbeDriver> driver_;
  std::mutex mutex_;
  std::list<std::shared_ptr<Request>> in_flight_;
};

// Open device files by handle. A handle is that of an event object that nobody waits for, so that
// the system gives its value to nothing else meanwhile.
struct DeviceFiles {
  std::mutex mutex;
  std::map<HANDLE, std::shared_ptr<DeviceFile>> files;
};

DeviceFiles& TheFiles() {
  static auto& files = *new DeviceFiles;
  return files;
}

std::shared_ptr<DeviceFile> FindFile(HANDLE handle) {
  DeviceFiles& files = TheFiles();
  const std::lock_guard lock(files.mutex);
  const auto found = files.files.find(handle);
  return found == files.files.end() ? nullptr : found->second;
}

}  // namespace

std::vector<std::string> ListBusDevices() {
  probe_driver::UsbBus* bus = TheBus().bus;
  return bus ? bus->ListDevices() : std::vector<std::string>();
}

std::unique_ptr<probe_driver::UsbDevice> OpenBusDevice(const std::string& path) {
  probe_driver::UsbBus* bus = TheBus().bus;
  return bus ? bus->OpenDevice(path) : nullptr;
}

void WatchBus() {
  BusState& state = TheBus();
  const std::lock_guard lock(state.mutex);
  if (!std::exchange(state.watched, true) && state.bus) state.bus->SetListener(&state.listener);
}

void UseBus(probe_driver::UsbBus* bus) {
  BusState& state = TheBus();
  const std::lock_guard lock(state.mutex);
  if (state.bus && state.watched) state.bus->SetListener(nullptr);
  state.bus = bus;
  if (state.bus && state.watched) state.bus->SetListener(&state.listener);
}

bool IsDriverClass(const GUID& guid) {
  static_assert(sizeof(GUID) == sizeof(probe_driver::kDeviceInterfaceClass));
  return std::memcmp(&guid, probe_driver::kDeviceInterfaceClass.data(), sizeof(guid)) == 0;
}

void CloseDeviceFile(HANDLE handle) {
  std::shared_ptr<DeviceFile> file;
  DeviceFiles& files = TheFiles();
  const std::lock_guard lock(files.mutex);
  const auto found = files.files.find(handle);
  if (found == files.files.end()) return;
  file = std::move(found->second);
  files.files.erase(found);
}

namespace taken {

HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
                          DWORD disposition, DWORD flags, HANDLE template_file) {
  std::string device_path;
  for (const wchar_t* c = path; c && *c; ++c)
    device_path += static_cast<char>(*c < 0x7F ? *c : '?');
  auto device = flags & FILE_FLAG_OVERLAPPED ? OpenBusDevice(device_path) : nullptr;
  // Everything but the bus's devices is the system's.
  if (!device) {
    return system_call::CreateFileW(path, access, share, attributes, disposition, flags,
                                    template_file);
  }
  const HANDLE handle = system_call::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  DeviceFiles& files = TheFiles();
  const std::lock_guard lock(files.mutex);
  files.files[handle] = std::make_shared<DeviceFile>(std::move(device));
  return handle;
}

BOOL WINAPI DeviceIoControl(HANDLE device, DWORD code, LPVOID input, DWORD input_size,
                            LPVOID output, DWORD output_size, LPDWORD returned,
                            LPOVERLAPPED overlapped) {
  // No other devices: a request to anything else is refused, with its block as it was.
  const auto file = FindFile(device);
  if (!file) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  if (!overlapped) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const auto request = std::make_shared<Request>();
  request->block = overlapped;
  request->driver_request.code = code;
  request->driver_request.input = static_cast<std::uint8_t*>(input);
  request->driver_request.input_size = input_size;
  request->driver_request.output = static_cast<std::uint8_t*>(output);
  request->driver_request.output_size = output_size;
  DWORD bytes = 0;
  const DWORD result = file->Submit(request, bytes);
  if (returned) *returned = bytes;
  SetLastError(result);
  return result == ERROR_SUCCESS ? TRUE : FALSE;
}

BOOL WINAPI GetOverlappedResult(HANDLE device, LPOVERLAPPED overlapped, LPDWORD transferred,
                                WINBOOL wait) {
  if (Internal(*overlapped) == STATUS_PENDING) {
    if (!wait) {
      SetLastError(ERROR_IO_INCOMPLETE);
      return FALSE;
    }
    taken::WaitForSingleObject(overlapped->hEvent, INFINITE);
  }
  // Closing the device has completed what it had in flight, so that its handle need not be open.
  if (const auto file = FindFile(device)) file->AwaitCompletionInProgress();
  *transferred = static_cast<DWORD>(overlapped->InternalHigh);
  const ULONG_PTR status = Internal(*overlapped);
  SetLastError(static_cast<DWORD>(status & 0xFFFF));
  return status == 0 ? TRUE : FALSE;
}

BOOL WINAPI CancelIoEx(HANDLE device, LPOVERLAPPED overlapped) {
  const auto file = FindFile(device);
  const bool found = file && file->Cancel([&](const Request& request) {
    return !overlapped || request.block == overlapped;
  });
  if (!found) SetLastError(file ? ERROR_NOT_FOUND : ERROR_INVALID_HANDLE);
  return found ? TRUE : FALSE;
}

}  // namespace taken
}  // namespace test_host
