// CTzDevice: one attached probe, and what the system can ask of it, as USB traffic.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "device/probe_protocol.h"

class CTzUSBDevice;
class CTzUSBEndPoint;

// Operations block for the length of their transfers, pauses and time-outs. The class has no lock:
// whoever uses a probe holds the device-table lock, or is the only one to know the object.
//
// A status is 0 for success, one of device_status, the probe's own status byte, or the system
// error code of a failed transfer (997: timed out and aborted). A failed transfer for which the
// system recorded no error counts as success. Nothing is retried or undone after a failure.
//
// Arguments are not checked unless stated; they are cut to the width that travels (requests 8
// bits, values and indexes 16).
//
// Buffers are the caller's, for the length of the call; they may be null only when their length
// is 0 or where stated.
class CTzDevice {
 public:
  // Opens the probe driver's device number `device_index` (0-based, as counted now). A failed open
  // is not reported: the object then has no endpoints and its operations give kNoEndpoint.
  // `set_timeouts` gives the data endpoints the time-outs of a probe in use.
  CTzDevice(std::uint8_t device_index, bool set_timeouts);
  CTzDevice(const CTzDevice&) = delete;
  CTzDevice& operator=(const CTzDevice&) = delete;

  // The virtual operations stand in the order of their slots.

  // FPGA registers have 7-bit addresses; bit 7 of `reg_address` is ignored. A failed request gives
  // kTransferFailed. `reg_value` is left alone on failure; its old value shows in the log.
  [[nodiscard]] virtual std::uint32_t ReadFPGAReg(std::uint8_t reg_address,
                                                  std::uint8_t* reg_value);
  [[nodiscard]] virtual std::uint32_t WriteFPGAReg(std::uint8_t reg_address,
                                                   std::uint8_t reg_value);

  // Owned by this object, never null.
  virtual CTzUSBDevice* GetUSBDevice();

  // The endpoint with this USB address (bit 7: IN), owned by the USB device; null, and a line in
  // the log, when there is none.
  virtual CTzUSBEndPoint* GetEndPoint(std::uint8_t address);

  // Closes the USB device.
  virtual ~CTzDevice();

  // Switches the transfer mode (low byte of TzTransferMode), by way of idle, and waits 70 ms.
  // `external` is false only for VSER to the probe's own controller. JTAG also selects connector 0.
  [[nodiscard]] virtual std::uint32_t SetMode(std::uint32_t mode, bool external);

  [[nodiscard]] virtual std::uint32_t LedState(std::uint32_t led_num, std::uint32_t state);
  [[nodiscard]] virtual std::uint32_t Identify(std::uint32_t state);
  [[nodiscard]] virtual std::uint32_t TargetPowerOn(bool on);
  // `val` is a TzVTargVoltage code.
  [[nodiscard]] virtual std::uint32_t SetVTargVal(std::uint32_t val);

  // Reads the status reply (probe::kStatus… offsets). Its result byte is the caller's to judge. A
  // failed read leaves the buffer as it was, but for an implausible measured voltage, which is
  // replaced in any case.
  [[nodiscard]] virtual std::uint32_t GetDeviceStatus(
      std::span<std::uint8_t, probe::kStatusReplySize> status);

  // Port acquire: arm the probe's loop (`retries`: low 8 bits count), stage the SWD bytes that it
  // sends once the target restarts, start it, and fetch its answer. `num_rx_bytes` is the room in
  // `respdata`, then the number of bytes received.
  [[nodiscard]] virtual std::uint32_t SetupPortAcquire(std::uint32_t retries, bool usexres);
  [[nodiscard]] virtual std::uint32_t StageSWDCommand(std::uint32_t num_tx_bytes,
                                                      const std::uint8_t* reqdata);
  [[nodiscard]] virtual std::uint32_t BeginPortAcquire();
  [[nodiscard]] virtual std::uint32_t RetrievePortAcquireResponse(std::uint32_t& num_rx_bytes,
                                                                  std::uint8_t* respdata);

  // Shifts `bitcount` JTAG cycles; 0 or less shifts nothing. `tmstdi` holds 2 * ceil(bitcount / 8)
  // bytes in writable memory, and all are sent. `tdo` has room for ceil(bitcount / 8) bytes when
  // `want_read`; otherwise it is not used and may be null. When any part of the exchange fails, the
  // rest is still sent, then both pipes are aborted and reset and the status is kStreamFailed, or
  // that of a failed register write; `tdo` may hold a part of the reply. No buffer is used later.
  [[nodiscard]] virtual std::uint32_t JTAG_BufferedIo(std::int32_t bitcount,
                                                      const std::uint8_t* tmstdi, bool want_read,
                                                      std::uint8_t* tdo, bool loopback);

  // Sends `num_tx_bytes` SWD request bytes while up to `num_rx_bytes` reply bytes are received;
  // `num_rx_bytes` is then the number received. A failure of any part gives kStreamFailed, with
  // both pipes reset.
  [[nodiscard]] virtual std::uint32_t SWDXfer(std::uint32_t num_tx_bytes,
                                              const std::uint8_t* reqdata,
                                              std::uint32_t& num_rx_bytes,
                                              std::uint8_t* resultdata);

