-- Shows the USB traffic of Wirefox probes and Evk boards in Wireshark and tshark: what is asked of a probe and what
-- it answers, in captures of the simulator (wfxsim --pcap), of usbmon and of USBPcap. Devices are recognised by their
-- USB ids (a preference), or, when a capture begins after they were plugged in, by what they are asked.

-- The numbers of the protocol, under their names in device/probe_protocol.h and api/tz_wirefox.h.
local number = {
  kEndpointSerialOut = 0x01,
  kEndpointSerialIn = 0x81,
  kEndpointStreamOut = 0x02,
  kEndpointStreamIn = 0x84,
  kEndpointSwvIn = 0x86,

  kRequestSetMode = 0x41,
  kRequestFpgaRegister = 0x43,
  kRequestStatus = 0x44,
  kRequestFpgaLength = 0x45,
  kRequestFpgaFinish = 0x46,
  kRequestFpgaPrepare = 0x47,
  kRequestLed = 0x48,
  kRequestIdentify = 0x49,
  kRequestTargetPowerOn = 0x51,
  kRequestTargetPowerOff = 0x52,
  kRequestTargetVoltage = 0x55,
  kRequestSupply = 0x56,
  kRequestSetJtagClock = 0x57,
  kRequestGetJtagClock = 0x58,
  kRequestHardwareRevision = 0x5C,
  kRequestArmPortAcquire = 0x5F,
  kRequestBeginPortAcquire = 0x60,
  kRequestConnector = 0x61,
  kRequestCommitSwv = 0x67,
  kRequestControllerRam = 0xA0,

  kSetModeLength = 3,
  kStatusReplySize = 14,
  kHardwareRevisionValue = 0x1910,
  kHardwareRevisionLength = 64,
  kControllerResetAddress = 0xE600,

  kModeExternal = 0x100,
  kPortAcquireUseXres = 0x100,
  kRegisterWrite = 0x80,
  kRegisterAddressMask = 0x7F,

  kReplyStatus = 0,
  kReplyRegisterValue = 3,
  kReplyJtagClock = 3,
  kReplyHardwareRevision = 3,
  kReplySupply = 2,
  kStatusFlags = 1,
  kStatusVoltageSet = 2,
  kStatusVoltageMeasured = 3,
  kStatusActiveInterface = 5,
  kStatusProbeVersion = 6,
  kStatusVornVersion = 8,
  kStatusFpgaVersion = 10,
  kStatusActivePort = 11,
  kStatusBootloaderVersion = 12,
  kFlagFpgaPowerState = 0x03,
  kFlagSoftwareValid = 0x04,
  kFlagVTargFault = 0x08,
  kFlagVTargOn = 0x10,
  kFlagVcc13On = 0x20,
  kFlagFpgaMailboxError = 0x40,
  kFlagVornI2cError = 0x80,

  kModeIdle = 0,
  kModeJtag = 1,
  kModeI2c = 2,
  kModeSwd = 4,
  kModeSwv = 8,
  kModeSwdSwv = 12,
  kModeVser = 16,
  kModeEtm = 32,
  kInterfaceSwdBit = 0x04,

  kRegisterJtagCountLow = 0x01,
  kRegisterJtagCountHigh = 0x02,
  kRegisterI2cRestart = 0x08,
  kRegisterTargetControl = 0x11,
  kRegisterSwvControl = 0x20,
  kRegisterSwvDivisor = 0x23,
  kRegisterClockCode = 0x39,
  kRegisterClockState = 0x3A,
  kJtagLoopback = 0x40,
  kI2cRestart = 0x80,
  kI2cReadBit = 0x01,
  kJtagCyclesPerByte = 4,

  FREQ_A_48_0 = 0,
  FREQ_A_24_0 = 4,
  FREQ_A_16_0 = 16,
  FREQ_A_12_0 = 132,
  FREQ_A_08_0 = 144,
  FREQ_A_06_0 = 96,
  FREQ_A_03_2 = 24,
  FREQ_A_03_0 = 224,
  FREQ_A_01_6 = 152,
  FREQ_A_01_5 = 192,
  VTARG_1_8 = 14,
  VTARG_2_5 = 13,
  VTARG_3_3 = 11,
  VTARG_5_0 = 7,
}

