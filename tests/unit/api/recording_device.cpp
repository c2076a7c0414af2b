#include "tests/unit/api/recording_device.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>

#include "config/device_table.h"

namespace {

constexpr std::size_t kMostShown = 4096;

std::string Number(std::uint64_t value) { return std::to_string(value); }

}  // namespace

bool HoldsTableLock() {
  const HANDLE lock = LockDeviceTable();
  ReleaseMutex(lock);
  const bool held = ReleaseMutex(lock) != FALSE;
  if (held) WaitForSingleObject(lock, INFINITE);
  CloseHandle(lock);
  return held;
}

std::string Hex(std::span<const std::uint8_t> bytes) {
  if (bytes.size() > kMostShown) return Number(bytes.size()) + " bytes";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof(digits), "%02X", static_cast<unsigned>(byte));
    if (!text.empty()) text += ' ';
    text += digits;
  }
  return text;
}

std::uint32_t RecordingDevice::Record(const std::string& operation, const std::string& arguments) {
  std::string call = HoldsTableLock() ? operation : "without the lock: " + operation;
  call.append("(").append(arguments).append(")");
  calls_.push_back(std::move(call));
  const auto found = failing.find(operation);
  return found != failing.end() ? found->second : 0;
}

void RecordingDevice::Answer(std::uint8_t* room, std::uint32_t& size) {
  const auto count = std::min<std::size_t>(size, reply.size());
  std::copy_n(reply.begin(), count, room);
  size = static_cast<std::uint32_t>(count) + extra_reported;
}

std::uint32_t RecordingDevice::SetMode(std::uint32_t mode, bool external) {
  return Record("SetMode", Number(mode) + (external ? ", external" : ", internal"));
}

std::uint32_t RecordingDevice::LedState(std::uint32_t led_num, std::uint32_t state) {
  return Record("LedState", Number(led_num) + ", " + Number(state));
}

std::uint32_t RecordingDevice::Identify(std::uint32_t state) {
  return Record("Identify", Number(state));
}

std::uint32_t RecordingDevice::TargetPowerOn(bool on) {
  return Record("TargetPowerOn", on ? "on" : "off");
}

std::uint32_t RecordingDevice::SetVTargVal(std::uint32_t val) {
  return Record("SetVTargVal", Number(val));
}

std::uint32_t RecordingDevice::GetDeviceStatus(
    std::span<std::uint8_t, probe::kStatusReplySize> status) {
  std::copy(status_reply.begin(), status_reply.end(), status.begin());
  return Record("GetDeviceStatus", "");
}

std::uint32_t RecordingDevice::SetupPortAcquire(std::uint32_t retries, bool usexres) {
  return Record("SetupPortAcquire", Number(retries) + (usexres ? ", xres" : ", no xres"));
}

std::uint32_t RecordingDevice::StageSWDCommand(std::uint32_t num_tx_bytes,
                                               const std::uint8_t* reqdata) {
  return Record("StageSWDCommand", Hex({reqdata, num_tx_bytes}));
}

std::uint32_t RecordingDevice::BeginPortAcquire() { return Record("BeginPortAcquire", ""); }

std::uint32_t RecordingDevice::RetrievePortAcquireResponse(std::uint32_t& num_rx_bytes,
                                                           std::uint8_t* respdata) {
  const std::string room = Number(num_rx_bytes);
  Answer(respdata, num_rx_bytes);
  return Record("RetrievePortAcquireResponse", room);
}

std::uint32_t RecordingDevice::SWDXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata,
                                       std::uint32_t& num_rx_bytes, std::uint8_t* resultdata) {
  const std::string room = Number(num_rx_bytes);
  Answer(resultdata, num_rx_bytes);
  return Record("SWDXfer", Hex({reqdata, num_tx_bytes}) + ", room " + room);
}

std::uint32_t RecordingDevice::I2CXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata,
                                       std::uint8_t restartPos, std::uint32_t& num_rx_bytes,
                                       std::uint8_t* resultdata) {
  const std::string room = Number(num_rx_bytes);
  Answer(resultdata, num_rx_bytes);
  return Record("I2CXfer", Hex({reqdata, num_tx_bytes}) + ", restart " + Number(restartPos) +
                               ", room " + room);
}

std::uint32_t RecordingDevice::BulkXfer(std::uint8_t endpt, std::uint8_t* bfr, std::uint32_t& len,
                                        std::uint32_t mode) {
  const std::string sent = Hex({bfr, len});
  if ((endpt & probe::kEndpointInBit) != 0) Answer(bfr, len);
  return Record("BulkXfer", Hex({&endpt, 1}) + ": " + sent + ", mode " + Number(mode));
}

std::uint32_t RecordingDevice::XferData(std::uint32_t Direction, std::uint8_t ReqCode,
                                        std::uint16_t Value, std::uint16_t Index, std::uint8_t* Bfr,
                                        std::uint32_t Len) {
  const bool in = Direction == probe::kProbeToHost;
  const std::string sent = in ? "" : Hex({Bfr, Len}) + ", ";
  std::uint32_t size = Len;
  if (in) Answer(Bfr, size);
  return Record("XferData", std::string(in ? "in, " : "out, ") + sent + Hex({&ReqCode, 1}) + ", " +
                                Number(Value) + ", " + Number(Index) + ", " + Number(Len));
}

std::uint32_t RecordingDevice::JTAG_SetClock(std::uint32_t code) {
  return Record("JTAG_SetClock", Number(code));
}

std::uint32_t RecordingDevice::JTAG_GetClock(std::uint32_t* code) {
  *code = clock_code;
  return Record("JTAG_GetClock", "");
}

std::uint32_t RecordingDevice::SWD_CReset() { return Record("SWD_CReset", ""); }

std::uint32_t RecordingDevice::SetTimeout(std::uint8_t endpt, std::uint32_t timeout) {
  return Record("SetTimeout", Hex({&endpt, 1}) + ", " + Number(timeout));
}

std::uint32_t RecordingDevice::SetActiveIOConnector(std::uint16_t select) {
  return Record("SetActiveIOConnector", Number(select));
}

std::uint32_t RecordingDevice::GetSWVData(std::vector<std::uint8_t>& data) {
  const std::uint32_t status = Record("GetSWVData", "");
  if (status == 0) data.insert(data.end(), reply.begin(), reply.end());
  return status;
}

std::uint32_t RecordingDevice::SetupSWV(std::uint32_t rate, std::uint8_t mode,
                                        std::uint16_t commit) {
  return Record("SetupSWV", Number(rate) + ", " + Number(mode) + ", " + Number(commit));
}

std::uint32_t RecordingDevice::ResetTarget(bool xres_active) {
  return Record("ResetTarget", xres_active ? "drive" : "release");
}
