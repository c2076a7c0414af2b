// A session as Wireshark's dissector of the probes shows it, whichever program captured it.
#include <regex>

#include "tests/system/harness.h"

namespace system_test {
namespace {

// Control replies name their requests; what carries data out is not answered, or by another line.
constexpr char kShown[] =
    "(wirefox.request_in || wirefox.serial.data || wirefox.swv.data || wirefox.swd.data) && "
    "!(wirefox.request in {0x44, 0x56, 0x58}) && !(wirefox.request == 0x43 && "
    "!wirefox.register.value)";

constexpr char kLoading[] = R"(Write controller RAM: hold the processor: done
Write controller RAM at 0x0000, 2048 bytes: done
Write controller RAM at 0x0800, 2048 bytes: done
Write controller RAM at 0x1000, 921 bytes: done
Write controller RAM at 0x1B00, 1 byte: done
Write controller RAM at 0x2000, 2048 bytes: done
Write controller RAM at 0x2800, 2048 bytes: done
Write controller RAM at 0x3800, 2048 bytes: done
Write controller RAM at 0xFFF0, 16 bytes: done
Write controller RAM: let the processor run: done
Prepare FPGA: done
Announce FPGA image of 48999 bytes: done
Finish FPGA image: done
Prepare FPGA: done
Announce FPGA image of 48999 bytes: done
Finish FPGA image: done
)";

constexpr char kSession[] = R"(Set mode IDLE: done
Set mode JTAG, external: done
Select connector 0: done
Set mode IDLE: done
Set mode JTAG, external: done
Select connector 0: done
JTAG, 120 cycles: TDO 1111111111111111111111111111111111111111111111111111111111111111...
JTAG, 16 cycles: TDO 1111111111111111
JTAG, 3200 cycles: TDO 1111111010000110001000010110000011101110001010000000010111011000...
JTAG, 3200 cycles: TDO 1111111111111111111111111111111111111111111111111111111111111111...
JTAG, 3200 cycles: TDO 0000000000000000000000000000000000000000000000000000000000000000...
JTAG, 16 cycles: TDO 1111111111111111
JTAG, 64 cycles: TDO 1111111010000110001000010110000011101110001010000000010111011000
JTAG, 80 cycles: TDO 0111111111111111010000110001000010110000011101110001010000000010...
Set JTAG clock 12.0 MHz: done
FPGA register 0x3A (JTAG clock state) = 0x01
FPGA register 0x3A (JTAG clock state) = 0x01
FPGA register 0x3A (JTAG clock state) = 0x03
Set mode IDLE: done
Set mode JTAG, external: done
Select connector 0: done
FPGA register 0x11 (target control) = 0xC0
Set LED 2 to 1: refused, status 3
Identify 1: failed
Set mode IDLE: done
Set mode I2C, external: done
FPGA register 0x08 (I2C restart position) = 0x00
Set target voltage 3.3 V: done
Target supply on: done
I2C write 5 bytes to 0x50: status 1
I2C write 1 byte to 0x50, read 4 bytes from 0x50: status 1
I2C read 1 byte from 0x51: not acknowledged
Set mode IDLE: done
Set mode VSER: done
Serial to target, 5 bytes
Serial from target, 5 bytes
Set mode IDLE: done
Set mode SWD, external: done
Select connector 0: done
Set mode IDLE: done
Set mode JTAG, external: done
Select connector 0: done
FPGA register 0x11 (target control) = 0xC0
JTAG, 120 cycles: TDO 1111111111111111111111111111111111111111111111111111111111111111...
Set mode IDLE: done
Set mode SWD, external: done
Select connector 0: done
SWD read DP 0x0 = 0x2BA01477 OK
SWD write DP 0x0 := 0x0000001E
SWD write DP 0x0 OK
SWD write DP 0x4 := 0x50000000
SWD write DP 0x4 OK
SWD read DP 0x4 = 0xF0000000 OK
SWD write DP 0x8 := 0x00000000, read AP 0x0, read DP 0xC
SWD write DP 0x8 OK, read AP 0x0 = 0x00000000 OK, read DP 0xC = 0x23000042 OK
SWD write DP 0x8 := 0x00000000, write AP 0x0 := 0x23000052, read DP 0xC
SWD write DP 0x8 OK, write AP 0x0 OK, read DP 0xC = 0x23000042 OK
SWD write AP 0x4 := 0x20000000, write AP 0xC := 0x600DCAFE, read DP 0xC
SWD write AP 0x4 OK, write AP 0xC OK, read DP 0xC = 0x23000042 OK
Arm port acquire, attempts 5, by the reset line: done
SWD write AP 0x4 := 0x40090000, write AP 0xC := 0x00000001, read DP 0x0
Begin port acquire: done
SWD write AP 0x4 OK, write AP 0xC OK, read DP 0x0 = 0x2BA01477 OK
Set mode IDLE: done
Set mode SWD_SWV, external: done
Select connector 0: done
FPGA register 0x20 (SWV control) = 0x00
Commit SWV set-up 0: done
SWV, 3 bytes
)";

