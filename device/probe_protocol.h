// The probes' USB protocol in numbers: endpoints, vendor requests, replies, FPGA registers and
// stream formats. The one home of these values in the product.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace probe {

// Data endpoints by USB address. Bit 7 set: from the probe to the host.
inline constexpr std::uint8_t kEndpointInBit = 0x80;
inline constexpr std::uint8_t kEndpointControl = 0x00;
inline constexpr std::uint8_t kEndpointSerialOut = 0x01;  // VSER and I2C data
inline constexpr std::uint8_t kEndpointSerialIn = 0x81;   // VSER and I2C replies
inline constexpr std::uint8_t kEndpointStreamOut = 0x02;  // JTAG, SWD, port acquire, FPGA image
inline constexpr std::uint8_t kEndpointStreamIn = 0x84;   // JTAG and SWD replies, port acquire
inline constexpr std::uint8_t kEndpointSwvIn = 0x86;      // SWV data

// Direction of a vendor request. Commands travel "in" too: the probe answers each with a short
// reply whose first byte is its status.
inline constexpr std::uint32_t kHostToProbe = 0;
inline constexpr std::uint32_t kProbeToHost = 1;

// Recipient and type of every vendor request (bits 0-4 and 5-6 of bmRequestType).
inline constexpr std::uint32_t kRecipientDevice = 0;
inline constexpr std::uint32_t kRequestTypeVendor = 2;

// Vendor requests. The length behind each is the reply length asked for, part of the protocol.
inline constexpr std::uint8_t kRequestSetMode = 0x41;
inline constexpr std::uint32_t kSetModeLength = 3;
inline constexpr std::uint8_t kRequestFpgaRegister = 0x43;
inline constexpr std::uint32_t kReadRegisterLength = 8;
inline constexpr std::uint32_t kWriteRegisterLength = 16;
inline constexpr std::uint8_t kRequestStatus = 0x44;
inline constexpr std::uint8_t kRequestFpgaLength = 0x45;
inline constexpr std::uint8_t kRequestFpgaFinish = 0x46;
inline constexpr std::uint8_t kRequestFpgaPrepare = 0x47;
inline constexpr std::uint32_t kFpgaStepLength = 16;
inline constexpr std::uint8_t kRequestLed = 0x48;
inline constexpr std::uint8_t kRequestIdentify = 0x49;
inline constexpr std::uint32_t kLedLength = 2;
inline constexpr std::uint8_t kRequestTargetPowerOn = 0x51;
inline constexpr std::uint8_t kRequestTargetPowerOff = 0x52;
inline constexpr std::uint8_t kRequestTargetVoltage = 0x55;
inline constexpr std::uint32_t kTargetPowerLength = 2;
inline constexpr std::uint8_t kRequestSupply = 0x56;
inline constexpr std::uint32_t kSupplyLength = 15;
inline constexpr std::uint8_t kRequestSetJtagClock = 0x57;
inline constexpr std::uint32_t kSetJtagClockLength = 2;
inline constexpr std::uint8_t kRequestGetJtagClock = 0x58;
inline constexpr std::uint32_t kGetJtagClockLength = 4;
inline constexpr std::uint8_t kRequestHardwareRevision = 0x5C;
inline constexpr std::uint16_t kHardwareRevisionValue = 0x1910;
inline constexpr std::uint32_t kHardwareRevisionLength = 64;
inline constexpr std::uint8_t kRequestArmPortAcquire = 0x5F;
inline constexpr std::uint8_t kRequestBeginPortAcquire = 0x60;
inline constexpr std::uint32_t kPortAcquireLength = 10;
inline constexpr std::uint8_t kRequestConnector = 0x61;
inline constexpr std::uint32_t kConnectorLength = 10;
inline constexpr std::uint32_t kConnectorAfterModeLength = 3;  // as part of a mode switch
inline constexpr std::uint8_t kRequestCommitSwv = 0x67;
inline constexpr std::uint32_t kCommitSwvLength = 2;
inline constexpr std::uint32_t kMaxCommandReply = 16;
inline constexpr std::uint8_t kRequestControllerRam = 0xA0;  // the only one from host to probe
inline constexpr std::uint16_t kControllerResetAddress = 0xE600;