local kProducts = "0F0F:1001 0F0F:1002 0F0F:2001 0F0F:2002"  -- as service/wfxusb.ini is shipped
local kMaxShown = 4096  -- items of one transfer in the tree, which has room for a million of a packet
local kMaxLevels = 64   -- cycles of a JTAG stream whose levels are written out
local kSwdReads = 0x04  -- in a request's header; bits 3 and 4 are the address
local kJtagCountMask = 0x3F  -- of the register that holds flags as well

-- The same with 32-bit integers as with the floating-point numbers that other versions of Lua have.
local function has(value, bit) return math.floor(value / bit) % 2 == 1 end

-- From the names that begin so to texts: kModeSwdSwv to SwdSwv.
local function texts(prefix, change)
  local named = {}
  for name, value in pairs(number) do
    local rest = name:match("^" .. prefix .. "(.+)$")
    if rest then named[value] = change and change(rest) or rest:upper() end
  end
  return named
end

local kModes = texts("kMode")
kModes[number.kModeExternal] = nil  -- a flag
kModes[number.kModeSwdSwv] = "SWD_SWV"
local kRegisters = {
  [number.kRegisterJtagCountLow] = "JTAG cycles, low",
  [number.kRegisterJtagCountHigh] = "JTAG cycles, high, and flags",
  [number.kRegisterI2cRestart] = "I2C restart position",
  [number.kRegisterTargetControl] = "target control",
  [number.kRegisterSwvControl] = "SWV control",
  [number.kRegisterSwvDivisor] = "SWV divisor",
  [number.kRegisterClockCode] = "JTAG clock code",
  [number.kRegisterClockState] = "JTAG clock state",
}
local function decimal(rest) return rest:gsub("^0", ""):gsub("_", ".") end
local kClocks = texts("FREQ_A_", function(rest) return decimal(rest) .. " MHz" end)
local kVoltages = texts("VTARG_", function(rest) return decimal(rest) .. " V" end)

local kRequests = {
  [number.kRequestSetMode] = "Set mode",
  [number.kRequestFpgaRegister] = "FPGA register",
  [number.kRequestStatus] = "Read status",
  [number.kRequestFpgaLength] = "Announce FPGA image",
  [number.kRequestFpgaFinish] = "Finish FPGA image",
  [number.kRequestFpgaPrepare] = "Prepare FPGA",
  [number.kRequestLed] = "Set LED",
  [number.kRequestIdentify] = "Identify",
  [number.kRequestTargetPowerOn] = "Target supply on",
  [number.kRequestTargetPowerOff] = "Target supply off",
  [number.kRequestTargetVoltage] = "Set target voltage",
  [number.kRequestSupply] = "Measure supply",
  [number.kRequestSetJtagClock] = "Set JTAG clock",
  [number.kRequestGetJtagClock] = "Get JTAG clock",
  [number.kRequestHardwareRevision] = "Read hardware revision",
  [number.kRequestArmPortAcquire] = "Arm port acquire",
  [number.kRequestBeginPortAcquire] = "Begin port acquire",
  [number.kRequestConnector] = "Select connector",
  [number.kRequestCommitSwv] = "Commit SWV set-up",
  [number.kRequestControllerRam] = "Write controller RAM",
}

local wirefox = Proto("wirefox", "Wirefox probe")
local fields = {}
local function field(key, kind, title, ...)
  fields[key] = ProtoField[kind]("wirefox." .. key, title, ...)