// Packets of every kind, and all their fields.
constexpr char kSome[] =
    "wirefox.ram.data == 01 || (wirefox.fpga.size && usb.device_address == 2) || wirefox.led || "
    "(wirefox.probe.port && wirefox.mode == 0 && usb.device_address == 2) || wirefox.supply || "
    "wirefox.status == 3 || wirefox.identify || wirefox.register.value == 0xf0 || "
    "(wirefox.voltage && wirefox.value) || (wirefox.mode == 16 && wirefox.value) || "
    "wirefox.acquire.retries || wirefox.jtag.cycles == 80 || "
    "(wirefox.jtag.tdo && usb.data_len == 10) || wirefox.swd.data == 0x600dcafe || "
    "wirefox.swd.data == 0xf0000000 || wirefox.i2c.data || wirefox.clock == 132 || "
    "wirefox.swv.commit || wirefox.swv.data || (wirefox.serial.data && usb.endpoint_address == 1)";
constexpr char kFields[] =
    R"({index:0x0000,length:1,ram.address:0xe600,ram.data:01,request:0xa0,value:0xe600}
{fpga.size:48999,index:0x0000,length:16,request:0x45,value:0xbf66}
{mode:0,probe.bootloader:0x0100,probe.firmware:0x0203,probe.fpga:17,probe.mailbox_error:0,probe.port:0,probe.power_state:3,probe.software_valid:1,probe.vcc_1_3_on:1,probe.voltage_measured:330,probe.vorn:0x0104,probe.vorn_i2c_error:0,probe.vtarg_fault:0,probe.vtarg_on:0,reply:27:0b:4a:01:00:03:02:04:01:11:00:00:01,request:0x44,status:0,voltage:11}
{jtag.cycles:80,jtag.data:f0:50:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:30:00,jtag.loopback:0,jtag.tdi:0000000000000000000000000000000000000000000000000000000000000000...,jtag.tms:1111101000000000000000000000000000000000000000000000000000000000...}
{jtag.data:fe:ff:c2:08:0d:ee:28:40:37:fe,jtag.tdo:0111111111111111010000110001000010110000011101110001010000000010...}
{clock:132,index:0x0000,length:2,request:0x57,value:0x0084}
{index:0x0000,length:16,register:0x11,register.value:0xf0,register.write:1,request:0x43,value:0xf091}
{index:0x0000,led:2,led.state:1,length:2,request:0x48,value:0x0201}
{request:0x48,status:3,status_tree:{_ws.expert:{_ws.expert.group:50331648,_ws.expert.message:The probe refused the request, status 3,_ws.expert.severity:6291456,refused:}}}
{identify:1,index:0x0000,length:2,request:0x49,value:0x0001}
{index:0x0000,length:2,request:0x55,value:0x000b,voltage:11}
{reply:00:4a:01:00:00:00:00:00:00:00:00:00:00:00,request:0x56,status:0,supply:330}
{i2c.address:0x50,i2c.data:10:de:ad:be:ef,i2c.read:0}
{i2c.address:[0x50,0x50],i2c.data:10,i2c.read:[0,1]}
{i2c.data:de:ad:be:ef,i2c.status:1}
{i2c.data:00,i2c.status:0,i2c.status_tree:{_ws.expert:{_ws.expert.group:50331648,_ws.expert.message:No device acknowledged,_ws.expert.severity:4194304,no_answer:}}}
{index:0x0000,length:3,mode:16,mode.external:0,request:0x41,value:0x0010}
{serial.data:68:65:6c:6c:6f}
{_ws.lua.text:{swd.ack:1,swd.data:0xf0000000}}
{_ws.lua.text:[{swd.address:0x04,swd.ap:1,swd.data:0x20000000,swd.read:0},{swd.address:0x0c,swd.ap:1,swd.data:0x600dcafe,swd.read:0},{swd.address:0x0c,swd.ap:0,swd.read:1}]}
{acquire.retries:5,acquire.xres:1,index:0x0000,length:10,request:0x5f,value:0x0105}
{index:0x0000,length:2,request:0x67,swv.commit:0,value:0x0000}
{swv.data:c0:ff:ee}
)";

