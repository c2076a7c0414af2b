// USB debug probes that TzWirefoxService shares: a connection to the service, and sessions with the
// targets behind the probes. C++17, and nothing but the standard library.
//
// Methods bear the names of the service's interface, and return what it gives out. One that does
// not succeed throws wirefox::Error, whose code() is the service's TzErrorCode. Texts are UTF-8.
//
// Threads: any thread may call a Service and its Sessions, and several may at once: the calls are
// made one after another, as the service serves one at a time. Assigning, moving and destroying an
// object is for one thread, while no other uses that object. After fork() the child needs a Service
// of its own. The library starts no thread and touches no signal. On Windows it uses the
// multithreaded apartment (Windows 8 or newer); a thread that has chosen a single-threaded one
// keeps its Service to itself.
#pragma once

#include <wirefox/bytes.h>
#include <wirefox/error.h>
#include <wirefox/export.h>
#include <wirefox/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace wirefox {

class Connection;

// How a part is caught in its test mode.
struct PortAcquireSettings {
  TzProgrammingMode mode = TzProgrammingMode::RESET;
  std::int32_t key = 0;
  bool write_test_key = false;  // whether the next two count
  std::int32_t test_mode_address = 0;
  std::int32_t test_mode_key = 0;
  std::int32_t retry_limit = 0;  // its low 8 bits count
};

// A target that this process has acquired, and nobody else can until it is released. Made by
// Service::AcquireDevice, whose connection it shares: it may outlive the Service. After a release,
// and once it has been moved from, its calls throw NOT_ACQUIRED. A process that acquires a target
// twice has one session with it: both objects have its handle, and the first release ends it.
class WIREFOX_API Session {
 public:
  Session(Session&& other) noexcept;
  Session& operator=(Session&& other) noexcept;
  // Releases the target; what fails then is not told.
  ~Session();

  // As other clients of the interface name the session; 0: none.
  std::int64_t handle() const noexcept { return handle_; }

  // Clocks JTAG: four cycles in a byte, TMS in the high nibble and TDI in the low one, the first
  // cycle in the lowest bit of each. Returns TDO, a bit for each cycle, the first in the lowest bit
  // of the first byte; all zeros unless `read`. The probe takes bytes in pairs.
  Bytes SendJtagPacket(ByteView tdi_tms, bool read = true);

  // SWD requests, a header byte each, a write's with its data word (little-endian) behind it. The
  // reply to each is a data word for a read, and a status byte, which is good when (status & 5)
  // == 1.
  Bytes SendSwdPacket(ByteView data);

  // One I2C transaction: an address byte and its data, with a repeated start after
  // `restart_location` data bytes (0: none). Byte 0 of the reply is the engine's status.
  Bytes SendI2CPacket(ByteView data, std::int32_t restart_location = 0);

  // Moves bytes of an endpoint, in any mode: `data` out, or as many in. The reply has the size of
  // `data`; how many bytes of it have moved is not told.
  Bytes BulkTransfer(TzWirefoxEndPoint endpoint, ByteView data, bool read);

  // What has been received since the last call; empty when nothing has.
  Bytes RequestSwvPackets();
  Bytes RequestEtmPackets();

  // Begins to catch the part in its test mode. Service::GetPortAcquireStatus tells how it went.
  void PortAcquire(const PortAcquireSettings& settings);

  // Does now what the destructor would, and tells what fails. The connection stays.
  void ReleaseDevice();

 private:
  friend class Service;
  WIREFOX_NO_EXPORT Session(std::shared_ptr<Connection> connection, std::int64_t handle) noexcept;
  template <typename Call>
  WIREFOX_NO_EXPORT void OnTarget(const char* method, Call call);
  WIREFOX_NO_EXPORT void LetGo() noexcept;

  std::shared_ptr<Connection> connection_;
  std::atomic<std::int64_t> handle_ = 0;
};

// A connection to the service. Probes are named by their serial numbers; letter case counts. Once
// it has been moved from, it can only be assigned to and destroyed.
class WIREFOX_API Service {
 public:
  // Connects, and has the service started if need be. Throws an Error whose call_status() is not 0.
  Service();
  Service(Service&& other) noexcept;
  Service& operator=(Service&& other) noexcept;
  ~Service();

  // One component in each byte, the major one in the highest.
  std::int32_t GetVersion();

  // A file that the service rewrites whenever probes come or go.
  std::string GetDevicesChangedLocation();

  // The names of the probes that are ready. Frees what ended processes held.
  std::vector<std::string> EnumerateWirefoxs();

  // Looks which targets are behind the probe in its present mode: their ids in hexadecimal, each
  // followed by 1 when it is held, else by 0. A target's place in the list is its number.
  std::vector<std::string> EnumerateDevices(const std::string& probe);

  TzWFXStatus GetWirefoxStatus(const std::string& probe);
  std::int32_t GetHwRevID(const std::string& probe);

  void SetLedState(const std::string& probe, TzLed led, TzLedState state);
  void VisualIdentify(const std::string& probe, TzLedIdentifyState state);

  // The next four are refused (IN_USE) while another process holds a target of the probe. Endpoints
  // that read go by their address here: static_cast<TzWirefoxEndPoint>(0x81), 0x84 and 0x86.
  void SetTimeOut(const std::string& probe, TzWirefoxEndPoint endpoint, std::int32_t timeout_ms);
  void SetJtagClock(const std::string& probe, TzJtagClock clock);
  // The ten-pin connector, or the five-pin one; counts in the SWD modes.
  void SetMode(const std::string& probe, TzTransferMode mode, bool port10 = false);
  void SetVTarg(const std::string& probe, TzVTargVoltage voltage, bool supply);

  void ToggleXres(const std::string& probe, bool active);
  void SetupSWV(const std::string& probe, std::int32_t frequency_hz, bool manchester,
                std::int16_t commit_time = 0);

  // Acquires the target of that number. INVALID_DEVICE: there is none, or nobody has called
  // EnumerateDevices since the service started or the probe came. IN_USE: it is held.
  Session AcquireDevice(const std::string& probe, std::int32_t target = 0);

  // As Session::PortAcquire, for a part that does not answer yet and so is no target.
  void PortAcquire(const std::string& probe, const PortAcquireSettings& settings);
  // Whether the part has answered.
  bool GetPortAcquireStatus(const std::string& probe);

 private:
  friend class Connection;
  WIREFOX_NO_EXPORT explicit Service(std::shared_ptr<Connection> connection) noexcept;

  std::shared_ptr<Connection> connection_;
};

}  // namespace wirefox
