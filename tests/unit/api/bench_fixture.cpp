#include "tests/unit/api/bench_fixture.h"

#include <filesystem>
#include <fstream>

#include "config/device_notification.h"
#include "support/log.h"
#include "support/settings_file.h"

namespace {

// Settings cannot be read a second time: all benches of the process share them. Any image of the
// announced length loads.
void ReadTestSettings() {
  static const bool read = [] {
    const std::filesystem::path folder = std::filesystem::temp_directory_path();
    const std::string id = std::to_string(GetCurrentProcessId());
    const std::filesystem::path image = folder / ("wirefox_api_test_" + id + ".fpga");
    const std::filesystem::path settings = folder / ("wirefox_api_test_" + id + ".ini");
    std::ofstream(image, std::ios::binary) << std::string(600, 'x');
    std::ofstream(settings) << "0F0F_1002_WFXDEVICE=CONFIGURED\n"
                            << "0F0F_1002_FPGA=" << image.string() << "\n"
                            << "0F0F_2002_EVKDEVICE=CONFIGURED\n";
    ReadSettings(settings.string().c_str());
    std::filesystem::remove(settings);
    // The image is read at each attachment.
    static const struct Remover {
      std::filesystem::path path;
      ~Remover() {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
      }
    } remove_at_exit{image};
    return true;
  }();
  static_cast<void>(read);
}

}  // namespace

BenchTest::BenchTest(const std::string& members) : log_(LOG_ERROR) {
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
  void* object = nullptr;
  EXPECT_EQ(CTzWirefox::Create(module_, nullptr, api::kInterfaceIdV3, &object), S_OK);
  object_ = static_cast<CTzWirefox*>(static_cast<ITzWirefox_v3*>(object));
  Result names;
  EXPECT_EQ(object_->EnumerateWirefoxs(&names, &error_), S_OK);
  EXPECT_EQ(names.AsStrings(), (std::vector<std::wstring>{L"E1", L"P1"}));
  log_.Take();
}

BenchTest::~BenchTest() {
  object_->Release();
  // The probes leave: their entries and sessions go as they do in the service.
  test_host::UseBus(nullptr);
  RefreshDevices();
  Configurators().clear();
}

void BenchTest::SetMode(TzTransferMode mode) {
  EXPECT_EQ(object_->SetMode(Text(L"P1"), mode, 0, OwnPid(), &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
}

std::vector<std::wstring> BenchTest::Scan() {
  Result devices;
  EXPECT_EQ(object_->EnumerateDevices(Text(L"P1"), &devices, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  return devices.AsStrings().value_or(std::vector<std::wstring>{L"no array"});
}

std::int64_t BenchTest::Acquire(LONG target) {
  EXPECT_EQ(object_->AcquireDevice(Text(L"P1"), target, OwnPid(), &handle_, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  return handle_;
}

std::optional<Bytes> BenchTest::Jtag(const Bytes& cycles, bool read) {
  Result result;
  EXPECT_EQ(object_->SendJtagPacket(Array(cycles), read ? 1 : 0, handle_, &result, &error_), S_OK);
  return result.AsBytes();
}

std::optional<Bytes> BenchTest::Swd(const Bytes& requests) {
  Result result;
  EXPECT_EQ(object_->SendSwdPacket(Array(requests), handle_, &result, &error_), S_OK);
  return result.AsBytes();
}

Bytes BenchTest::Sent(std::uint8_t endpoint) {
  Bytes sent;
  for (const sim::Received& received : bench_->TakeRecords("P1")) {
    if (received.endpoint == endpoint) {
      sent.insert(sent.end(), received.data.begin(), received.data.end());
    }
  }
  return sent;
}
