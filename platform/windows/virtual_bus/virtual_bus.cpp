#include "platform/windows/virtual_bus/virtual_bus.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <utility>

#include "platform/probe_driver/driver_requests.h"

namespace virtual_bus {
namespace {

using probe_driver::DriverError;
using probe_driver::DriverRequest;
using windows_host::KernelHandle;

constexpr std::size_t kReaders = 4;
constexpr std::size_t kReaderBytes = 64 * 1024;

// What the system gives its client back as the probe driver's error.
std::uint32_t StatusOf(std::uint32_t error) {
  switch (error) {
    case probe_driver::kSuccess:
      return 0;
    case probe_driver::kInvalidFunction:
      return 0xC0000010;  // STATUS_INVALID_DEVICE_REQUEST
    case probe_driver::kNotSupported:
      return 0xC00000BB;  // STATUS_NOT_SUPPORTED
    case probe_driver::kInvalidParameter:
      return 0xC000000D;  // STATUS_INVALID_PARAMETER
    case probe_driver::kInsufficientBuffer:
      return 0xC0000023;  // STATUS_BUFFER_TOO_SMALL
    case probe_driver::kAborted:
      return 0xC0000120;  // STATUS_CANCELLED
    case probe_driver::kDeviceNotConnected:
      return 0xC000009D;  // STATUS_DEVICE_NOT_CONNECTED
    default:
      return 0xC0000001;  // STATUS_UNSUCCESSFUL
  }
}

KernelHandle OpenTheDriver() {
  KernelHandle driver(CreateFileW(kControlDevicePath, GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_OVERLAPPED, nullptr));
  if (driver) return driver;
  throw std::runtime_error("cannot reach the virtual bus driver (error " +
                           std::to_string(GetLastError()) + "); wfxvbus install installs it");
}

void StoreText(const std::string& text, std::uint8_t* at) {
  std::copy_n(text.begin(), std::min(text.size(), Plug::kTextSize - 1), at);
}

// A path of the bus, "\\?\usb#vid_0f0f&pid_1001#wfx0001#1", gives the device id up to its second
// '#' and the instance id behind it, in which the system takes no further one.
std::vector<std::uint8_t> MakePlug(std::uint32_t number, const std::string& path) {
  std::string device = path.substr(path.find_last_of('\\') + 1);
  std::string instance;
  const std::size_t first = device.find('#');
  const std::size_t second = first == std::string::npos ? first : device.find('#', first + 1);
  if (second != std::string::npos) {
    instance = device.substr(second + 1);
    device.resize(second);
  }
  std::replace(device.begin(), device.end(), '#', '\\');
  std::replace(instance.begin(), instance.end(), '#', '&');
  for (char& c : device) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));

  std::vector<std::uint8_t> plug(Plug::kSize);
  StoreLe32(plug.data(), number);
  std::copy(probe_driver::kDeviceInterfaceClass.begin(), probe_driver::kDeviceInterfaceClass.end(),
            plug.begin() + Plug::kClass);
  StoreText(device, &plug[Plug::kDeviceId]);
  StoreText(instance, &plug[Plug::kInstanceId]);
  return plug;
}

// Whether the request needs what the client's output buffer held: of the direct form only a
// transfer to the device does.
bool NeedsOutputContents(const Message& message, const std::uint8_t* contents,
                         std::size_t carried) {
  if (message.input_size <= probe_driver::record::kEndpoint) return false;
  if (carried <= probe_driver::record::kEndpoint) return true;
  return (contents[probe_driver::record::kEndpoint] & probe_driver::kDirectionIn) == 0;
}

}  // namespace

VirtualBus::VirtualBus(probe_driver::UsbBus& bus) : bus_(bus), driver_(OpenTheDriver()) {
  std::size_t returned = 0;
  if (!Call(kPlay, {}, nullptr, 0, returned)) {
    throw std::runtime_error("another simulator uses the virtual bus driver");
  }
  readers_.resize(kReaders);
  reading_thread_ = std::thread([this] { Run(); });
  bus_.SetListener(this);
  for (const std::string& path : bus_.ListDevices()) Plug(path);
}