end
field("request", "uint8", "Request", base.HEX, kRequests)
field("request_in", "framenum", "Request in", base.NONE, frametype.REQUEST)
field("reply_in", "framenum", "Reply in", base.NONE, frametype.RESPONSE)
field("value", "uint16", "Value", base.HEX)
field("index", "uint16", "Index", base.HEX)
field("length", "uint16", "Length of the reply")
field("status", "uint8", "Status")
field("reply", "bytes", "Reply")
field("mode", "uint8", "Mode", base.DEC, kModes)
field("mode.external", "bool", "External", 16, nil, number.kModeExternal)
field("register", "uint8", "Register", base.HEX, kRegisters, number.kRegisterAddressMask)
field("register.write", "bool", "Write", 8, nil, number.kRegisterWrite)
field("register.value", "uint8", "Register value", base.HEX)
field("led", "uint8", "LED")
field("led.state", "uint8", "LED state")
field("identify", "uint16", "Identify pattern")
field("voltage", "uint8", "Target voltage", base.DEC, kVoltages)
field("clock", "uint8", "JTAG clock", base.DEC, kClocks)
field("supply", "uint16", "Supply measurement")
field("revision", "int8", "Hardware revision")
field("connector", "uint16", "Connector")
field("acquire.retries", "uint8", "Attempts")
field("acquire.xres", "bool", "Use the reset line", 16, nil, number.kPortAcquireUseXres)
field("swv.commit", "uint16", "Commit time")
field("swv.data", "bytes", "Trace data")
field("ram.address", "uint16", "RAM address", base.HEX)
field("ram.data", "bytes", "RAM data")
field("fpga.size", "uint32", "Image size")
field("fpga.data", "bytes", "Image data")
field("fpga.error", "uint8", "Load error")
field("probe.power_state", "uint8", "FPGA power state", base.DEC, nil, number.kFlagFpgaPowerState)
field("probe.software_valid", "bool", "Software valid", 8, nil, number.kFlagSoftwareValid)
field("probe.vtarg_fault", "bool", "Target voltage fault", 8, nil, number.kFlagVTargFault)
field("probe.vtarg_on", "bool", "Target supply on", 8, nil, number.kFlagVTargOn)
field("probe.vcc_1_3_on", "bool", "1.3 V supply on", 8, nil, number.kFlagVcc13On)
field("probe.mailbox_error", "bool", "FPGA mailbox error", 8, nil, number.kFlagFpgaMailboxError)
field("probe.vorn_i2c_error", "bool", "Vorn I2C error", 8, nil, number.kFlagVornI2cError)
field("probe.voltage_measured", "uint16", "Measured voltage")
field("probe.firmware", "uint16", "Firmware version", base.HEX)
field("probe.vorn", "uint16", "Vorn version", base.HEX)
field("probe.fpga", "uint8", "FPGA version")
field("probe.port", "uint8", "Active port")
field("probe.bootloader", "uint16", "Bootloader version", base.HEX)
field("jtag.cycles", "uint32", "Cycles")
field("jtag.loopback", "bool", "Loopback")
field("jtag.tms", "string", "TMS")
field("jtag.tdi", "string", "TDI")
field("jtag.tdo", "string", "TDO")
field("jtag.data", "bytes", "Stream")
field("swd.ap", "bool", "Access port", 8, nil, 0x02)
field("swd.read", "bool", "Read", 8, nil, kSwdReads)
field("swd.address", "uint8", "Address", base.HEX)
field("swd.data", "uint32", "Data", base.HEX)
field("swd.ack", "uint8", "Acknowledge", base.DEC, {[1] = "OK", [2] = "WAIT", [4] = "FAULT"}, 0x07)
field("i2c.address", "uint8", "Device address", base.HEX, nil, 0xFE)
field("i2c.read", "bool", "Read", 8, nil, number.kI2cReadBit)
field("i2c.data", "bytes", "Data")
field("i2c.status", "uint8", "Engine status")
field("serial.data", "bytes", "Serial data")
field("data", "bytes", "Data")
local all = {}
for _, each in pairs(fields) do table.insert(all, each) end
wirefox.fields = all

local refused = ProtoExpert.new("wirefox.refused", "The probe refused the request", expert.group.RESPONSE_CODE,
                                expert.severity.WARN)
local failed = ProtoExpert.new("wirefox.failed", "The transfer failed", expert.group.RESPONSE_CODE,
                               expert.severity.ERROR)
local short = ProtoExpert.new("wirefox.short", "Fewer bytes than there should be", expert.group.MALFORMED,
                              expert.severity.WARN)
local no_answer = ProtoExpert.new("wirefox.no_answer", "The target did not acknowledge", expert.group.RESPONSE_CODE,
                                  expert.severity.NOTE)
wirefox.experts = {refused, failed, short, no_answer}

