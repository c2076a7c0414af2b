// A probe object that reaches no probe: it writes down the operations that are called on it, and
// gives the answers that a test sets.
#pragma once

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "config/device_table.h"
#include "device/device.h"
#include "tests/unit/hex_bytes.h"

// Whether this thread holds the device-table lock.
inline bool HoldsTableLock() {
  const HANDLE lock = LockDeviceTable();
  ReleaseMutex(lock);
  const bool held = ReleaseMutex(lock) != FALSE;
  if (held) WaitForSingleObject(lock, INFINITE);
  CloseHandle(lock);
  return held;
}

// Calls read like "SetMode(4, external)", byte buffers as hex; those for a reply also show what
// they hold before it, unless that is zeros alone.
class RecordingDevice : public CTzDevice {
 public:
  RecordingDevice() : CTzDevice(0, false) {}

  // The calls since the last time, each followed by "; ".
  std::string TakeCalls() { return std::exchange(calls_, {}); }

  // Statuses by the operation's name; 0 where none is set. `failing_call` is the number of the one
  // that fails among those that come.
  std::map<std::string, std::uint32_t> failing;
  int failing_call = -1;

  // What the reading operations give, also when they fail where the real ones may.
  std::array<std::uint8_t, probe::kStatusReplySize> status_reply = {};
  std::uint32_t clock_code = 0;
  unit::Bytes reply;                 // SWDXfer, I2CXfer, BulkXfer IN, XferData IN, GetSWVData and
                                     // RetrievePortAcquireResponse, cut to the room
  std::uint32_t extra_reported = 0;  // added to the count that the last of these reports
  std::deque<unit::Bytes> tdo;       // one after another, of the streams that are read

