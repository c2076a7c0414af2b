#include <algorithm>
#include <array>
#include <functional>
#include <string_view>

#include "device/evk_device.h"
#include "device/failure_log.h"
#include "device/wfx_device.h"
#include "tests/unit/device/probe_test.h"

namespace {

// The line with '*' for every run of 16 upper-case hexadecimal digits.
std::string WithoutAddresses(std::string_view line) {
  constexpr std::size_t kDigits = 16;
  std::string text;
  while (!line.empty()) {
    const std::size_t run = std::min(line.find_first_not_of("0123456789ABCDEF"), line.size());
    text += run == kDigits ? "*" : line.substr(0, run);
    line.remove_prefix(run);
    if (line.empty()) break;
    text += line.front();
    line.remove_prefix(1);
  }
  return text;
}

std::string Xfer(const std::string& code, const std::string& value, int length) {
  return "[CTzDevice::XferData]Direction=1, ReqCode=" + code + ", Value=" + value +
         ", Index=0000, Bfr=*, Len=" + std::to_string(length) + "\n";
}

std::string Missing(int endpoint) {
  return "[CTzDevice::GetEndPoint]Endpoint ep=" + std::to_string(endpoint) + " does not exist\n";
}

std::string Failed(const std::string& source, int status) {
  return "[" + source + "]Error " + std::to_string(status) + " occured.\n";
}

// What every operation writes, shown on objects whose probe cannot be opened: each operation logs
// its entry and how it fails. Addresses show as '*'.
class OperationLogTest : public ProbeTest {
 protected:
  OperationLogTest() { bus_.SetDevices({}); }

  // One text, so that a difference shows with its surroundings.
  std::string TakeText() {
    std::string text;
    for (const std::string& line : log_.Take()) text.append(WithoutAddresses(line)).append("\n");
    return text;
  }

  template <typename Device>
  struct Operation {
    std::uint32_t status;
    std::function<std::uint32_t(Device&)> call;
    std::string lines;
  };

  template <typename Device>
  void ExpectLines(const std::vector<Operation<Device>>& operations) {
    Device device(0, false);
    TakeText();
    for (const auto& [status, call, lines] : operations) {
      EXPECT_EQ(call(device), status);
      EXPECT_EQ(TakeText(), lines);
    }
  }

