// A client object in front of a whole simulated bench, with the real device classes and passes
// between them.
#pragma once

#include <memory>
#include <string>

#include "config/device_discovery.h"
#include "config/evk_configure.h"
#include "config/wfx_configure.h"
#include "platform/linux/test_host.h"
#include "sim/bench.h"
#include "support/settings_file.h"
#include "tests/unit/api/api_fixture.h"
#include "tests/unit/clocked_bench.h"

// Settings cannot be read a second time: all benches of the process share them. Any image of the
// announced length loads; it is read at each attachment.
inline void ReadTestSettings() {
  static const unit::ScratchFolder folder;
  static const bool read = [] {
    const std::string image = folder.Write("fpga", std::string(600, 'x'));
    const std::string settings = "0F0F_1002_WFXDEVICE=CONFIGURED\n0F0F_1002_FPGA=" + image +
                                 "\n0F0F_2002_EVKDEVICE=CONFIGURED\n";
    ReadSettings(folder.Write("settings.ini", settings).c_str());
    return true;
  }();
  static_cast<void>(read);
}

// Members of a probe with two devices in its chain.
inline constexpr char kTwoTaps[] = R"("jtag": {"taps": [{"idcode": "0x1BA01477"},
                                                     {"idcode": "0x0684617F", "ir_length": 5}]})";

class BenchTest : public ApiTest {
 protected:
  // The bench has the probe P1, of the kind and with the targets that `members` gives as members of
  // a JSON object, and the Evk board E1. Both are in the table afterwards, without any target.
  // Failures are logged.
  explicit BenchTest(const std::string& members) : ApiTest(LOG_ERROR) {
    ReadTestSettings();
    Configurators() = {&evk_, &wfx_};
    const std::string description = R"({"probes": [{"name": "P1", )" + members +
                                    R"(}, {"name": "E1", "kind": "evk", "pid": "0x2002"}]})";
    bench_ = std::make_unique<sim::Bench>(description, unit::OnClock(clock_));
    test_host::UseBus(bench_.get());
    EXPECT_EQ(Probes(), (Strings{L"E1", L"P1"}));
  }
  // The probes leave: their entries and sessions go as they do in the service.
  ~BenchTest() override {
    test_host::UseBus(nullptr);
    RefreshDevices();
    Configurators().clear();
  }

  TzErrorCode SetMode(TzTransferMode mode) {
    return Outcome(object_->SetMode(Text(L"P1"), mode, 0, OwnPid(), &error_));
  }
  // A JTAG packet's reply, and its outcome in error_.
  std::string Jtag(const Bytes& cycles, CHAR read) {
    EXPECT_EQ(object_->SendJtagPacket(Array(cycles), read, handle_, &result_, &error_), S_OK);
    return HexText(result_.AsBytes().value_or(Bytes{}));
  }

  test_host::TestClock clock_;
  std::unique_ptr<sim::Bench> bench_;
  CTzEvkConfigure evk_;
  CTzWfxConfigure wfx_;
};