local usb = {}
for key, name in pairs({bus = "usb.bus_id", address = "usb.device_address", endpoint = "usb.endpoint_address",
                        type = "usb.bmRequestType", transfer = "usb.transfer_type", request_in = "usb.request_in",
                        linux_status = "usb.urb_status", windows_status = "usb.usbd_status"}) do
  usb[key] = Field.new(name)
end
local function told(key)
  local found = usb[key]()
  return found and found.value
end

-- Of the capture: what is known of each device, by bus and address, and of each packet, by number. A packet is looked
-- at again in any order, so all that depends on what came before is kept with it when it is seen first.
local devices, packets = {}, {}
function wirefox.init() devices, packets = {}, {} end

-- One packet: its bytes, its branch of the tree, what is known of it, and its line in the list.
local Packet = {}
Packet.__index = Packet

-- Adds a field of `size` bytes and returns its value, a number where that is up to four; nil when the packet ends
-- before.
function Packet:add(key, at, size, tree)
  if at + size > self.bytes:len() then return nil end
  local range = self.bytes(at, size)
  local item = (tree or self.tree):add_le(fields[key], range)
  return size <= 4 and range:le_uint() or nil, item
end

function Packet:warn(what, text, item) (item or self.tree):add_proto_expert_info(what, text) end

function Packet:rest(at) return self.bytes:len() - at end

function Packet:add_rest(key, at)
  local size = self:rest(at)
  if size > 0 then self.tree:add(fields[key], self.bytes(at, size)) end
  return size
end

function Packet:missing(size, what)
  if self.bytes:reported_len() < size then self:warn(short, what) end
end

function Packet:generated(key, value) self.tree:add(fields[key], value):set_generated() end

local function hex(value, digits) return string.format("0x%0" .. digits .. "X", value) end
local function words(names, value) return names[value] or tostring(value) end
local function bytes_text(count) return count == 1 and "1 byte" or count .. " bytes" end

-- What the value of a request says: adds fields, and returns words for the list. It lies behind the request's number.
local function one(key, size, names)
  return function(packet)
    local value = packet:add(key, 1, size)
    return " " .. words(names or {}, value)
  end
end

local values = {
  [number.kRequestSetMode] = function(packet, value)
    packet:add("mode", 1, 1)
    packet:add("mode.external", 1, 2)
    return " " .. words(kModes, value % 0x100) .. (has(value, number.kModeExternal) and ", external" or "")
  end,
  [number.kRequestFpgaRegister] = function(packet, value)
    local address = packet:add("register", 1, 1) % (number.kRegisterAddressMask + 1)
    packet:add("register.write", 1, 1)
    local name = " " .. hex(address, 2) .. (kRegisters[address] and " (" .. kRegisters[address] .. ")" or "")
    if not has(value, number.kRegisterWrite) then return name end
    return name .. " := " .. hex(packet:add("register.value", 2, 1), 2)
  end,
  [number.kRequestFpgaLength] = function(packet, value, index)
    local size = (index * 0x10000 + value + 1) % 0x100000000  -- an empty image is announced as one less than none
    packet.tree:add(fields["fpga.size"], packet.bytes(1, 4), size)
    return " of " .. bytes_text(size)
  end,
  [number.kRequestLed] = function(packet)
    return " " .. packet:add("led", 2, 1) .. " to " .. packet:add("led.state", 1, 1)
  end,
  [number.kRequestIdentify] = one("identify", 2),
  [number.kRequestTargetVoltage] = one("voltage", 1, kVoltages),
  [number.kRequestSetJtagClock] = one("clock", 1, kClocks),
  [number.kRequestArmPortAcquire] = function(packet, value)
    packet:add("acquire.xres", 1, 2)
    return ", attempts " .. packet:add("acquire.retries", 1, 1) ..
           (has(value, number.kPortAcquireUseXres) and ", by the reset line" or "")
  end,
  [number.kRequestConnector] = one("connector", 2),
  [number.kRequestCommitSwv] = one("swv.commit", 2),
  [number.kRequestControllerRam] = function(packet, value)
    packet:add("ram.address", 1, 2)
    local size = packet:add_rest("ram.data", 7)
    if value ~= number.kControllerResetAddress or size ~= 1 then
      return " at " .. hex(value, 4) .. ", " .. bytes_text(size)
    end
    return packet.bytes(7, 1):uint() == 0 and ": let the processor run" or ": hold the processor"
  end,
}

