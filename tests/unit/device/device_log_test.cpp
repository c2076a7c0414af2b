#include <algorithm>
#include <array>
#include <functional>
#include <string_view>

#include "device/evk_device.h"
#include "device/failure_log.h"
#include "device/wfx_device.h"
#include "tests/unit/device/device_fixture.h"

namespace {

// The line with '*' for every run of 16 upper-case hexadecimal digits.
std::string WithoutAddresses(std::string_view line) {
  constexpr std::size_t kDigits = 16;
  std::string text;
  while (!line.empty()) {
    const std::size_t run = std::min(line.find_first_not_of("0123456789ABCDEF"), line.size());
    if (run == kDigits) {
      text += '*';
    } else {
      text += line.substr(0, run);
    }
    line.remove_prefix(run);
    if (line.empty()) break;
    text += line.front();
    line.remove_prefix(1);
  }
  return text;
}

// What every operation writes, shown on objects whose probe cannot be opened: each operation logs
// its entry and how it fails. Addresses show as '*'.
class OperationLogTest : public testing::Test {
 protected:
  OperationLogTest() { test_host::UseBus(nullptr); }

  // One text, so that a difference shows with its surroundings.
  std::string TakeText() {
    std::string text;
    for (const std::string& line : log_.Take()) text.append(WithoutAddresses(line)).append("\n");
    return text;
  }