class Dissector : public OnBench {
 protected:
  // Every mode, and requests that are refused and stalled.
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(OnBench::SetUp());
    RunScript(
        "mode WFX0001 JTAG\ntargets WFX0001\njtag WFX0001 dr 64\nclock WFX0001 FREQ_A_12_0\n"
        "xres WFX0001 on\n");
    Ctl({"fault", "WFX0001", "error-status", "--request", "0x48", "--value", "3"});
    Ctl({"fault", "WFX0001", "stall", "--request", "0x49"});
    RunScript(
        "-led WFX0001 LED_3_GREEN FLASH1\n-identify WFX0001 CHASER\nmode WFX0002 I2C\n"
        "vtarg WFX0002 3.3 --supply on\ni2c WFX0002 write 0x50 10 de ad be ef\n"
        "i2c WFX0002 read 0x50 4 --after 10\n-i2c WFX0002 read 0x51 1\n"
        "mode WFX0002 VSER_INT\nbulk WFX0002 EP1 write 68656c6c6f\nbulk WFX0002 EP1 read 5\n"
        "mode WFX0002 SWD\ntargets WFX0002\nswd WFX0002 write-mem 0x20000000 0x600DCAFE\n"
        "acquire-port WFX0002 --retries 5 --test-key 0x40090000:1\n"
        "mode WFX0002 SWD_SWV\nswv-setup WFX0002 2000000\n");
    Ctl({"swv", "WFX0002", "c0ffee"});
    Json({"swv", "WFX0002"});
    holder.reset();
  }

  std::string Shown(const std::string& filter, const Words& fields, const Words& options) {
    Words all = {"-X", "lua_script:" WIREFOX_SOURCE_DIR "/tools/wireshark/wirefox.lua"};
    all.insert(all.end(), options.begin(), options.end());
    return Capture(filter, fields, all);
  }

  // Another file made of the capture.
  std::string Made(Words command, const Words& more = {}) {
    const std::string path = (home() / "made.pcap").string();
    command.insert(command.end(), {capture_path(), path});
    command.insert(command.end(), more.begin(), more.end());
    const Finished finished = Run(command);
    EXPECT_EQ(finished.exit_status, 0) << finished.err;
    return path;
  }
};

TEST_F(Dissector, TellsASessionWhoeverCapturedIt) {
  const auto told = [&](const Words& options) { return Shown(kShown, {"_ws.col.Info"}, options); };
  EXPECT_EQ(told({}), std::string(kLoading) + kSession);
  EXPECT_EQ(told({"-2"}), std::string(kLoading) + kSession);
  for (const char* format : {"usbmon", "usbpcap"}) {
    EXPECT_EQ(told({"-r", Made({WIREFOX_SOURCE_DIR "/tests/dissector/recode", format})}),
              std::string(kLoading) + kSession);
  }
  // A capture that begins when the probes are there already shows what they are by what is asked.
  const std::string before = Capture("usb.setup.bRequest == 0x41", {"frame.number"});
  const int first = std::stoi(before);
  const Words cut = {"-r", Made({"/usr/bin/editcap"}, {"1-" + std::to_string(first - 1)})};
  EXPECT_EQ(told(cut), kSession);
  // Requests and replies name each other.
  EXPECT_EQ(
      Shown("wirefox.reply_in && wirefox.request", {"frame.number", "wirefox.reply_in"}, {"-2"}),
      Shown("wirefox.request_in && wirefox.request", {"wirefox.request_in", "frame.number"}, {}));
  std::string fields;
  for (auto& packet : nlohmann::json::parse(
           Shown(kSome, {}, {"-T", "json", "-J", "wirefox", "--no-duplicate-keys"}))) {
    auto& shown = packet["_source"]["layers"]["wirefox"];
    shown.erase("wirefox.request_in");
    fields += std::regex_replace(shown.dump(), std::regex("\"(wirefox[.])?"), "") + '\n';
  }
  EXPECT_EQ(fields, kFields);
  // Neither damage nor a cut makes it stumble.
  const std::pair<const char*, const char*> damages[] = {
      {"-E", "0.01"}, {"-E", "0.001"}, {"-E", "0.0001"}, {"-s", "66"}, {"-s", "73"}, {"-s", "84"}};
  for (const auto& [kind, amount] : damages) {
    const std::string damaged = Made({"/usr/bin/editcap", "--seed", "7", kind, amount});
    const std::string text = Shown("frame", {}, {"-V", "-2", "-r", damaged});
    EXPECT_EQ(text.find("wirefox.lua"), std::string::npos) << kind << amount;
  }
}

}  // namespace
}  // namespace system_test