-- What a reply brings beside its status, in words where it does.
local function reply_number(key, at, size, names)
  return function(packet)
    local value = packet:add(key, at, size)
    return value and " = " .. words(names or {}, value)
  end
end

local function status_record(packet)
  for _, key in ipairs({"power_state", "software_valid", "vtarg_fault", "vtarg_on", "vcc_1_3_on", "mailbox_error",
                        "vorn_i2c_error"}) do
    packet:add("probe." .. key, number.kStatusFlags, 1)
  end
  packet:add("voltage", number.kStatusVoltageSet, 1)
  packet:add("probe.voltage_measured", number.kStatusVoltageMeasured, 2)
  local mode = packet:add("mode", number.kStatusActiveInterface, 1)
  packet:add("probe.firmware", number.kStatusProbeVersion, 2)
  packet:add("probe.vorn", number.kStatusVornVersion, 2)
  packet:add("probe.fpga", number.kStatusFpgaVersion, 1)
  packet:add("probe.port", number.kStatusActivePort, 1)
  packet:add("probe.bootloader", number.kStatusBootloaderVersion, 2)
  if mode then packet:learn("mode", mode) end
  return mode and " = mode " .. words(kModes, mode)
end

local replies = {
  [number.kRequestSetMode] = function(packet, asked)
    packet:learn("mode", asked.value % 0x100)
  end,
  [number.kRequestFpgaRegister] = function(packet, asked)
    local address = asked.value % (number.kRegisterAddressMask + 1)
    local value = math.floor(asked.value / 0x100)
    local reads = not has(asked.value, number.kRegisterWrite)
    if reads then value = packet:add("register.value", number.kReplyRegisterValue, 1) end
    packet:learn(address, value)
    return reads and value and " = " .. hex(value, 2)
  end,
  [number.kRequestStatus] = status_record,
  [number.kRequestFpgaLength] = function(packet)
    packet:learn("loading", true)
  end,
  [number.kRequestSupply] = reply_number("supply", number.kReplySupply, 2),
  [number.kRequestGetJtagClock] = reply_number("clock", number.kReplyJtagClock, 1, kClocks),
  [number.kRequestHardwareRevision] = reply_number("revision", number.kReplyHardwareRevision, 1),
}

-- The control endpoint: a request, or what came of one.
local function control_request(packet)
  local request = packet:add("request", 0, 1)
  local value, index = packet:add("value", 1, 2), packet:add("index", 3, 2)
  local length = packet:add("length", 5, 2)
  local show = values[request]
  local text = kRequests[request] .. (show and show(packet, value, index) or "")
  if packet.first then packet.known.request, packet.known.value, packet.known.length = request, value, length end
  packet.known.text = text
  if packet.known.reply_in then packet:generated("reply_in", packet.known.reply_in) end
  return text
end

local function control_reply(packet)
  local asked = packets[told("request_in")]
  asked.reply_in = packet.number
  packet:generated("request_in", told("request_in"))
  packet:generated("request", asked.request)
  if packet:failed() then return asked.text .. ": failed" end
  if asked.request == number.kRequestControllerRam then return asked.text .. ": done" end
  packet:missing(asked.length, bytes_text(asked.length) .. " were asked for")
  local status, item = packet:add("status", number.kReplyStatus, 1)
  if not status then return asked.text .. ": an empty reply" end
  if asked.request == number.kRequestFpgaFinish then
    packet:learn("loading", false)
    packet:add("fpga.error", number.kReplyStatus + 1, 1)
  end
  if status ~= 0 then
    packet:warn(refused, "The probe refused the request, status " .. status, item)
    return asked.text .. ": refused, status " .. status
  end
  packet:add_rest("reply", number.kReplyStatus + 1)
  local bring = replies[asked.request]
  return asked.text .. (bring and bring(packet, asked) or ": done")
end

-- A JTAG stream. The registers hold the number of cycles still to come: all of them are of this transfer unless it is
-- one of several, which are recognised by their size, since their count runs into the flags.
local function jtag_chunk(device, size)
  local high = device[number.kRegisterJtagCountHigh] or 0
  local count = high % (kJtagCountMask + 1) * 0x100 + (device[number.kRegisterJtagCountLow] or 0)
  local fits = 2 * math.ceil(count / (2 * number.kJtagCyclesPerByte)) == size
  return {cycles = fits and count or size * number.kJtagCyclesPerByte,
          loopback = fits and has(high, number.kJtagLoopback)}