  LogCapture log_;
  test_host::TestClock clock_;
};

std::string XferLine(const std::string& code, const std::string& value, int length) {
  return "[CTzDevice::XferData]Direction=1, ReqCode=" + code + ", Value=" + value +
         ", Index=0000, Bfr=*, Len=" + std::to_string(length) + "\n";
}

TEST_F(OperationLogTest, CommandsLogTheirArgumentsTheirRequestAndTheirFailure) {
  struct {
    std::function<std::uint32_t(CTzDevice&)> call;
    std::string lines;
  } const cases[] = {
      {[](CTzDevice& d) { return d.SetMode(4, true); },
       "[CTzDevice::SetMode()]mode=4 external=1\n" + XferLine("41", "0000", 3) +
           "[CTzDevice::SetMode()]Error 6 occured.\n"},
      {[](CTzDevice& d) { return d.LedState(2, 1); },
       "[CTzDevice::LedState()]led_num=2 state=1\n" + XferLine("48", "0201", 2) +
           "[CTzDevice::LedState]Error 6 occured.\n"},
      {[](CTzDevice& d) { return d.Identify(3); }, "[CTzDevice::Identify()]state=3\n" +
                                                       XferLine("49", "0003", 2) +
                                                       "[CTzDevice::Identify]Error 6 occured.\n"},
      {[](CTzDevice& d) { return d.TargetPowerOn(true); },
       "[CTzDevice::TargetPowerOn()]on=1\n" + XferLine("51", "0001", 2) +
           "[CTzDevice::TargetPowerOn]Error 6 occured.\n"},
      {[](CTzDevice& d) { return d.SetVTargVal(11); },
       "[CTzDevice::SetVTargVal()]val=11\n" + XferLine("55", "000B", 2) +
           "[CTzDevice::SetVTargVal]Error 6 occured.\n"},
      {[](CTzDevice& d) { return d.JTAG_SetClock(253); },
       "[CTzDevice::JTAG_SetClock()]mhz=253\n" + XferLine("57", "00FD", 2) +
           "[CTzDevice::JTAG_SetClock]Error 6 occured.\n"},
      {[](CTzDevice& d) { return d.SetTimeout(0x86, 5); },
       "[CTzDevice::SetTimeout()]endpt=134 timeout=5\n"
       "[CTzDevice::GetEndPoint]Endpoint ep=134 does not exist\n"
       "[CTzDevice::SetTimeout]Error 6 occured.\n"},
      {[](CTzDevice& d) { return d.SetActiveIOConnector(0xFFFF); },
       "[CTzDevice::SetActiveIOConnector()]select=65535\n"
       "[CTzDevice::GetDeviceStatus()]pStatus\n" +
           XferLine("44", "0000", 14) +
           "[CTzDevice::GetDeviceStatus]Error 6 occured.\n"
           "[CTzDevice::SetActiveIOConnector]Error 6 occured.\n"},
      {[](CTzDevice& d) { return d.ResetTarget(false); },
       "[CTzDevice::ResetTarget()]xres_active=0\n"
       "[CTzDevice::ReadFPGAReg]reg_address=11, reg_value=00 \n" +
           XferLine("43", "0011", 8) +
           "[CTzDevice::ReadFPGAReg]Error 1 occured.\n"
           "[CTzDevice::ResetTarget]Error 1 occured.\n"},
      {[](CTzDevice& d) { return d.WriteFPGAReg(0x91, 0xAB); },
       "[CTzDevice::WriteFPGAReg]reg_address=91, reg_value=AB \n" + XferLine("43", "AB91", 16) +
           "[CTzDevice::WriteFPGAReg]Error 1 occured.\n"},
      {[](CTzDevice& d) { return d.SetupSWV(0, 1, 65535); },
       "[CTzDevice::SetupSWV()]rate=0, mode=1, commit=65535\n"
       "[CTzDevice::SetupSWV]Error 5 occured.\n"},
      {[](CTzDevice& d) { return d.SetupPortAcquire(300, true); },
       "[CTzDevice::SetupPortAcquire()]retries=300 usexres=1\n" + XferLine("5F", "012C", 10) +
           "[CTzDevice::SetupPortAcquire]Error 6 occured.\n"},
      {[](CTzDevice& d) { return d.BeginPortAcquire(); },
       "[CTzDevice::BeginPortAcquire()]\n" + XferLine("60", "0000", 10) +
           "[CTzDevice::BeginPortAcquire]Error 6 occured.\n"},
      {[](CTzDevice& d) { return d.JTAG_Reset(); },
       "[CTzDevice::JTAG_Reset()]\n[CTzDevice::SetMode()]mode=1 external=1\n" +
           XferLine("41", "0000", 3) +
           "[CTzDevice::SetMode()]Error 6 occured.\n[CTzDevice::JTAG_Reset]Error 6 occured.\n"},
      {[](CTzDevice& d) { return d.SWD_CReset(); },
       "[CTzDevice::SWD_CReset()]\n[CTzDevice::GetDeviceStatus()]pStatus\n" +
           XferLine("44", "0000", 14) +
           "[CTzDevice::GetDeviceStatus]Error 6 occured.\n"
           "[CTzDevice::SWD_CReset]Error 6 occured.\n"},
  };
  CTzDevice device(0, false);
  TakeText();
  for (const auto& [call, lines] : cases) {
    EXPECT_NE(call(device), 0U);
    EXPECT_EQ(TakeText(), lines);
  }
}

TEST_F(OperationLogTest, StreamsLogTheirArgumentsAndTheMissingEndpoint) {
  std::array<std::uint8_t, 8> bytes{};
  std::uint32_t length = 7;
  std::vector<std::uint8_t> data(3);
  const std::string no_out = "[CTzDevice::GetEndPoint]Endpoint ep=2 does not exist\n";
  const std::string no_in = "[CTzDevice::GetEndPoint]Endpoint ep=132 does not exist\n";
  const std::string low_address = std::to_string(AddressAsNumber(bytes.data()));
  struct {
    std::function<std::uint32_t(CTzDevice&)> call;
    std::string lines;
  } const cases[] = {
      {[&](CTzDevice& d) { return d.JTAG_BufferedIo(9, bytes.data(), true, bytes.data(), true); },
       "[CTzDevice::JTAG_BufferedIo]bitcount=9, tmstdi=*, want_read=1, tdo=*, loopback=1\n" +
           no_out + no_in + "[CTzDevice::JTAG_BufferedIo]Error 6 occured.\n"},
      {[&](CTzDevice& d) { return d.SWDXfer(1, bytes.data(), length, bytes.data()); },
       "[CTzDevice::SWDXfer]num_tx_bytes=1, reqdata=*, num_rx_bytes=7, resultdata=*\n" + no_out +
           no_in + "[CTzDevice::SWDXfer]Error 6 occured.\n"},
      {[&](CTzDevice& d) { return d.StageSWDCommand(2, bytes.data()); },
       "[CTzDevice::StageSWDCommand()]num_tx_bytes=2 reqdata=\n" + no_out +
           "[CTzDevice::StageSWDCommand]Error 6 occured.\n"},
      {[&](CTzDevice& d) { return d.RetrievePortAcquireResponse(length, bytes.data()); },
       "[CTzDevice::RetrievePortAcquireResponse()]num_rx_bytes=7 respdata=" + low_address + "\n" +
           no_in + "[CTzDevice::RetrievePortAcquireResponse]Error 6 occured.\n"},
      // A missing endpoint is in the log once, without a line of the operation's own.
      {[&](CTzDevice& d) { return d.BulkXfer(0x02, bytes.data(), length, 0); },
       "[CTzDevice::BulkXfer]endpt=2, bfr=*, len=7\n" + no_out},
      {[&](CTzDevice& d) { return d.GetSWVData(data); },
       "[CTzDevice::GetSWVData()]data=3\n[CTzDevice::BulkXfer]endpt=134, bfr=*, len=512\n"
       "[CTzDevice::GetEndPoint]Endpoint ep=134 does not exist\n"
       "[CTzDevice::GetSWVData]Error 6 occured.\n"},
  };
  CTzDevice device(0, false);
  TakeText();
  for (const auto& [call, lines] : cases) {
    EXPECT_EQ(call(device), 6U);
    EXPECT_EQ(TakeText(), lines);
  }
  EXPECT_EQ(data.size(), 3U);
}

TEST_F(OperationLogTest, SomeLinesShowAddressesAsNumbersAndNumbersAsAddresses) {
  std::array<std::uint8_t, 8> bytes{};
  std::uint32_t length = 5;
  CTzEvkDevice device(0, false);
  log_.Take();
  EXPECT_EQ(device.I2CXfer(3, nullptr, 2, length, bytes.data()), 5U);
  EXPECT_EQ(log_.Take(),
            (std::vector<std::string>{
                "[CTzDevice::I2CXfer]num_tx_bytes=3, reqdata=0000000000000000, restartPos=2, "
                "num_rx_bytes=0000000000000005, resultdata=" +
                    std::to_string(AddressAsNumber(bytes.data())),
                "[CTzDevice::I2CXfer]Error 5 occured."}));
  std::uint32_t code = 0;
  EXPECT_EQ(device.JTAG_GetClock(&code), 6U);
  EXPECT_EQ(log_.Take().front(),
            "[CTzDevice::JTAG_GetClock()]mhz=" + std::to_string(AddressAsNumber(&code)));
}

TEST_F(OperationLogTest, ReadOfARegisterShowsWhatTheVariableHeldBefore) {
  CTzDevice device(0, false);
  log_.Take();
  std::uint8_t value = 0xC3;
  EXPECT_EQ(device.ReadFPGAReg(0x3A, &value), 1U);
  EXPECT_EQ(log_.Take().front(), "[CTzDevice::ReadFPGAReg]reg_address=3A, reg_value=C3 ");
}

TEST_F(OperationLogTest, TimeoutsOfAProbeInUseAreSetInTheirOrderAlsoByAWirefoxProbe) {
  std::string expected;
  for (const auto& [endpoint, timeout] :
       {std::pair{"1", "2000"}, {"129", "1000"}, {"2", "1000"}, {"132", "2000"}, {"134", "100"}}) {
    expected += std::string("[CTzDevice::SetTimeout()]endpt=") + endpoint + " timeout=" + timeout +
                "\n[CTzDevice::GetEndPoint]Endpoint ep=" + endpoint +
                " does not exist\n[CTzDevice::SetTimeout]Error 6 occured.\n";
  }
  CTzWfxDevice device(0, true);
  EXPECT_EQ(TakeText(), expected);
}

TEST_F(OperationLogTest, WirefoxOperationsLogUnderTheirOwnNames) {
  std::array<std::uint8_t, 8> bytes{};
  std::uint32_t length = 4;
  struct {
    std::function<std::uint32_t(CTzWfxDevice&)> call;
    std::string lines;
  } const cases[] = {
      {[](CTzWfxDevice& d) { return d.SetTimeout(0x81, 700); },
       "[CTzWfxDevice::SetTimeout]endpt=129, timeout=700\n"
       "[CTzDevice::SetTimeout()]endpt=132 timeout=700\n"
       "[CTzDevice::GetEndPoint]Endpoint ep=132 does not exist\n"
       "[CTzDevice::SetTimeout]Error 6 occured.\n[CTzWfxDevice::SetTimeout]Error 6 occured.\n"},
      {[&](CTzWfxDevice& d) { return d.I2COutXfer(4, bytes.data()); },
       "[CTzWfxDevice::I2COutXfer]num_tx_bytes=4, reqdata=*\n"
       "[CTzDevice::GetEndPoint]Endpoint ep=2 does not exist\n"
       "[CTzWfxDevice::I2COutXfer]Error 5 occured.\n"},
      {[&](CTzWfxDevice& d) { return d.I2CInXfer(length, bytes.data()); },
       "[CTzWfxDevice::I2CInXfer]num_rx_bytes=4, resultdata=*\n"
       "[CTzDevice::GetEndPoint]Endpoint ep=132 does not exist\n"
       "[CTzWfxDevice::I2CInXfer]Error 5 occured.\n"},
      {[&](CTzWfxDevice& d) { return d.I2CUpdateRestartPos(131); },
       "[CTzWfxDevice::I2CUpdateRestartPos]value=131\n"
       "[CTzDevice::WriteFPGAReg]reg_address=08, reg_value=83 \n" +
           XferLine("43", "8388", 16) +
           "[CTzDevice::WriteFPGAReg]Error 1 occured.\n"
           "[CTzWfxDevice::I2CUpdateRestartPos]Error 1 occured.\n"},
      {[&](CTzWfxDevice& d) { return d.BulkXfer(0x02, bytes.data(), length, 0); },
       "[CTzWfxDevice::BulkXfer]endpt=2, bfr=*, len=4, mode=0\n"
       "[CTzDevice::BulkXfer]endpt=2, bfr=*, len=4\n"
       "[CTzDevice::GetEndPoint]Endpoint ep=2 does not exist\n"
       "[CTzWfxDevice::BulkXfer]Error 6 occured.\n"},
  };
  CTzWfxDevice device(0, false);
  TakeText();
  for (const auto& [call, lines] : cases) {
    EXPECT_NE(call(device), 0U);
    EXPECT_EQ(TakeText(), lines);
  }
  EXPECT_EQ(device.PowerSupplied(), 0U);
  EXPECT_EQ(TakeText(), "[CTzWfxDevice::PowerSupplied]\n" + XferLine("56", "0000", 15) +
                            "[CTzWfxDevice::PowerSupplied]Error 6 occured.\n");
}

// A restart position that cannot be written takes the request down through all its layers; the
// outcome is success to the client, as for a target that does not answer.
TEST_F(OperationLogTest, TranslationLogsEveryLayerThatFailed) {
  std::array<std::uint8_t, 6> request = {0x04, 0x01, 0x50, 0x02, 0xD0, 0x10};
  std::uint32_t length = request.size();
  CTzWfxDevice device(0, false);
  TakeText();
  EXPECT_EQ(device.BulkXfer(0x01, request.data(), length, 2), 0U);
  EXPECT_EQ(TakeText(),
            "[CTzWfxDevice::BulkXfer]endpt=1, bfr=*, len=6, mode=2\n"
            "[CTzWfxDevice::TranslateToEp2x4]endpt=1, bfr=*, len=6\n"
            "[CTzWfxDevice::I2CParseIn]bfr=*\n"
            "[CTzWfxDevice::I2CRestartTransfer]bControl=4, bLong=*, bfr=*\n"
            "[CTzWfxDevice::I2CUpdateRestartPos]value=129\n"
            "[CTzDevice::WriteFPGAReg]reg_address=08, reg_value=81 \n" +
                XferLine("43", "8188", 16) +
                "[CTzDevice::WriteFPGAReg]Error 1 occured.\n"
                "[CTzWfxDevice::I2CUpdateRestartPos]Error 1 occured.\n"
                "[CTzWfxDevice::I2CRestartTransfer]Error 1 occured.\n"
                "[CTzWfxDevice::I2CParseIn]Error 1 occured.\n");
}

}  // namespace