  std::array<std::uint8_t, 8> bytes_{};
  std::uint32_t length_ = 7;
};

TEST_F(OperationLogTest, CommandsLogTheirArgumentsTheirRequestAndTheirFailure) {
  ExpectLines<CTzDevice>({
      {6, [](CTzDevice& d) { return d.SetMode(4, true); },
       "[CTzDevice::SetMode()]mode=4 external=1\n" + Xfer("41", "0000", 3) +
           Failed("CTzDevice::SetMode()", 6)},
      {6, [](CTzDevice& d) { return d.LedState(2, 1); },
       "[CTzDevice::LedState()]led_num=2 state=1\n" + Xfer("48", "0201", 2) +
           Failed("CTzDevice::LedState", 6)},
      {6, [](CTzDevice& d) { return d.Identify(3); },
       "[CTzDevice::Identify()]state=3\n" + Xfer("49", "0003", 2) +
           Failed("CTzDevice::Identify", 6)},
      {6, [](CTzDevice& d) { return d.TargetPowerOn(true); },
       "[CTzDevice::TargetPowerOn()]on=1\n" + Xfer("51", "0001", 2) +
           Failed("CTzDevice::TargetPowerOn", 6)},
      {6, [](CTzDevice& d) { return d.SetVTargVal(11); },
       "[CTzDevice::SetVTargVal()]val=11\n" + Xfer("55", "000B", 2) +
           Failed("CTzDevice::SetVTargVal", 6)},
      {6, [](CTzDevice& d) { return d.JTAG_SetClock(253); },
       "[CTzDevice::JTAG_SetClock()]mhz=253\n" + Xfer("57", "00FD", 2) +
           Failed("CTzDevice::JTAG_SetClock", 6)},
      {6, [](CTzDevice& d) { return d.SetTimeout(0x86, 5); },
       "[CTzDevice::SetTimeout()]endpt=134 timeout=5\n" + Missing(134) +
           Failed("CTzDevice::SetTimeout", 6)},
      {6, [](CTzDevice& d) { return d.SetActiveIOConnector(0xFFFF); },
       "[CTzDevice::SetActiveIOConnector()]select=65535\n[CTzDevice::GetDeviceStatus()]pStatus\n" +
           Xfer("44", "0000", 14) + Failed("CTzDevice::GetDeviceStatus", 6) +
           Failed("CTzDevice::SetActiveIOConnector", 6)},
      {1, [](CTzDevice& d) { return d.ResetTarget(false); },
       "[CTzDevice::ResetTarget()]xres_active=0\n"
       "[CTzDevice::ReadFPGAReg]reg_address=11, reg_value=00 \n" +
           Xfer("43", "0011", 8) + Failed("CTzDevice::ReadFPGAReg", 1) +
           Failed("CTzDevice::ResetTarget", 1)},
      // What the variable held before.
      {1, [&](CTzDevice& d) { return d.ReadFPGAReg(0x3A, &(bytes_[0] = 0xC3)); },
       "[CTzDevice::ReadFPGAReg]reg_address=3A, reg_value=C3 \n" + Xfer("43", "003A", 8) +
           Failed("CTzDevice::ReadFPGAReg", 1)},
      {1, [](CTzDevice& d) { return d.WriteFPGAReg(0x91, 0xAB); },
       "[CTzDevice::WriteFPGAReg]reg_address=91, reg_value=AB \n" + Xfer("43", "AB91", 16) +
           Failed("CTzDevice::WriteFPGAReg", 1)},
      {5, [](CTzDevice& d) { return d.SetupSWV(0, 1, 65535); },
       "[CTzDevice::SetupSWV()]rate=0, mode=1, commit=65535\n" + Failed("CTzDevice::SetupSWV", 5)},
      {6, [](CTzDevice& d) { return d.SetupPortAcquire(300, true); },
       "[CTzDevice::SetupPortAcquire()]retries=300 usexres=1\n" + Xfer("5F", "012C", 10) +
           Failed("CTzDevice::SetupPortAcquire", 6)},
      {6, [](CTzDevice& d) { return d.BeginPortAcquire(); },
       "[CTzDevice::BeginPortAcquire()]\n" + Xfer("60", "0000", 10) +
           Failed("CTzDevice::BeginPortAcquire", 6)},
      {6, [](CTzDevice& d) { return d.JTAG_Reset(); },
       "[CTzDevice::JTAG_Reset()]\n[CTzDevice::SetMode()]mode=1 external=1\n" +
           Xfer("41", "0000", 3) + Failed("CTzDevice::SetMode()", 6) +
           Failed("CTzDevice::JTAG_Reset", 6)},
      {6, [](CTzDevice& d) { return d.SWD_CReset(); },
       "[CTzDevice::SWD_CReset()]\n[CTzDevice::GetDeviceStatus()]pStatus\n" +
           Xfer("44", "0000", 14) + Failed("CTzDevice::GetDeviceStatus", 6) +
           Failed("CTzDevice::SWD_CReset", 6)},
  });
}

TEST_F(OperationLogTest, StreamsLogTheirArgumentsAndTheMissingEndpoint) {
  std::uint8_t* const data = bytes_.data();
  std::vector<std::uint8_t> trace(3);
  ExpectLines<CTzDevice>({
      {6, [&](CTzDevice& d) { return d.JTAG_BufferedIo(9, data, true, data, true); },
       "[CTzDevice::JTAG_BufferedIo]bitcount=9, tmstdi=*, want_read=1, tdo=*, loopback=1\n" +
           Missing(2) + Missing(132) + Failed("CTzDevice::JTAG_BufferedIo", 6)},
      {6, [&](CTzDevice& d) { return d.SWDXfer(1, data, length_, data); },
       "[CTzDevice::SWDXfer]num_tx_bytes=1, reqdata=*, num_rx_bytes=7, resultdata=*\n" +
           Missing(2) + Missing(132) + Failed("CTzDevice::SWDXfer", 6)},
      {6, [&](CTzDevice& d) { return d.StageSWDCommand(2, data); },
       "[CTzDevice::StageSWDCommand()]num_tx_bytes=2 reqdata=\n" + Missing(2) +
           Failed("CTzDevice::StageSWDCommand", 6)},
      {6, [&](CTzDevice& d) { return d.RetrievePortAcquireResponse(length_, data); },
       "[CTzDevice::RetrievePortAcquireResponse()]num_rx_bytes=7 respdata=" +
           std::to_string(AddressAsNumber(data)) + "\n" + Missing(132) +
           Failed("CTzDevice::RetrievePortAcquireResponse", 6)},
      // A missing endpoint is in the log once, without a line of the operation's own.
      {6, [&](CTzDevice& d) { return d.BulkXfer(0x02, data, length_, 0); },
       "[CTzDevice::BulkXfer]endpt=2, bfr=*, len=7\n" + Missing(2)},
      {6, [&](CTzDevice& d) { return d.GetSWVData(trace); },
       "[CTzDevice::GetSWVData()]data=3\n[CTzDevice::BulkXfer]endpt=134, bfr=*, len=512\n" +
           Missing(134) + Failed("CTzDevice::GetSWVData", 6)},
  });
  EXPECT_EQ(trace.size(), 3U);
}

TEST_F(OperationLogTest, SomeLinesShowAddressesAsNumbersAndNumbersAsAddresses) {
  CTzEvkDevice device(0, false);
  log_.Take();
  EXPECT_EQ(device.I2CXfer(3, nullptr, 2, length_, bytes_.data()), 5U);
  EXPECT_EQ(log_.Take(),
            (std::vector<std::string>{
                "[CTzDevice::I2CXfer]num_tx_bytes=3, reqdata=0000000000000000, restartPos=2, "
                "num_rx_bytes=0000000000000007, resultdata=" +
                    std::to_string(AddressAsNumber(bytes_.data())),
                "[CTzDevice::I2CXfer]Error 5 occured."}));
  std::uint32_t code = 0;
  EXPECT_EQ(device.JTAG_GetClock(&code), 6U);
  EXPECT_EQ(log_.Take().front(),
            "[CTzDevice::JTAG_GetClock()]mhz=" + std::to_string(AddressAsNumber(&code)));
}

TEST_F(OperationLogTest, TimeoutsOfAProbeInUseAreSetInTheirOrderAlsoByAWirefoxProbe) {
  std::string expected;
  for (const auto& [endpoint, timeout_ms] :
       {std::pair{1, 2000}, {129, 1000}, {2, 1000}, {132, 2000}, {134, 100}}) {
    expected += "[CTzDevice::SetTimeout()]endpt=" + std::to_string(endpoint) +
                " timeout=" + std::to_string(timeout_ms) + "\n" + Missing(endpoint) +
                Failed("CTzDevice::SetTimeout", 6);
  }
  CTzWfxDevice device(0, true);
  EXPECT_EQ(TakeText(), expected);
}

TEST_F(OperationLogTest, WirefoxOperationsLogUnderTheirOwnNames) {
  std::uint8_t* const data = bytes_.data();
  // A restart position that cannot be written takes the request down through all its layers; the
  // outcome is success to the client, as for a target that does not answer.
  std::array<std::uint8_t, 6> request = {0x04, 0x01, 0x50, 0x02, 0xD0, 0x10};
  std::uint32_t request_length = request.size();
  ExpectLines<CTzWfxDevice>({
      {6, [](CTzWfxDevice& d) { return d.SetTimeout(0x81, 700); },
       "[CTzWfxDevice::SetTimeout]endpt=129, timeout=700\n"
       "[CTzDevice::SetTimeout()]endpt=132 timeout=700\n" +
           Missing(132) + Failed("CTzDevice::SetTimeout", 6) +
           Failed("CTzWfxDevice::SetTimeout", 6)},
      {5, [&](CTzWfxDevice& d) { return d.I2COutXfer(4, data); },
       "[CTzWfxDevice::I2COutXfer]num_tx_bytes=4, reqdata=*\n" + Missing(2) +
           Failed("CTzWfxDevice::I2COutXfer", 5)},
      {5, [&](CTzWfxDevice& d) { return d.I2CInXfer(length_, data); },
       "[CTzWfxDevice::I2CInXfer]num_rx_bytes=7, resultdata=*\n" + Missing(132) +
           Failed("CTzWfxDevice::I2CInXfer", 5)},
      {1, [&](CTzWfxDevice& d) { return d.I2CUpdateRestartPos(131); },
       "[CTzWfxDevice::I2CUpdateRestartPos]value=131\n"
       "[CTzDevice::WriteFPGAReg]reg_address=08, reg_value=83 \n" +
           Xfer("43", "8388", 16) + Failed("CTzDevice::WriteFPGAReg", 1) +
           Failed("CTzWfxDevice::I2CUpdateRestartPos", 1)},
      {6, [&](CTzWfxDevice& d) { return d.BulkXfer(0x02, data, length_, 0); },
       "[CTzWfxDevice::BulkXfer]endpt=2, bfr=*, len=7, mode=0\n"
       "[CTzDevice::BulkXfer]endpt=2, bfr=*, len=7\n" +
           Missing(2) + Failed("CTzWfxDevice::BulkXfer", 6)},
      {0, [&](CTzWfxDevice& d) { return d.BulkXfer(0x01, request.data(), request_length, 2); },
       "[CTzWfxDevice::BulkXfer]endpt=1, bfr=*, len=6, mode=2\n"
       "[CTzWfxDevice::TranslateToEp2x4]endpt=1, bfr=*, len=6\n"
       "[CTzWfxDevice::I2CParseIn]bfr=*\n"
       "[CTzWfxDevice::I2CRestartTransfer]bControl=4, bLong=*, bfr=*\n"
       "[CTzWfxDevice::I2CUpdateRestartPos]value=129\n"
       "[CTzDevice::WriteFPGAReg]reg_address=08, reg_value=81 \n" +
           Xfer("43", "8188", 16) + Failed("CTzDevice::WriteFPGAReg", 1) +
           Failed("CTzWfxDevice::I2CUpdateRestartPos", 1) +
           Failed("CTzWfxDevice::I2CRestartTransfer", 1) + Failed("CTzWfxDevice::I2CParseIn", 1)},
      {0, [](CTzWfxDevice& d) { return d.PowerSupplied(); },
       "[CTzWfxDevice::PowerSupplied]\n" + Xfer("56", "0000", 15) +
           Failed("CTzWfxDevice::PowerSupplied", 6)},
  });
}

}  // namespace