// Bits in the values of requests.
inline constexpr std::uint16_t kModeExternal = 0x100;        // not the probe's own controller
inline constexpr std::uint16_t kPortAcquireUseXres = 0x100;  // reset the target by its pin
inline constexpr std::uint16_t kRegisterWrite = 0x80;
inline constexpr std::uint8_t kRegisterAddressMask = 0x7F;
inline constexpr std::uint16_t kTargetPowerOnValue = 1;
inline constexpr std::uint16_t kTargetPowerOffValue = 0;

// Offsets in replies. Multi-byte fields are little-endian and not aligned.
inline constexpr std::size_t kReplyStatus = 0;
inline constexpr std::size_t kReplyRegisterValue = 3;
inline constexpr std::size_t kReplyJtagClock = 3;
inline constexpr std::size_t kReplyHardwareRevision = 3;  // signed
inline constexpr std::size_t kReplySupply = 2;            // 16 bits

// The status reply (kRequestStatus).
inline constexpr std::size_t kStatusReplySize = 14;
inline constexpr std::size_t kStatusResult = 0;
inline constexpr std::size_t kStatusFlags = 1;
inline constexpr std::size_t kStatusVoltageSet = 2;
inline constexpr std::size_t kStatusVoltageMeasured = 3;  // 16 bits
inline constexpr std::size_t kStatusActiveInterface = 5;
inline constexpr std::size_t kStatusProbeVersion = 6;  // 16 bits
inline constexpr std::size_t kStatusVornVersion = 8;   // 16 bits
inline constexpr std::size_t kStatusFpgaVersion = 10;
inline constexpr std::size_t kStatusActivePort = 11;
inline constexpr std::size_t kStatusBootloaderVersion = 12;  // 16 bits

// Flags of the status reply (kStatusFlags).
inline constexpr std::uint8_t kFlagFpgaPowerState = 0x03;
inline constexpr std::uint8_t kFlagSoftwareValid = 0x04;
inline constexpr std::uint8_t kFlagVTargFault = 0x08;
inline constexpr std::uint8_t kFlagVTargOn = 0x10;
inline constexpr std::uint8_t kFlagVcc13On = 0x20;
inline constexpr std::uint8_t kFlagFpgaMailboxError = 0x40;
inline constexpr std::uint8_t kFlagVornI2cError = 0x80;

// A measured voltage from kVoltageImplausible on is the probe's way to show that it measured
// nothing; it is replaced by kVoltageReplacement.
inline constexpr std::uint16_t kVoltageImplausible = 0x1F00;
inline constexpr std::uint16_t kVoltageReplacement = 0x00FA;

// Supply measurement from which on the target counts as powered for I2C.
inline constexpr std::uint16_t kSupplyPresent = 75;

// Transfer modes as they travel to the probe and come back as its active interface.
inline constexpr std::uint32_t kModeIdle = 0;
inline constexpr std::uint32_t kModeJtag = 1;
inline constexpr std::uint32_t kModeI2c = 2;
inline constexpr std::uint32_t kModeSwd = 4;
inline constexpr std::uint32_t kModeSwv = 8;
inline constexpr std::uint32_t kModeSwdSwv = 12;
inline constexpr std::uint32_t kModeVser = 16;
inline constexpr std::uint32_t kModeEtm = 32;
inline constexpr std::uint8_t kInterfaceSwdBit = 0x04;  // set in both SWD modes

// FPGA registers, 8 bits each.
inline constexpr std::uint8_t kRegisterJtagCountLow = 0x01;
inline constexpr std::uint8_t kRegisterJtagCountHigh = 0x02;  // with the flags below
inline constexpr std::uint8_t kRegisterI2cRestart = 0x08;
inline constexpr std::uint8_t kRegisterTargetControl = 0x11;
inline constexpr std::uint8_t kRegisterSwvControl = 0x20;
inline constexpr std::uint8_t kRegisterSwvDivisor = 0x23;
inline constexpr std::uint8_t kRegisterClockCode = 0x39;
inline constexpr std::uint8_t kRegisterClockState = 0x3A;

