#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <iterator>
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

// What every operation writes, shown on objects whose probe cannot be opened: each operation logs
// its entry and how it fails.
class OperationLogTest : public ProbeTest {
 protected:
  OperationLogTest() { bus_.SetDevices({}); }

  struct Operation {
    std::string text;
    std::function<std::uint32_t()> call;
  };

  // The operations, each with its status and its lines. Addresses show as '*', and where the log
  // has them as decimal numbers as '#'.
  std::string Logged(const std::vector<Operation>& operations) {
    const std::string number = std::to_string(AddressAsNumber(bytes_.data()));
    std::string text;
    for (const auto& [operation, call] : operations) {
      log_.Take();
      text.append("# ").append(operation).append(" = ").append(std::to_string(call())).append("\n");
      for (std::string line : log_.Take()) {
        const std::size_t at = line.find(number);
        if (at != line.npos) line.erase(at, number.size()).insert(at, 1, '#');
        text.append(WithoutAddresses(line)).append("\n");
      }
    }
    return text;
  }

  std::array<std::uint8_t, 8> bytes_{};
  std::array<std::uint8_t, 6> request_ = {0x04, 0x01, 0x50, 0x02, 0xD0, 0x10};
  std::uint32_t length_ = 7;
  std::uint32_t request_length_ = request_.size();
  std::vector<std::uint8_t> trace_ = {1, 2, 3};
};

// A restart position that cannot be written takes a request down through all its layers; the
// outcome is success to the client, as for a target that does not answer.
TEST_F(OperationLogTest, OperationsLogTheirArgumentsTheirRequestAndTheirFailure) {
  std::uint8_t* const data = bytes_.data();
  CTzDevice device(0, false);
  CTzWfxDevice wirefox(0, false);
#define OF(object, operation)                                \
  {                                                          \
#object "." #operation, [&] { return object.operation; } \
  }
  const std::string logged = Logged({
      OF(device, SetMode(4, true)),
      OF(device, LedState(2, 1)),
      OF(device, Identify(3)),
      OF(device, TargetPowerOn(true)),
      OF(device, SetVTargVal(11)),
      OF(device, JTAG_SetClock(253)),
      OF(device, SetTimeout(0x86, 5)),
      OF(device, SetActiveIOConnector(0xFFFF)),
      OF(device, ResetTarget(false)),
      OF(device, ReadFPGAReg(0x3A, &(bytes_[0] = 0xC3))),
      OF(device, WriteFPGAReg(0x91, 0xAB)),
      OF(device, SetupSWV(0, 1, 65535)),
      OF(device, SetupPortAcquire(300, true)),
      OF(device, BeginPortAcquire()),
      OF(device, JTAG_Reset()),
      OF(device, SWD_CReset()),
      OF(device, JTAG_BufferedIo(9, data, true, data, true)),
      OF(device, SWDXfer(1, data, length_, data)),
      OF(device, StageSWDCommand(2, data)),
      OF(device, RetrievePortAcquireResponse(length_, data)),
      OF(device, BulkXfer(0x02, data, length_, 0)),
      OF(device, GetSWVData(trace_)),
      OF(wirefox, SetTimeout(0x81, 700)),
      OF(wirefox, I2COutXfer(4, data)),
      OF(wirefox, I2CInXfer(length_, data)),
      OF(wirefox, I2CUpdateRestartPos(131)),
      OF(wirefox, BulkXfer(0x02, data, length_, 0)),
      OF(wirefox, BulkXfer(0x01, request_.data(), request_length_, 2)),
      OF(wirefox, BulkXfer(0x01, &(request_[0] = 0x00), request_length_, 2)),
      OF(wirefox, I2CXfer(1, data, 2, length_, data)),
      OF(wirefox, PowerSupplied()),
      {"a Wirefox probe in use", [] { return CTzWfxDevice(0, true), 0U; }},
  });
#undef OF
  std::ifstream file(WIREFOX_SOURCE_DIR "/tests/unit/device/operations.txt", std::ios::binary);
  EXPECT_EQ(logged, std::string(std::istreambuf_iterator<char>(file), {}));
  EXPECT_EQ(trace_.size(), 3U);
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

}  // namespace