VirtualBus::~VirtualBus() {
  bus_.SetListener(nullptr);
  std::vector<std::string> paths;
  for (const auto& [path, number] : numbers_) paths.push_back(path);
  for (const std::string& path : paths) Unplug(path);
  CancelIoEx(driver_.Get(), nullptr);
  reading_thread_.join();
}

void VirtualBus::Plug(const std::string& path) {
  const std::lock_guard lock(devices_mutex_);
  // Told as well as listed, when it came in the moment in which the bus was listed.
  if (numbers_.count(path) != 0) return;
  const std::uint32_t number = ++last_number_;
  std::size_t returned = 0;
  if (Call(kPlug, MakePlug(number, path), nullptr, 0, returned)) numbers_[path] = number;
}

void VirtualBus::Unplug(const std::string& path) {
  const std::lock_guard lock(devices_mutex_);
  const auto found = numbers_.find(path);
  if (found == numbers_.end()) return;
  std::vector<std::uint8_t> number(4);
  StoreLe32(number.data(), found->second);
  numbers_.erase(found);
  std::size_t returned = 0;
  Call(kUnplug, number, nullptr, 0, returned);
}

bool VirtualBus::Call(std::uint32_t code, const std::vector<std::uint8_t>& input, void* output,
                      std::size_t output_size, std::size_t& returned) {
  const KernelHandle event = windows_host::MakeEvent();
  OVERLAPPED operation{};
  operation.hEvent = event.Get();
  // The driver only reads the input.
  if (!DeviceIoControl(driver_.Get(), code, const_cast<std::uint8_t*>(input.data()),
                       static_cast<DWORD>(input.size()), output, static_cast<DWORD>(output_size),
                       nullptr, &operation) &&
      GetLastError() != ERROR_IO_PENDING) {
    return false;
  }
  DWORD count = 0;
  const bool done = GetOverlappedResult(driver_.Get(), &operation, &count, TRUE) != FALSE;
  returned = count;
  return done;
}

bool VirtualBus::Start(Reader& reader) {
  reader.operation = {};
  reader.operation.hEvent = reader.event.Get();
  return DeviceIoControl(driver_.Get(), kNext, nullptr, 0, reader.bytes.data(),
                         static_cast<DWORD>(reader.bytes.size()), nullptr, &reader.operation) ||
         GetLastError() == ERROR_IO_PENDING;
}

// The driver serves readers in the order in which they were started, so that messages come in the
// order of events. Ends when the readers are cancelled.
void VirtualBus::Run() {
  for (Reader& reader : readers_) {
    reader.bytes.resize(kReaderBytes);
    reader.event = windows_host::MakeEvent();
    Start(reader);
  }
  for (std::size_t turn = 0;; turn = (turn + 1) % kReaders) {
    Reader& reader = readers_[turn];
    DWORD size = 0;
    if (!GetOverlappedResult(driver_.Get(), &reader.operation, &size, TRUE)) break;
    if (size >= Message::kSize) {
      Handle(Message::Decode(reader.bytes.data()), reader.bytes.data() + Message::kSize,
             size - Message::kSize);
    }
    if (!Start(reader)) break;
    const std::lock_guard lock(requests_mutex_);
    completed_.clear();
  }
  // The others' memory is the driver's until they have ended, too.
  CancelIoEx(driver_.Get(), nullptr);
  for (Reader& reader : readers_) {
    DWORD ignored = 0;
    GetOverlappedResult(driver_.Get(), &reader.operation, &ignored, TRUE);
  }
  files_.clear();
}

void VirtualBus::Handle(const Message& message, const std::uint8_t* contents, std::size_t carried) {
  switch (message.kind) {
    case MessageKind::kOpened:
      return Open(message);
    case MessageKind::kRequest:
      return Submit(message, contents, carried);
    case MessageKind::kCancelled:
      return Cancel(message.id);
    case MessageKind::kClosed:
      files_.erase(message.file);
      return;
  }
}

void VirtualBus::Open(const Message& message) {
  std::string path;
  {
    const std::lock_guard lock(devices_mutex_);
    const auto found = std::find_if(numbers_.begin(), numbers_.end(), [&](const auto& entry) {
      return entry.second == message.device;
    });
    if (found != numbers_.end()) path = found->first;
  }
  std::unique_ptr<probe_driver::UsbDevice> device = bus_.OpenDevice(path);
  if (!device) return;
  files_[message.file] = std::make_unique<probe_driver::ProbeDriver>(std::move(device), timers_);
}