  // Only CTzWfxDevice can do I2C; here: kNotPossible. `reqdata` is a packet of the FPGA engine,
  // `restartPos` its repeated-start position or 0, `num_rx_bytes` the room in `resultdata`, then
  // the number of bytes received.
  [[nodiscard]] virtual std::uint32_t I2CXfer(std::uint32_t num_tx_bytes,
                                              const std::uint8_t* reqdata, std::uint8_t restartPos,
                                              std::uint32_t& num_rx_bytes,
                                              std::uint8_t* resultdata);

  // One bulk transfer of `len` bytes on the endpoint `endpt`, in its direction; `len` is then the
  // number of bytes moved. `mode` is the transfer mode that the probe is in; only CTzWfxDevice
  // looks at it.
  [[nodiscard]] virtual std::uint32_t BulkXfer(std::uint8_t endpt, std::uint8_t* bfr,
                                               std::uint32_t& len, std::uint32_t mode);

  // One vendor request: `Direction` is probe::kHostToProbe or probe::kProbeToHost. How many bytes
  // the probe sent is not reported: a caller that judges the reply clears `Bfr` first.
  [[nodiscard]] virtual std::uint32_t XferData(std::uint32_t Direction, std::uint8_t ReqCode,
                                               std::uint16_t Value, std::uint16_t Index,
                                               std::uint8_t* Bfr, std::uint32_t Len);

  // Clock codes are those of TzJtagClock. `code` is stored in every case: 0 when the probe gave
  // none.
  [[nodiscard]] virtual std::uint32_t JTAG_SetClock(std::uint32_t code);
  [[nodiscard]] virtual std::uint32_t JTAG_GetClock(std::uint32_t* code);

  // Switch to JTAG mode and send the SWD-to-JTAG select sequence; and, in an SWD mode only
  // (otherwise kNotPossible), the JTAG-to-SWD one, ending in the mode and on the connector that
  // were active. After a failure on the way the probe stays in JTAG mode.
  [[nodiscard]] virtual std::uint32_t JTAG_Reset();
  [[nodiscard]] virtual std::uint32_t SWD_CReset();

  // Time-out of one endpoint in milliseconds, kept until it is set again. No USB traffic.
  [[nodiscard]] virtual std::uint32_t SetTimeout(std::uint8_t endpt, std::uint32_t timeout);

  // Selects the I/O connector, in an SWD mode only; otherwise kNotPossible.
  [[nodiscard]] virtual std::uint32_t SetActiveIOConnector(std::uint16_t select);

  // Appends the SWV bytes that the probe has collected, at most 512, to `data`; unchanged on
  // failure. 997: there were none within the endpoint's time-out.
  [[nodiscard]] virtual std::uint32_t GetSWVData(std::vector<std::uint8_t>& data);

  // `rate` in Hz, 0 refused with kNotPossible before any traffic; `mode` 1 Manchester, 0 UART. A
  // rate above the base clock gives the divisor 0, and a divisor keeps its low 8 bits only.
  [[nodiscard]] virtual std::uint32_t SetupSWV(std::uint32_t rate, std::uint8_t mode,
                                               std::uint16_t commit);

  // Drives the target's reset line, or releases it.
  [[nodiscard]] virtual std::uint32_t ResetTarget(bool xres_active);

  // JTAG_BufferedIo for a stream of `byte_count` whole bytes, 4 cycles each, that may be an odd
  // number: no byte beyond is read. The probe is sent whole pairs; in place of the missing byte it
  // gets 0x00, TMS and TDI low, which leaves a TAP in the state where streams end (it can only
  // shift on where the chunk is so long that the probe cannot be told the exact count). Only then
  // is the last chunk, at most 8 KiB, copied. `tdo` has room for ceil(byte_count / 2) bytes.
  // Logs, and gives statuses, as JTAG_BufferedIo. More than kMaxStreamBytes: kNotPossible.
  [[nodiscard]] std::uint32_t JTAG_BufferedIoBytes(std::span<const std::uint8_t> tmstdi,
                                                   bool want_read, std::uint8_t* tdo,
                                                   bool loopback);
  static constexpr std::size_t kMaxStreamBytes = 0x1FFFFFFF;  // 4 cycles each, counted in 31 bits

 protected:
  // A vendor request without data of its own: the transfer's status when that failed, else the
  // status byte of the reply.
  [[nodiscard]] std::uint32_t SendCommand(std::uint8_t request, std::uint16_t value,
                                          std::uint32_t reply_length);

 private:
  [[nodiscard]] std::uint32_t SwitchJtagClock(std::uint32_t code);
  // `tmstdi` is what there is of the stream: all of its whole pairs of bytes, or one byte less.
  [[nodiscard]] std::uint32_t ShiftJtag(std::int32_t bitcount, std::span<const std::uint8_t> tmstdi,
                                        bool want_read, std::uint8_t* tdo, bool loopback);
  [[nodiscard]] std::uint32_t AnnounceJtagCycles(std::int32_t remaining, bool loopback);
  [[nodiscard]] std::uint32_t ResetSwdLine();
  [[nodiscard]] std::uint32_t SendSwdLineReset();
  [[nodiscard]] std::uint32_t ConfigureSwv(std::uint32_t rate, std::uint8_t mode,
                                           std::uint16_t commit);

  std::unique_ptr<CTzUSBDevice> usb_device_;
};
