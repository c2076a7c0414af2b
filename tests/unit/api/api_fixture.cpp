#include "tests/unit/api/api_fixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>

#include "support/log.h"

namespace {

// One per process, since tests run beside each other; the log keeps the pointer.
const std::string& LogPath() {
  static const std::string path =
      (std::filesystem::temp_directory_path() /
       ("wirefox_api_test_" + std::to_string(GetCurrentProcessId()) + ".log"))
          .string();
  return path;
}

}  // namespace

LogCapture::LogCapture(std::int32_t level) : level_(level) { OpenLog(LogPath().c_str(), level_); }

LogCapture::~LogCapture() {
  OpenLog("", 0);
  std::error_code ignored;
  std::filesystem::remove(LogPath(), ignored);
}

std::vector<std::string> LogCapture::Take() {
  std::vector<std::string> lines;
  {
    std::ifstream file(LogPath(), std::ios::binary);
    for (std::string line; std::getline(file, line);) {
      while (line.ends_with('\r')) line.pop_back();
      lines.push_back(line.substr(std::min(line.find('['), line.size())));
    }
  }
  OpenLog(LogPath().c_str(), level_);
  return lines;
}

Array::Array(const Bytes& bytes) {
  SAFEARRAYBOUND bound = {};
  bound.cElements = static_cast<ULONG>(bytes.size());
  array_ = SafeArrayCreate(VT_UI1, 1, &bound);
  void* data = nullptr;
  if (SUCCEEDED(SafeArrayAccessData(array_, &data))) {
    std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(data));
    SafeArrayUnaccessData(array_);
  }
}

std::optional<Bytes> Result::AsBytes() const {
  if (array_ == nullptr) return std::nullopt;
  void* data = nullptr;
  LONG lower = -1;
  LONG upper = -2;
  EXPECT_EQ(SafeArrayGetElemsize(array_), 1u);
  EXPECT_EQ(SafeArrayGetLBound(array_, 1, &lower), S_OK);
  EXPECT_EQ(SafeArrayGetUBound(array_, 1, &upper), S_OK);
  EXPECT_EQ(lower, 0);
  EXPECT_EQ(SafeArrayAccessData(array_, &data), S_OK);
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  Bytes copy(bytes, bytes + upper + 1);
  EXPECT_EQ(SafeArrayUnaccessData(array_), S_OK);
  return copy;
}

std::optional<std::vector<std::wstring>> Result::AsStrings() const {
  if (array_ == nullptr) return std::nullopt;
  void* data = nullptr;
  LONG lower = -1;
  LONG upper = -2;
  EXPECT_EQ(SafeArrayGetElemsize(array_), sizeof(BSTR));
  EXPECT_EQ(SafeArrayGetLBound(array_, 1, &lower), S_OK);
  EXPECT_EQ(SafeArrayGetUBound(array_, 1, &upper), S_OK);
  EXPECT_EQ(lower, 0);
  EXPECT_EQ(SafeArrayAccessData(array_, &data), S_OK);
  std::vector<std::wstring> strings;
  for (LONG i = 0; i <= upper; ++i) {
    const BSTR text = static_cast<BSTR*>(data)[i];
    strings.emplace_back(text != nullptr ? text : L"(null)");
  }
  EXPECT_EQ(SafeArrayUnaccessData(array_), S_OK);
  return strings;
}

ProbeEntry& TestFamily::Add(std::unique_ptr<CTzDevice> device, const wchar_t* name) {
  entries_.push_back(std::make_unique<ProbeEntry>());
  entries_.back()->device = std::move(device);
  entries_.back()->name = name;
  return *entries_.back();
}

std::vector<ProbeEntry*> TestFamily::GetConfiguredDevices() {
  std::vector<ProbeEntry*> entries;
  for (const auto& entry : entries_) entries.push_back(entry.get());
  return entries;
}

bool TestFamily::ConfigureNewDevices(CTzUSBDevice&) {
  ++configuration_passes;
  return false;
}

bool TestFamily::UpdateState(CTzUSBDevice&) {
  ++removal_passes;
  return false;
}

ApiTest::ApiTest() : log_(LOG_ERROR | LOG_API) {
  Configurators() = {&family_};
  void* object = nullptr;
  EXPECT_EQ(CTzWirefox::Create(module_, nullptr, api::kInterfaceIdV3, &object), S_OK);
  object_ = static_cast<CTzWirefox*>(static_cast<ITzWirefox_v3*>(object));
  log_.Take();
}

ApiTest::~ApiTest() {
  if (object_ != nullptr) object_->Release();
  for (ProbeEntry* entry : family_.GetConfiguredDevices()) SetTargets(*entry, {});
  Configurators().clear();
}

ProbeEntry& ApiTest::AddProbe(const wchar_t* name) {
  auto device = std::make_unique<RecordingDevice>();
  device_ = device.get();
  return family_.Add(std::move(device), name);
}

void ApiTest::SetTargets(ProbeEntry& probe, const std::vector<std::uint32_t>& ids) {
  for (const TargetRecord& target : probe.targets) {
    if (target.sessionMutex != nullptr) CloseHandle(target.sessionMutex);
  }
  probe.targets.clear();
  for (const std::uint32_t id : ids) probe.targets.push_back({.targetId = id});
}

std::int64_t ApiTest::Acquire(ProbeEntry& probe, LONG target) {
  std::int64_t handle = 0;
  TzErrorCode error = TzErrorCode::UNKNOWN;
  EXPECT_EQ(object_->AcquireDevice(Text(probe.name), target, OwnPid(), &handle, &error), S_OK);
  EXPECT_EQ(error, TzErrorCode::SUCCESS);
  EXPECT_NE(handle, 0);
  log_.Take();
  return handle;
}

std::vector<std::string> ApiTest::Failure(const std::string& method, TzErrorCode error) {
  const std::string source = "[CTzWirefox::" + method + "]";
  return {source, source + "Error " + std::to_string(static_cast<int>(error)) + " occured."};
}

LONG OwnPid() { return static_cast<LONG>(GetCurrentProcessId()); }

void PrintTo(TzErrorCode error, std::ostream* out) {
  static constexpr const char* kNames[] = {"SUCCESS",        "IN_USE",       "NOT_ACQUIRED",
                                           "INVALID_DEVICE", "INVALID_MODE", "INVALID_PARAM",
                                           "WFX_ERROR",      "UNKNOWN"};
  const auto code = static_cast<std::uint32_t>(error);
  *out << (code < std::size(kNames) ? kNames[code] : std::to_string(code));
}