void VirtualBus::Submit(const Message& message, const std::uint8_t* contents, std::size_t carried) {
  auto request = std::make_unique<Request>();
  request->id = message.id;
  request->file = message.file;
  const bool neither = (message.code & kMethodMask) == kMethodNeither;
  // A buffered request has one buffer for both, as its driver sees it.
  const std::size_t input_room =
      neither ? message.input_size : std::max(message.input_size, message.output_size);
  request->contents.resize(input_room + (neither ? message.output_size : 0));
  std::copy_n(contents, std::min(carried, request->contents.size()), request->contents.begin());
  const bool whole =
      carried >= message.contents_size || (neither && carried >= message.input_size &&
                                           !NeedsOutputContents(message, contents, carried));
  // A request whose contents are gone has been cancelled.
  if (!whole && !Fetch(message, request->contents, carried)) return;

  const auto file = files_.find(message.file);
  if (file == files_.end()) {
    return Complete({.id = message.id, .status = StatusOf(probe_driver::kDeviceNotConnected)},
                    nullptr, nullptr);
  }
  DriverRequest& driver_request = request->driver_request;
  driver_request.code = message.code;
  driver_request.input = request->contents.data();
  driver_request.input_size = message.input_size;
  driver_request.output = request->contents.data() + (neither ? input_room : 0);
  driver_request.output_size = message.output_size;
  driver_request.complete = [this, at = request.get()](DriverRequest&) { OnCompleted(*at); };
  {
    const std::lock_guard lock(requests_mutex_);
    in_flight_.emplace(message.id, std::move(request));
  }
  const DriverError refusal = file->second->Submit(driver_request);
  if (refusal == probe_driver::kSuccess) return;
  {
    const std::lock_guard lock(requests_mutex_);
    in_flight_.erase(message.id);
  }
  Complete({.id = message.id, .status = StatusOf(refusal)}, nullptr, nullptr);
}

bool VirtualBus::Fetch(const Message& message, std::vector<std::uint8_t>& contents,
                       std::size_t carried) {
  std::vector<std::uint8_t> input(kFetchSize);
  StoreLe64(input.data(), message.id);
  StoreLe32(&input[8], carried);
  std::size_t returned = 0;
  return Call(kFetch, input, contents.data() + carried, message.contents_size - carried,
              returned) &&
         returned == message.contents_size - carried;
}

void VirtualBus::Cancel(std::uint64_t id) {
  DriverRequest* request = nullptr;
  std::uint64_t file = 0;
  {
    const std::lock_guard lock(requests_mutex_);
    const auto found = in_flight_.find(id);
    if (found == in_flight_.end()) return;
    request = &found->second->driver_request;
    file = found->second->file;
  }
  // A request that has completed since stays valid until this thread reads the next message.
  const auto found = files_.find(file);
  if (found != files_.end()) found->second->Cancel(*request);
}

void VirtualBus::OnCompleted(Request& request) {
  const DriverRequest& done = request.driver_request;
  Completion completion{
      .id = request.id, .status = StatusOf(done.error), .information = done.bytes};
  completion.output_size = done.bytes;
  // The status words go back with the record in every case.
  if (done.record) completion.input_size = probe_driver::record::kHeaderSize;
  std::unique_ptr<Request> owned;
  {
    const std::lock_guard lock(requests_mutex_);
    const auto found = in_flight_.find(request.id);
    owned = std::move(found->second);
    in_flight_.erase(found);
  }
  Complete(completion, done.output, done.record);
  const std::lock_guard lock(requests_mutex_);
  completed_.push_back(std::move(owned));
}

// Refused when the request was cancelled meanwhile, which has told its client already.
void VirtualBus::Complete(const Completion& completion, const std::uint8_t* output,
                          const std::uint8_t* record) {
  std::vector<std::uint8_t> bytes(Completion::kSize + completion.output_size +
                                  completion.input_size);
  completion.Encode(bytes.data());
  const auto behind =
      std::copy_n(output, completion.output_size, bytes.begin() + Completion::kSize);
  std::copy_n(record, completion.input_size, behind);
  std::size_t returned = 0;
  Call(kComplete, bytes, nullptr, 0, returned);
}

}  // namespace virtual_bus
