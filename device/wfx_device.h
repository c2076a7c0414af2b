// CTzWfxDevice: a Wirefox probe, which does I2C in its FPGA.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "device/device.h"
#include "usb/kept_memory.h"

// The FPGA engine takes a packet on endpoint 0x02 (address byte, then data, or a zero byte for each
// byte to read; in a two-phase packet the second address byte and its data follow) and answers on
// 0x84 with its status byte and the bytes read. FPGA register 8 holds the repeated-start position.
// Clients reach it directly (I2CXfer) or with requests in an older format that they send as bulk
// data on 0x01 and fetch on 0x81 in I2C mode (BulkXfer). See probe::kI2cBulk… for that format.
class CTzWfxDevice : public CTzDevice {
 public:
  CTzWfxDevice(std::uint8_t device_index, bool set_timeouts);
  ~CTzWfxDevice() override;

  // I2C mode also prepares the engine: clears the I2C state, reads the restart position, empties
  // the reply pipe and sets time-outs (0x81 and 0x84 1500 ms, 0x01 and 0x02 2000 ms).
  [[nodiscard]] std::uint32_t SetMode(std::uint32_t mode, bool external) override;

  // Without a powered target nothing is sent, and the reply is `num_rx_bytes` zeros.
  [[nodiscard]] std::uint32_t I2CXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata,
                                      std::uint8_t restartPos, std::uint32_t& num_rx_bytes,
                                      std::uint8_t* resultdata) override;

  // In I2C mode, requests in the older format are translated; see TranslateToEp2x4.
  [[nodiscard]] std::uint32_t BulkXfer(std::uint8_t endpt, std::uint8_t* bfr, std::uint32_t& len,
                                       std::uint32_t mode) override;

  // Also sets 0x02 with 0x01, and 0x84 with 0x81.
  [[nodiscard]] std::uint32_t SetTimeout(std::uint8_t endpt, std::uint32_t timeout) override;

  // Whether the target supplies I2C power: 1 or 0. The probe is asked at most once a second.
  std::uint32_t PowerSupplied();

  // Sets register 8, unless it holds `value` already.
  [[nodiscard]] std::uint32_t I2CUpdateRestartPos(std::uint8_t value);

  // One transfer to, or from, the engine. A time-out gives kTransferFailed; after one of a read,
  // the next write first empties the reply pipe. kNotPossible without the endpoint, 0x84 being
  // needed for that emptying, too. `num_rx_bytes`: room, then bytes received.
  [[nodiscard]] std::uint32_t I2COutXfer(std::uint32_t num_tx_bytes, const std::uint8_t* reqdata);
  [[nodiscard]] std::uint32_t I2CInXfer(std::uint32_t& num_rx_bytes, std::uint8_t* resultdata);

  // Translates a request of the older format into `packet` and sets register 8. A request that
  // announces more bytes than it holds is refused with kNotPossible before anything is sent.
  [[nodiscard]] std::uint32_t I2CParseIn(std::span<const std::uint8_t> bfr,
                                         std::vector<std::uint8_t>& packet);

  // Performs a request of the older format (`endpt` 0x01), or fetches its reply (0x81): the
  // engine's status byte, then the bytes read. `len` is the size of `bfr`, then that of the reply,
  // never more than it was; replies are cut to 70 bytes, more than the engine's packets yield. A
  // time-out counts as success, with a zero first byte. Without a powered target a request is
  // dropped and a reply is all zeros.
  [[nodiscard]] std::uint32_t TranslateToEp2x4(std::uint8_t endpt, std::uint8_t* bfr,
                                               std::uint32_t& len);

 private:
  // No reply in the older format is longer: the engine takes packets of at most 64 bytes or so.
  // Clients that offer a larger buffer get this much of it filled.
  static constexpr std::uint32_t kMaxReplyBytes = 70;
  // The engine's reply is read with two bytes more than the client asked for; one of them is the
  // echo of a second address byte.
  static constexpr std::uint32_t kReplyExtra = 2;

  [[nodiscard]] std::uint32_t PrepareI2C();
  void DrainReplies();
  [[nodiscard]] bool DrainLateReply();
  [[nodiscard]] std::uint32_t WriteRestartPosition(std::uint8_t value);
  [[nodiscard]] std::uint32_t I2CStartTransfer(std::uint8_t bControl, std::uint32_t bLong,
                                               std::span<const std::uint8_t> bfr,
                                               std::vector<std::uint8_t>& packet);
  [[nodiscard]] std::uint32_t I2CRestartTransfer(std::uint8_t bControl, std::uint32_t bLong,
                                                 std::span<const std::uint8_t> bfr,
                                                 std::vector<std::uint8_t>& packet);
  [[nodiscard]] std::uint32_t TranslateRequest(std::span<const std::uint8_t> bfr);
  [[nodiscard]] std::uint32_t TranslateReply(std::uint8_t* bfr, std::uint32_t& len);

  // The current bulk request goes to endpoints 0x01 and 0x81 unchanged.
  bool native_pass_through_ = false;
  // The last translated request had two phases, of these lengths.
  bool restart_transfer_ = false;
  std::uint32_t first_phase_length_ = 0;
  std::uint32_t second_phase_length_ = 0;
  ReplyBuffer reply_{kMaxReplyBytes + kReplyExtra};  // of the older format
  std::uint32_t read_failed_ = 1;
  std::uint32_t next_power_check_ms_ = 0;  // system tick count
  std::uint32_t power_supplied_ = 0;       // answer of the last power check
  std::uint8_t restart_position_ = 0;      // what FPGA register 8 holds
};
