// A probe object that reaches no probe: it writes down the operations that are called on it, and
// gives the answers that a test sets.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "device/device.h"

// Calls read like "SetMode(4, external)". Byte buffers show as hex, their lengths by themselves.
class RecordingDevice : public CTzDevice {
 public:
  RecordingDevice() : CTzDevice(0, false) {}

  std::vector<std::string> TakeCalls() { return std::exchange(calls_, {}); }

  // Statuses by the operation's name; 0 where none is set.
  std::map<std::string, std::uint32_t> failing;

  // What the reading operations give, also when they fail where the real ones may.
  std::array<std::uint8_t, probe::kStatusReplySize> status_reply = {};
  std::uint32_t clock_code = 0;
  std::vector<std::uint8_t> reply;   // SWDXfer, I2CXfer, BulkXfer IN, XferData IN, GetSWVData and
                                     // RetrievePortAcquireResponse, cut to the room
  std::uint32_t extra_reported = 0;  // added to the count that the last of these reports

  std::uint32_t SetMode(std::uint32_t mode, bool external) override;
  std::uint32_t LedState(std::uint32_t led_num, std::uint32_t state) override;
  std::uint32_t Identify(std::uint32_t state) override;
  std::uint32_t TargetPowerOn(bool on) override;
  std::uint32_t SetVTargVal(std::uint32_t val) override;
  std::uint32_t GetDeviceStatus(std::span<std::uint8_t, probe::kStatusReplySize> status) override;
  std::uint32_t SetupPortAcquire(std::uint32_t retries, bool usexres) override;
  std::uint32_t StageSWDCommand(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata) override;
  std::uint32_t BeginPortAcquire() override;
  std::uint32_t RetrievePortAcquireResponse(std::uint32_t& num_rx_bytes,
                                            std::uint8_t* respdata) override;
  std::uint32_t SWDXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata,
                        std::uint32_t& num_rx_bytes, std::uint8_t* resultdata) override;
  std::uint32_t I2CXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata,
                        std::uint8_t restartPos, std::uint32_t& num_rx_bytes,
                        std::uint8_t* resultdata) override;
  std::uint32_t BulkXfer(std::uint8_t endpt, std::uint8_t* bfr, std::uint32_t& len,
                         std::uint32_t mode) override;
  std::uint32_t XferData(std::uint32_t Direction, std::uint8_t ReqCode, std::uint16_t Value,
                         std::uint16_t Index, std::uint8_t* Bfr, std::uint32_t Len) override;
  std::uint32_t JTAG_SetClock(std::uint32_t code) override;
  std::uint32_t JTAG_GetClock(std::uint32_t* code) override;
  std::uint32_t SWD_CReset() override;
  std::uint32_t SetTimeout(std::uint8_t endpt, std::uint32_t timeout) override;
  std::uint32_t SetActiveIOConnector(std::uint16_t select) override;
  std::uint32_t GetSWVData(std::vector<std::uint8_t>& data) override;
  std::uint32_t SetupSWV(std::uint32_t rate, std::uint8_t mode, std::uint16_t commit) override;
  std::uint32_t ResetTarget(bool xres_active) override;

 private:
  std::uint32_t Record(const std::string& operation, const std::string& arguments);
  void Answer(std::uint8_t* room, std::uint32_t& size);

  std::vector<std::string> calls_;
};

// Whether this thread holds the device-table lock.
bool HoldsTableLock();

// "8B 44 33", empty for no bytes; only their number when they are many.
std::string Hex(std::span<const std::uint8_t> bytes);
