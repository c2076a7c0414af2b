// The protocol of the probes as the bench understands it: vendor requests, registers, modes.
// Written down here on its own, so that a misreading elsewhere shows up as a disagreement.
#pragma once

#include <cstdint>

namespace sim::protocol {

// Vendor requests (bRequest).
inline constexpr std::uint8_t kSetMode = 0x41;
inline constexpr std::uint8_t kRegister = 0x43;
inline constexpr std::uint8_t kReadStatus = 0x44;
inline constexpr std::uint8_t kFpgaLength = 0x45;
inline constexpr std::uint8_t kFpgaFinish = 0x46;
inline constexpr std::uint8_t kFpgaPrepare = 0x47;
inline constexpr std::uint8_t kSetLed = 0x48;
inline constexpr std::uint8_t kIdentify = 0x49;
inline constexpr std::uint8_t kSupplyOn = 0x51;
inline constexpr std::uint8_t kSupplyOff = 0x52;
inline constexpr std::uint8_t kSetVoltage = 0x55;
inline constexpr std::uint8_t kMeasureSupply = 0x56;
inline constexpr std::uint8_t kSetClock = 0x57;
inline constexpr std::uint8_t kGetClock = 0x58;
inline constexpr std::uint8_t kHardwareRevision = 0x5C;
inline constexpr std::uint8_t kArmAcquire = 0x5F;
inline constexpr std::uint8_t kStartAcquire = 0x60;
inline constexpr std::uint8_t kSelectConnector = 0x61;
inline constexpr std::uint8_t kCommitSwv = 0x67;
inline constexpr std::uint8_t kWriteRam = 0xA0;

// wValue of kHardwareRevision.
inline constexpr std::uint16_t kRevisionAddress = 0x1910;

// Byte 0 of a vendor reply.
inline constexpr std::uint8_t kDone = 0;
inline constexpr std::uint8_t kBadValue = 2;  // the value asked for does not exist
inline constexpr std::uint8_t kNoLogic = 4;   // the FPGA holds no image
inline constexpr std::uint8_t kNotReady = 5;  // a step before this one is missing

// Byte 1 of a finish reply whose byte 0 is not 0.
inline constexpr std::uint8_t kImageIncomplete = 5;  // the FPGA did not start on these bytes
inline constexpr std::uint8_t kNoDownload = 2;       // nothing was prepared or announced

// Transfer modes.
inline constexpr std::uint8_t kIdle = 0;
inline constexpr std::uint8_t kJtag = 1;
inline constexpr std::uint8_t kI2c = 2;
inline constexpr std::uint8_t kSwd = 4;
inline constexpr std::uint8_t kSwv = 8;
inline constexpr std::uint8_t kSwdSwv = 12;
inline constexpr std::uint8_t kVser = 16;
inline constexpr std::uint8_t kEtm = 32;
inline constexpr std::uint16_t kExternalFlag = 0x100;

// FPGA registers.
inline constexpr std::uint8_t kJtagCount = 0x01;  // cycles still to come, low 8 bits
inline constexpr std::uint8_t kJtagFlags = 0x02;  // bit 7 run, bit 6 loopback, rest of the count
inline constexpr std::uint8_t kI2cRestart = 0x08;
inline constexpr std::uint8_t kTargetControl = 0x11;
inline constexpr std::uint8_t kSwvControl = 0x20;
inline constexpr std::uint8_t kSwvDivisor = 0x23;
inline constexpr std::uint8_t kClockCode = 0x39;
inline constexpr std::uint8_t kClockState = 0x3A;

// kTargetControl: both of these drive XRES; either of kLineBlocked keeps the JTAG stream away from
// the serial-wire line.
inline constexpr std::uint8_t kDriveReset = 0x30;
inline constexpr std::uint8_t kLineBlocked = 0xC0;
inline constexpr std::uint8_t kClockRunning = 0x03;  // kClockState

// The controller.
inline constexpr std::uint16_t kControlRegister = 0xE600;  // RAM address; bit 0 holds the processor

// Endpoints.
inline constexpr std::uint8_t kSerialOut = 0x01;
inline constexpr std::uint8_t kSerialIn = 0x81;
inline constexpr std::uint8_t kStreamOut = 0x02;
inline constexpr std::uint8_t kStreamIn = 0x84;
inline constexpr std::uint8_t kSwvIn = 0x86;
inline constexpr std::uint16_t kBulkPacket = 512;

}  // namespace sim::protocol