end

-- Levels in the order of time: the lowest bit of each group is the first cycle.
local function levels(bytes, cycles, per_byte, shift)
  local text = {}
  for cycle = 0, math.min(cycles, kMaxLevels, bytes:len() * per_byte) - 1 do
    local byte = bytes(math.floor(cycle / per_byte), 1):uint()
    text[#text + 1] = has(byte, 2 ^ (cycle % per_byte + shift)) and "1" or "0"
  end
  return table.concat(text) .. (cycles > #text and "..." or "")
end

local function jtag_out(packet, known)
  local bytes = packet.bytes
  packet:generated("jtag.cycles", known.cycles)
  packet:generated("jtag.loopback", known.loopback)
  packet.tree:add(fields["jtag.tms"], bytes(), levels(bytes, known.cycles, number.kJtagCyclesPerByte, 4))
  packet.tree:add(fields["jtag.tdi"], bytes(), levels(bytes, known.cycles, number.kJtagCyclesPerByte, 0))
  packet:add_rest("jtag.data", 0)
  return "JTAG, " .. known.cycles .. " cycles" .. (known.loopback and ", loopback" or "")
end

local function jtag_in(packet, asked)
  local tdo = levels(packet.bytes, asked.cycles, 8, 0)
  packet:missing(math.ceil(asked.cycles / 8), "TDO of " .. asked.cycles .. " cycles was expected")
  packet.tree:add(fields["jtag.tdo"], packet.bytes(), tdo)
  packet:add_rest("jtag.data", 0)
  return asked.text .. ": TDO " .. tdo
end

-- SWD requests: a header each, and the word of one that writes. The reply has an acknowledge for each, behind the word
-- of one that reads.
local function swd_requests(bytes)
  local list, at = {}, 0
  while at < bytes:len() and #list < kMaxShown do
    local header = bytes(at, 1):uint()
    local each = {at = at, reads = has(header, kSwdReads), size = has(header, kSwdReads) and 1 or 5}
    each.text = (each.reads and "read " or "write ") .. (has(header, 2) and "AP " or "DP ") ..
                hex(math.floor(header / 8) % 4 * 4, 1)
    list[#list + 1] = each
    at = at + each.size
  end
  return list
end

-- "SWD read DP 0x0, read AP 0xC and 3 more"
local function some(what, list)
  local shown = {}
  for i = 1, math.min(#list, 4) do shown[i] = list[i] end
  return what .. table.concat(shown, ", ") .. (#list > #shown and " and " .. #list - #shown .. " more" or "")
end

local function swd_branch(packet, at, size, text)
  return packet.tree:add(packet.bytes(at, math.min(size, packet:rest(at))), text)
end

local function swd_out(packet, known)
  local shown = {}
  for i, each in ipairs(known.swd) do
    local branch = swd_branch(packet, each.at, each.size, each.text)
    packet:add("swd.ap", each.at, 1, branch)
    packet:add("swd.read", each.at, 1, branch)
    branch:add(fields["swd.address"], packet.bytes(each.at, 1), tonumber(each.text:match("0x.")))
    local word = not each.reads and packet:add("swd.data", each.at + 1, 4, branch)
    if not each.reads and not word then packet:warn(short, "The word to write is not all there", branch) end
    shown[i] = each.text .. (word and " := " .. hex(word, 8) or "")
  end
  return some("SWD ", shown)
end

local kAcknowledges = {[1] = "OK", [2] = "WAIT", [4] = "FAULT"}
local function swd_in(packet, asked)
  local shown, at = {}, 0
  for i, each in ipairs(asked.swd) do
    local size = each.reads and 5 or 1
    if packet:rest(at) < size then
      packet:warn(short, "The reply ends before request " .. i .. " of " .. #asked.swd)
      break
    end
    local branch = swd_branch(packet, at, size, each.text)
    local word = each.reads and packet:add("swd.data", at, 4, branch)
    local ack, item = packet:add("swd.ack", at + size - 1, 1, branch)
    ack = ack % 8
    if ack ~= 1 then packet:warn(no_answer, each.text .. ": " .. (kAcknowledges[ack] or "no answer"), item) end
    shown[i] = each.text .. (word and " = " .. hex(word, 8) or "") .. " " .. (kAcknowledges[ack] or "no answer")
    at = at + size
  end
  return some("SWD ", shown)
end

-- The I2C engine's packet: an address, what is written or as many bytes as are read, and the same again from the
-- restart position on. The reply has the engine's status, and then those bytes.
local function i2c_phases(packet, restart)
  local size = packet.bytes:len()
  local second = has(restart, number.kI2cRestart) and restart % number.kI2cRestart + 1 or size
  local phases = {{at = 0, size = math.min(second, size)}}
  if second < size then phases[2] = {at = second, size = size - second} end
  for _, each in ipairs(phases) do
    local address = packet.bytes(each.at, 1):uint()
    each.reads = has(address, number.kI2cReadBit)
    each.text = (each.reads and "read " or "write ") .. bytes_text(each.size - 1) ..
                (each.reads and " from " or " to ") .. hex(math.floor(address / 2), 2)
  end
  return phases
end

local function i2c_out(packet, known)
  local shown = {}
  for i, each in ipairs(known.i2c) do
    packet:add("i2c.address", each.at, 1)
    packet:add("i2c.read", each.at, 1)
    if not each.reads and each.size > 1 then packet:add("i2c.data", each.at + 1, each.size - 1) end
    shown[i] = each.text
  end
  return some("I2C ", shown)
end

local function i2c_in(packet, asked)
  local status, item = packet:add("i2c.status", 0, 1)
  for _, each in ipairs(asked.i2c) do
    if each.reads and each.size > 1 then packet:add("i2c.data", each.at + 1, each.size - 1) end
  end
  if status ~= 0 then return asked.text .. ": status " .. status end
  packet:warn(no_answer, "No device acknowledged", item)
  return asked.text .. ": not acknowledged"
end

-- What goes through the stream endpoints depends on the mode; before a mode was seen it is only bytes.
local function plain(title, key)
  return function(packet) return title .. ", " .. bytes_text(packet:add_rest(key, 0)) end
end
local kStreams = {
  image = {out = plain("FPGA image", "fpga.data"), into = plain("Stream", "data")},
  jtag = {out = jtag_out, into = jtag_in},
  swd = {out = swd_out, into = swd_in},
  i2c = {out = i2c_out, into = i2c_in},
  other = {out = plain("Stream", "data"), into = plain("Stream", "data")},
}

local function stream_of(packet)
  local device = packet.device
  if device.loading then return {kind = "image"} end
  if device.mode == number.kModeJtag then
    local known = jtag_chunk(device, packet.bytes:reported_len())
    known.kind = "jtag"
    return known
  end
  if device.mode == number.kModeI2c then
    return {kind = "i2c", i2c = i2c_phases(packet, device[number.kRegisterI2cRestart] or 0)}
  end
  if device.mode and has(device.mode, number.kInterfaceSwdBit) then
    return {kind = "swd", swd = swd_requests(packet.bytes)}
  end
  return {kind = "other"}
end

local function stream_out(packet)
  if packet.first then
    packet.known = stream_of(packet)
    packets[packet.number] = packet.known
    packet.device.stream = packet.number
  end
  local known = packet.known
  if known.reply_in then packet:generated("reply_in", known.reply_in) end
  known.text = kStreams[known.kind].out(packet, known)
  return known.text
end

local function stream_in(packet)
  if packet.first then
    packet.known.request_in = packet.device.stream
    packet.device.stream = nil
  end
  packet:failed()
  local asked = packets[packet.known.request_in]
  if not asked then return kStreams.other.into(packet) end
  asked.reply_in = packet.number
  packet:generated("request_in", packet.known.request_in)
  return kStreams[asked.kind].into(packet, asked)
end

local kEndpoints = {
  [number.kEndpointStreamOut] = stream_out,
  [number.kEndpointStreamIn] = stream_in,
  [number.kEndpointSerialOut] = plain("Serial to target", "serial.data"),
  [number.kEndpointSerialIn] = plain("Serial from target", "serial.data"),
  [number.kEndpointSwvIn] = plain("SWV", "swv.data"),
}

-- What is to be kept of the device for the packets behind this one.
function Packet:learn(key, value)
  if self.first then self.device[key] = value end
end

function Packet:failed()
  local status = told("linux_status") or told("windows_status") or 0
  if status ~= 0 then self:warn(failed, "The transfer failed, status " .. (status < 0 and status or hex(status, 8))) end
  return status ~= 0
end

-- Whether a transfer on the control endpoint is one of ours: a request, or what came of one. The status stage that
-- some captures have by itself says nothing more.
local kSetupSize = 7  -- without bmRequestType
local kVendorIn, kVendorOut = 0xC0, 0x40
local function is_ours(bytes, pinfo)
  local type = told("type")
  if type then
    return (type == kVendorIn or type == kVendorOut) and bytes:len() >= kSetupSize and kRequests[bytes(0, 1):uint()]
  end
  local asked = packets[told("request_in")]
  return asked and asked.request and (bytes:len() > 0 or not asked.reply_in or asked.reply_in == pinfo.number)
end

local function device_key() return told("bus") * 0x10000 + told("address") end

local function show(bytes, pinfo, tree)
  local endpoint = told("endpoint")
  local control = endpoint % 0x80 == 0
  if control and not is_ours(bytes, pinfo) then return false end
  -- A device may be recognised only behind this packet.
  if pinfo.visited and not packets[pinfo.number] then return false end
  local key = device_key()
  devices[key] = devices[key] or {}
  packets[pinfo.number] = packets[pinfo.number] or {}
  local packet = setmetatable({bytes = bytes, number = pinfo.number, first = not pinfo.visited,
                               device = devices[key], known = packets[pinfo.number]}, Packet)
  packet.tree = tree:add(wirefox, bytes())
  local way = kEndpoints[endpoint] or plain("Endpoint " .. hex(endpoint, 2), "data")
  if control then way = told("type") and control_request or control_reply end
  local text = way(packet)
  pinfo.cols.protocol = "Wirefox"
  pinfo.cols.info = text
  packet.tree:append_text(": " .. text)
  return true
end

function wirefox.dissector(bytes, pinfo, tree)
  if bytes:len() == 0 then return 0 end  -- goes on to the heuristics
  return show(bytes, pinfo, tree) and bytes:len() or 0
end

-- Requests that hardly another device is asked, by value and length.
local function is_typical(bytes)
  if told("type") ~= kVendorIn or bytes:len() ~= kSetupSize or bytes(3, 2):le_uint() ~= 0 then return false end
  local request, value, length = bytes(0, 1):uint(), bytes(1, 2):le_uint(), bytes(5, 2):le_uint()
  if request == number.kRequestSetMode then
    return length == number.kSetModeLength and value < 2 * number.kModeExternal and kModes[value % 0x100]
  end
  if request == number.kRequestStatus then return length == number.kStatusReplySize and value == 0 end
  if request == number.kRequestHardwareRevision then
    return length == number.kHardwareRevisionLength and value == number.kHardwareRevisionValue
  end
  return false
end

wirefox:register_heuristic("usb.control", function(bytes, pinfo, tree)
  return (devices[device_key()] or is_typical(bytes)) and show(bytes, pinfo, tree) or false
end)
wirefox:register_heuristic("usb.bulk", function(bytes, pinfo, tree)
  return devices[device_key()] and bytes:len() > 0 and show(bytes, pinfo, tree) or false
end)

local by_product = DissectorTable.get("usb.product")
by_product:add_for_decode_as(wirefox)
DissectorTable.get("usb.device"):add_for_decode_as(wirefox)

local listed = {}
local function list_products(text)
  for _, product in ipairs(listed) do by_product:remove(product, wirefox) end
  listed = {}
  for vendor, product in text:gmatch("(%x%x%x%x):(%x%x%x%x)") do
    table.insert(listed, tonumber(vendor .. product, 16))
    by_product:add(listed[#listed], wirefox)
  end
end
wirefox.prefs.products = Pref.string("USB ids", kProducts, "Devices to take for probes: VVVV:PPPP, one after another")
function wirefox.prefs_changed() list_products(wirefox.prefs.products) end
list_products(kProducts)
