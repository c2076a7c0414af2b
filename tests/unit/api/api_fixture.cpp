#include "tests/unit/api/api_fixture.h"

#include <psapi.h>

#include <algorithm>
#include <iterator>
#include <span>

namespace {

// Hands the elements of an array that a call has made to `use`, once its form is what clients rely
// on.
template <typename Element, typename Use>
void UseElements(SAFEARRAY* array, Use use) {
  void* data = nullptr;
  LONG lower = -1;
  LONG upper = -2;
  EXPECT_EQ(SafeArrayGetElemsize(array), sizeof(Element));
  EXPECT_EQ(SafeArrayGetLBound(array, 1, &lower), S_OK);
  EXPECT_EQ(SafeArrayGetUBound(array, 1, &upper), S_OK);
  EXPECT_EQ(lower, 0);
  EXPECT_EQ(SafeArrayAccessData(array, &data), S_OK);
  use(std::span(static_cast<const Element*>(data), static_cast<std::size_t>(upper + 1)));
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
}

}  // namespace

// Taken by the linker in place of the system's.
BOOL WINAPI EnumProcesses(DWORD* ids, DWORD size, DWORD* filled) {
  if (!running_processes) return FALSE;
  const std::size_t count = std::min<std::size_t>(size / sizeof(DWORD), running_processes->size());
  std::copy_n(running_processes->begin(), count, ids);
  *filled = static_cast<DWORD>(count * sizeof(DWORD));
  return TRUE;
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
  if (!array_) return std::nullopt;
  Bytes copy;
  UseElements<std::uint8_t>(array_, [&](auto bytes) { copy.assign(bytes.begin(), bytes.end()); });
  return copy;
}

std::optional<Strings> Result::AsStrings() const {
  if (!array_) return std::nullopt;
  Strings strings;
  UseElements<BSTR>(array_, [&](auto texts) {
    for (const BSTR text : texts) strings.emplace_back(text ? text : L"(null)");
  });
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

ApiTest::ApiTest(std::int32_t log_level) : log_(log_level) {
  running_processes = {0, GetCurrentProcessId(), DWORD{kOther}};
  Configurators() = {&family_};
  void* object = nullptr;
  EXPECT_EQ(CTzWirefox::Create(module_, nullptr, api::kInterfaceIdV3, &object), S_OK);
  object_ = static_cast<CTzWirefox*>(static_cast<ITzWirefox_v3*>(object));
  TakeLog();
}

ApiTest::~ApiTest() {
  if (object_) object_->Release();
  for (ProbeEntry* entry : family_.GetConfiguredDevices()) SetTargets(*entry, {});
  Configurators().clear();
}

Lines ApiTest::Failure(const std::string& method, TzErrorCode error) {
  const std::string source = "[CTzWirefox::" + method + "]";
  return {source, source + "Error " + std::to_string(static_cast<int>(error)) + " occured."};
}

ProbeEntry& ApiTest::AddProbe(const wchar_t* name) {
  auto device = std::make_unique<RecordingDevice>();
  device_ = device.get();
  return family_.Add(std::move(device), name);
}

void ApiTest::SetTargets(ProbeEntry& probe, const std::vector<std::uint32_t>& ids) {
  for (const TargetRecord& target : probe.targets) {
    if (target.sessionMutex) CloseHandle(target.sessionMutex);
  }
  for (const HANDLE mutex : std::exchange(probe.endedSessions, {})) CloseHandle(mutex);
  probe.targets.clear();
  for (const std::uint32_t id : ids) probe.targets.push_back({.targetId = id});
}

TzErrorCode ApiTest::Outcome(HRESULT called) {
  EXPECT_EQ(called, S_OK);
  return error_;
}

void ApiTest::ExpectTold(const std::vector<Told>& calls) {
  const ProbeEntry& probe = *family_.GetConfiguredDevices().at(0);
  for (const auto& [call, expected] : calls) {
    SCOPED_TRACE(expected);
    const std::uint32_t mode = probe.mode;
    static_cast<void>(&result_);
    const TzErrorCode outcome = Outcome(call());
    std::string told = device_->TakeCalls() + NameOf(outcome);
    if (probe.mode != mode) told += ", mode " + std::to_string(probe.mode);
    if (result_.IsSet()) told += ": " + HexText(*result_.AsBytes());
    EXPECT_EQ(told, expected);
  }
}

Strings ApiTest::Probes() {
  Result names;
  EXPECT_EQ(Outcome(object_->EnumerateWirefoxs(&names, &error_)), TzErrorCode::SUCCESS);
  return names.AsStrings().value_or(Strings{L"no array"});
}

Strings ApiTest::Targets(const wchar_t* probe) {
  Result devices;
  EXPECT_EQ(Outcome(object_->EnumerateDevices(Text(probe), &devices, &error_)),
            TzErrorCode::SUCCESS);
  return devices.AsStrings().value_or(Strings{L"no array"});
}

TzErrorCode ApiTest::Acquire(const wchar_t* probe, LONG target, LONG pid) {
  handle_ = -1;
  return Outcome(object_->AcquireDevice(Text(probe), target, pid, &handle_, &error_));
}

std::string NameOf(TzErrorCode error) {
  static constexpr const char* kNames[] = {"SUCCESS",        "IN_USE",       "NOT_ACQUIRED",
                                           "INVALID_DEVICE", "INVALID_MODE", "INVALID_PARAM",
                                           "WFX_ERROR",      "UNKNOWN"};
  const auto code = static_cast<std::uint32_t>(error);
  return code < std::size(kNames) ? kNames[code] : std::to_string(code);
}
