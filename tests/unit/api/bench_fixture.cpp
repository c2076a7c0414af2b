#include "tests/unit/api/bench_fixture.h"

#include "config/device_notification.h"
#include "support/settings_file.h"

namespace {

// Settings cannot be read a second time: all benches of the process share them. Any image of the
// announced length loads; it is read at each attachment.
void ReadTestSettings() {
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

}  // namespace

BenchTest::BenchTest(const std::string& members) : ApiTest(LOG_ERROR) {
  ReadTestSettings();
  Configurators() = {&evk_, &wfx_};
  sim::BenchOptions options;
  options.scheduler = [this](std::uint64_t delay_ms, std::function<void()> action) {
    clock_.CallAt(clock_.NowMs() + delay_ms, std::move(action));
  };
  std::string description = R"({"probes": [{"name": "P1", )";
  description += members;
  description += R"(}, {"name": "E1", "kind": "evk", "pid": "0x2002"}]})";
  bench_ = std::make_unique<sim::Bench>(description, options);
  test_host::UseBus(bench_.get());
  EXPECT_EQ(Probes(), (Strings{L"E1", L"P1"}));
}

// The probes leave: their entries and sessions go as they do in the service.
BenchTest::~BenchTest() {
  test_host::UseBus(nullptr);
  RefreshDevices();
  Configurators().clear();
}

std::optional<Bytes> BenchTest::Jtag(const Bytes& cycles, bool read) {
  Result result;
  EXPECT_EQ(object_->SendJtagPacket(Array(cycles), read ? 1 : 0, handle_, &result, &error_), S_OK);
  return result.AsBytes();
}