inline constexpr std::uint8_t kJtagShift = 0x80;      // in kRegisterJtagCountHigh
inline constexpr std::uint8_t kJtagLoopback = 0x40;   // in kRegisterJtagCountHigh
inline constexpr std::uint8_t kXresActive = 0x20;     // in kRegisterTargetControl
inline constexpr std::uint8_t kXresDrive = 0x10;      // in kRegisterTargetControl
inline constexpr std::uint8_t kLineResetMask = 0x3F;  // what stays during an SWD line reset
inline constexpr std::uint8_t kSwvSlowClock = 0x01;   // in kRegisterSwvControl, when read
inline constexpr std::uint8_t kSwvEnable = 0x02;      // in kRegisterSwvControl
inline constexpr std::uint8_t kClockChange = 0xFC;    // in kRegisterClockCode
inline constexpr std::uint8_t kClockRunning = 0x03;   // in kRegisterClockState
inline constexpr std::uint32_t kSwvBaseClockHz = 48'000'000;
inline constexpr std::uint32_t kSwvSlowBaseClockHz = 24'000'000;

// I2C: register kRegisterI2cRestart holds this bit and the first phase's length, or 0.
inline constexpr std::uint8_t kI2cRestart = 0x80;
inline constexpr std::uint32_t kI2cPhaseLimit = 63;  // most bytes of a phase
inline constexpr std::uint8_t kI2cReadBit = 0x01;    // of an address byte

// Requests in the older I2C packet format that clients send as bulk data.
inline constexpr std::size_t kI2cBulkControl = 0;
inline constexpr std::size_t kI2cBulkLength = 1;
inline constexpr std::size_t kI2cBulkAddress = 2;
inline constexpr std::size_t kI2cBulkData = 3;           // single phase
inline constexpr std::size_t kI2cBulkSecondLength = 3;   // two phases
inline constexpr std::size_t kI2cBulkSecondAddress = 4;  // two phases; bit 7: it reads
inline constexpr std::size_t kI2cBulkTwoPhaseData = 5;
inline constexpr std::uint8_t kI2cBulkRead = 0x01;        // in the control byte
inline constexpr std::uint8_t kI2cBulkTwoPhase = 0x04;    // in the control byte
inline constexpr std::uint8_t kI2cBulkNative = 0x30;      // in the control byte: either bit
inline constexpr std::uint8_t kI2cBulkLengthMask = 0x3F;  // of the length byte
inline constexpr std::uint8_t kI2cBulkNativeAddress = 0x80;
inline constexpr std::uint8_t kI2cBulkSecondReads = 0x80;  // in the second address

// A JTAG stream travels in chunks: what remains up to kJtagLastChunkCycles at once, else
// kJtagChunkCycles. A byte to the probe holds the TMS (high nibble) and TDI (low nibble) levels of
// four cycles, a byte from it the TDO levels of eight; the lowest bit is the first cycle.
inline constexpr std::int32_t kJtagLastChunkCycles = 0x7FFF;
inline constexpr std::int32_t kJtagChunkCycles = 0x8000;
inline constexpr std::uint32_t kJtagCyclesPerByte = 4;

// TMS levels that move a target's port between JTAG and SWD, TDI low: 52 cycles high, the 16-bit
// select sequence of the ARM serial wire / JTAG debug port, least significant bit first (0xE73C to
// JTAG, 0xE79E to SWD), and 52 cycles high.
inline constexpr std::int32_t kLineResetCycles = 120;
using LineResetSequence = std::array<std::uint8_t, 30>;
inline constexpr LineResetSequence kSwdToJtagSequence = {
    0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0,  //
    0xF0, 0xF0, 0xF0, 0xC0, 0x30, 0x70, 0xE0, 0xF0, 0xF0, 0xF0,  //
    0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0};
inline constexpr LineResetSequence kJtagToSwdSequence = {
    0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0,  //
    0xF0, 0xF0, 0xF0, 0xE0, 0x90, 0x70, 0xE0, 0xF0, 0xF0, 0xF0,  //
    0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0, 0xF0};

// Most bytes that are asked of the SWV endpoint at once.
inline constexpr std::size_t kSwvBufferSize = 512;

}  // namespace probe