  std::uint32_t SetMode(std::uint32_t mode, bool external) override {
    return Record("SetMode", mode, external ? "external" : "internal");
  }
  std::uint32_t LedState(std::uint32_t led_num, std::uint32_t state) override {
    return Record("LedState", led_num, state);
  }
  std::uint32_t Identify(std::uint32_t state) override { return Record("Identify", state); }
  std::uint32_t TargetPowerOn(bool on) override {
    return Record("TargetPowerOn", on ? "on" : "off");
  }
  std::uint32_t SetVTargVal(std::uint32_t val) override { return Record("SetVTargVal", val); }
  std::uint32_t GetDeviceStatus(std::span<std::uint8_t, probe::kStatusReplySize> status) override {
    std::copy(status_reply.begin(), status_reply.end(), status.begin());
    return Record("GetDeviceStatus");
  }
  std::uint32_t SetupPortAcquire(std::uint32_t retries, bool usexres) override {
    return Record("SetupPortAcquire", retries, usexres ? "xres" : "no xres");
  }
  std::uint32_t StageSWDCommand(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata) override {
    return Record("StageSWDCommand", Hex(reqdata, num_tx_bytes));
  }
  std::uint32_t BeginPortAcquire() override { return Record("BeginPortAcquire"); }
  std::uint32_t RetrievePortAcquireResponse(std::uint32_t& num_rx_bytes,
                                            std::uint8_t* respdata) override {
    const std::string room = Answer(respdata, num_rx_bytes);
    return Record("RetrievePortAcquireResponse", room);
  }
  std::uint32_t JTAG_BufferedIo(std::int32_t bitcount, const std::uint8_t* tmstdi, bool want_read,
                                std::uint8_t* received, bool loopback) override {
    const std::size_t reply_bytes = (static_cast<std::size_t>(bitcount) + 7) / 8;
    if (want_read && !tdo.empty()) {
      std::copy_n(tdo.front().begin(), std::min(reply_bytes, tdo.front().size()), received);
      tdo.pop_front();
    }
    return Record("JTAG_BufferedIo", bitcount, Hex(tmstdi, 2 * reply_bytes),
                  want_read ? "read" : "not read", loopback ? "loopback" : "target");
  }
  std::uint32_t SWDXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata,
                        std::uint32_t& num_rx_bytes, std::uint8_t* resultdata) override {
    const std::string room = Answer(resultdata, num_rx_bytes);
    return Record("SWDXfer", Hex(reqdata, num_tx_bytes), room);
  }
  std::uint32_t I2CXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata,
                        std::uint8_t restartPos, std::uint32_t& num_rx_bytes,
                        std::uint8_t* resultdata) override {
    const std::string room = Answer(resultdata, num_rx_bytes);
    return Record("I2CXfer", Hex(reqdata, num_tx_bytes), "restart " + std::to_string(restartPos),
                  room);
  }
  std::uint32_t BulkXfer(std::uint8_t endpt, std::uint8_t* bfr, std::uint32_t& len,
                         std::uint32_t mode) override {
    const std::string sent = Hex(bfr, len);
    if ((endpt & probe::kEndpointInBit) != 0) Answer(bfr, len);
    return Record("BulkXfer", Hex(&endpt, 1), sent, "mode " + std::to_string(mode));
  }
  std::uint32_t XferData(std::uint32_t Direction, std::uint8_t ReqCode, std::uint16_t Value,
                         std::uint16_t Index, std::uint8_t* Bfr, std::uint32_t Len) override {
    const std::string sent = Hex(Bfr, Len);
    const bool in = Direction == probe::kProbeToHost;
    if (in) Answer(Bfr, Len);
    return Record("XferData", in ? "in" : "out", Hex(&ReqCode, 1), Value, Index, sent);
  }
  std::uint32_t JTAG_SetClock(std::uint32_t code) override { return Record("JTAG_SetClock", code); }
  std::uint32_t JTAG_GetClock(std::uint32_t* code) override {
    *code = clock_code;
    return Record("JTAG_GetClock");
  }
  std::uint32_t JTAG_Reset() override { return Record("JTAG_Reset"); }
  std::uint32_t SWD_CReset() override { return Record("SWD_CReset"); }
  std::uint32_t SetTimeout(std::uint8_t endpt, std::uint32_t timeout) override {
    return Record("SetTimeout", Hex(&endpt, 1), timeout);
  }
  std::uint32_t SetActiveIOConnector(std::uint16_t select) override {
    return Record("SetActiveIOConnector", select);
  }
  std::uint32_t GetSWVData(std::vector<std::uint8_t>& data) override {
    const std::uint32_t status = Record("GetSWVData");
    if (status == 0) data.insert(data.end(), reply.begin(), reply.end());
    return status;
  }
  std::uint32_t SetupSWV(std::uint32_t rate, std::uint8_t mode, std::uint16_t commit) override {
    return Record("SetupSWV", rate, int{mode}, commit);
  }
  std::uint32_t ResetTarget(bool xres_active) override {
    return Record("ResetTarget", xres_active ? "drive" : "release");
  }

 private:
  static std::string Hex(const std::uint8_t* bytes, std::size_t count) {
    return unit::HexText(unit::Bytes(bytes, bytes + count));
  }

  template <typename... Arguments>
  std::uint32_t Record(const std::string& operation, const Arguments&... arguments) {
    std::ostringstream call;
    call << (HoldsTableLock() ? "" : "without the lock: ") << operation << "(";
    [[maybe_unused]] const char* separator = "";  // unused where there are no arguments
    ((call << std::exchange(separator, ", ") << arguments), ...);
    calls_ += call.str() + "); ";
    if (failing_call-- == 0) return 997;
    const auto found = failing.find(operation);
    return found != failing.end() ? found->second : 0;
  }

  // Gives the reply. Says what was asked for.
  std::string Answer(std::uint8_t* room, std::uint32_t& size) {
    std::string asked = "room " + std::to_string(size);
    if (std::any_of(room, room + size, [](std::uint8_t byte) { return byte != 0; })) {
      asked += " with " + Hex(room, size);
    }
    const auto count = std::min<std::size_t>(size, reply.size());
    std::copy_n(reply.begin(), count, room);
    size = static_cast<std::uint32_t>(count) + extra_reported;
    return asked;
  }

  std::string calls_;
};
