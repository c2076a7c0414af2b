#include "tests/unit/client/fake_wirefox.h"

#include <iterator>
#include <sstream>

#include "client/automation.h"
#include "client/command_line.h"
#include "client/text.h"

namespace client_test {

namespace {

using Error = TzErrorCode*;
using Array = SAFEARRAY*;

template <typename T>
long long Number(T value) {
  return static_cast<long long>(value);
}

SAFEARRAY* MakeStrings(const std::vector<std::string>& strings) {
  SAFEARRAYBOUND bound = {static_cast<ULONG>(strings.size()), 0};
  SAFEARRAY* array = SafeArrayCreate(VT_BSTR, 1, &bound);
  void* data = nullptr;
  if (FAILED(SafeArrayAccessData(array, &data))) return array;
  for (std::size_t i = 0; i < strings.size(); ++i) {
    static_cast<BSTR*>(data)[i] = client::MakeBstr(strings[i]).release();
  }
  SafeArrayUnaccessData(array);
  return array;
}

class FakeWirefox final : public ITzWirefox_v3 {
 public:
  explicit FakeWirefox(FakeService& fake) : fake_(fake) {}
  virtual ~FakeWirefox() = default;

  HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG AddRef() override { return ++references_; }
  ULONG Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }
  HRESULT GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
  HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  HRESULT Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
    return E_NOTIMPL;
  }

  HRESULT GetVersion(LONG* versionNum) override {
    *versionNum = fake_.version;
    return Record("GetVersion", nullptr);
  }
  HRESULT GetDevicesChangedLocation(BSTR* path) override {
    *path = nullptr;
    return Record("GetDevicesChangedLocation", nullptr);
  }
  HRESULT EnumerateWirefoxs(Array* wirefoxs, Error error) override {
    *wirefoxs = MakeStrings(fake_.wirefoxs);
    return Record("EnumerateWirefoxs", error);
  }
  HRESULT EnumerateDevices(BSTR name, Array* devices, Error error) override {
    *devices = MakeStrings(fake_.devices);
    return Record("EnumerateDevices", error, name);
  }
  HRESULT SetLedState(BSTR name, TzLed led, TzLedState state, Error error) override {
    return Record("SetLedState", error, name, {Number(led), Number(state)});
  }
  HRESULT VisualIdentify(BSTR name, TzLedIdentifyState state, Error error) override {
    return Record("VisualIdentify", error, name, {Number(state)});
  }
  HRESULT GetWirefoxStatus(BSTR name, TzWFXStatus* status, Error error) override {
    *status = fake_.status;
    return Record("GetWirefoxStatus", error, name);
  }
  HRESULT SetTimeOut(BSTR name, TzWirefoxEndPoint endpoint, LONG timeout, LONG pid,
                     Error error) override {
    return Record("SetTimeOut", error, name, {Number(endpoint), timeout, IsThisProcess(pid)});
  }
  HRESULT SetJtagClock(BSTR name, TzJtagClock clock, LONG pid, Error error) override {
    return Record("SetJtagClock", error, name, {Number(clock), IsThisProcess(pid)});
  }
  HRESULT SetMode(BSTR name, TzTransferMode mode, CHAR port, LONG pid, Error error) override {
    return Record("SetMode", error, name, {Number(mode), port, IsThisProcess(pid)});
  }
  HRESULT SetVTarg(BSTR name, TzVTargVoltage voltage, CHAR on, LONG pid, Error error) override {
    return Record("SetVTarg", error, name, {Number(voltage), on, IsThisProcess(pid)});
  }
  HRESULT AcquireDevice(BSTR name, LONG deviceNum, LONG pid, std::int64_t* handle,
                        Error error) override {
    const HRESULT status = Record("AcquireDevice", error, name, {deviceNum, IsThisProcess(pid)});
    *handle = *error == TzErrorCode::SUCCESS ? 0x104 : 0;
    return status;
  }
  HRESULT ReleaseDevice(std::int64_t handle, Error error) override {
    return Record("ReleaseDevice", error, nullptr, {handle});
  }
  HRESULT SendJtagPacket(Array data, CHAR read, std::int64_t handle, Array* result,
                         Error error) override {
    return Transfer("SendJtagPacket", data, result, error, {read, handle});
  }
  HRESULT SendSwdPacket(Array data, std::int64_t handle, Array* result, Error error) override {
    return Transfer("SendSwdPacket", data, result, error, {handle});
  }
  HRESULT RequestSwvPackets(std::int64_t handle, Array* result, Error error) override {
    return Transfer("RequestSwvPackets", nullptr, result, error, {handle});
  }
  HRESULT BulkTransfer(TzWirefoxEndPoint endpoint, Array data, CHAR read, std::int64_t handle,
                       Array* result, Error error) override {
    return Transfer("BulkTransfer", data, result, error, {Number(endpoint), read, handle});
  }
  HRESULT PortAcquire(BSTR name, TzProgrammingMode mode, LONG key, CHAR write, LONG address,
                      LONG value, LONG retries, Error error) override {
    return Record("PortAcquire", error, name, {Number(mode), key, write, address, value, retries});
  }
  HRESULT GetPortAcquireStatus(BSTR name, CHAR abort, LONG* acquireStatus, Error error) override {
    if (fake_.acquire_status) *acquireStatus = *fake_.acquire_status;
    return Record("GetPortAcquireStatus", error, name, {abort});
  }
  HRESULT ToggleXres(BSTR name, CHAR active, Error error) override {
    return Record("ToggleXres", error, name, {active});
  }
  HRESULT SetupSWV(BSTR name, LONG hz, CHAR coding, SHORT commit, Error error) override {
    return Record("SetupSWV", error, name, {hz, coding, commit});
  }
  HRESULT RequestEtmPackets(std::int64_t handle, Array* result, Error error) override {
    return Transfer("RequestEtmPackets", nullptr, result, error, {handle});
  }
  HRESULT SendI2CPacket(Array data, std::int64_t handle, LONG restart, Array* result,
                        Error error) override {
    return Transfer("SendI2CPacket", data, result, error, {restart, handle});
  }
  HRESULT PortAcquire(TzProgrammingMode mode, LONG key, CHAR write, LONG address, LONG value,
                      LONG retries, std::int64_t handle, Error error) override {
    return Record("PortAcquire", error, nullptr,
                  {Number(mode), key, write, address, value, retries, handle});
  }
  HRESULT GetHwRevID(BSTR name, LONG* revID, Error error) override {
    *revID = fake_.revision;
    return Record("GetHwRevID", error, name);
  }

 private:
  // Process ids differ from run to run: the record shows only whether it is the client's own.
  static long long IsThisProcess(LONG pid) {
    return pid == static_cast<LONG>(GetCurrentProcessId()) ? 1 : 0;
  }

  HRESULT Record(const std::string& method, TzErrorCode* error, BSTR name = nullptr,
                 std::vector<long long> numbers = {}, const std::string& data = "") {
    std::ostringstream line;
    line << method;
    if (name) line << ' ' << client::Utf8FromBstr(name);
    for (const long long number : numbers) line << ' ' << number;
    if (!data.empty()) line << ' ' << data;
    fake_.calls.push_back(line.str());
    auto& outcomes = fake_.outcomes[method];
    if (error) {
      *error = outcomes.empty() ? TzErrorCode::SUCCESS : outcomes.front();
      if (!outcomes.empty()) outcomes.pop_front();
    }
    const auto failure = fake_.call_failures.find(method);
    return failure == fake_.call_failures.end() ? S_OK : failure->second;
  }

  HRESULT Transfer(const std::string& method, SAFEARRAY* data, SAFEARRAY** result,
                   TzErrorCode* error, std::vector<long long> numbers) {
    const client::Bytes packet = client::BytesOf(data);
    const client::Bytes reply = fake_.reply ? fake_.reply(packet) : client::Bytes();
    *result = client::MakeByteArray(reply).release();
    return Record(method, error, nullptr, numbers, client::HexFromBytes(packet));
  }

  FakeService& fake_;
  ULONG references_ = 1;
};

}  // namespace

std::string Transcript(FakeService& fake, const std::string& line,
                       const std::string& standard_input, bool closed) {
  const auto connect = [&fake](HRESULT& status) -> std::unique_ptr<client::ServiceClient> {
    status = fake.connection_failure;
    return FAILED(status) ? nullptr
                          : std::make_unique<client::ServiceClient>(new FakeWirefox(fake));
  };
  std::istringstream words(line);
  const std::vector<std::string> arguments{std::istream_iterator<std::string>(words), {}};
  std::istringstream in(standard_input);
  std::ostringstream out;
  std::ostringstream err;
  if (closed) out.setstate(std::ios::badbit);
  fake.calls.clear();
  const int exit_status = client::RunCommandLine(arguments, connect, {in, out, err, false});
  std::string transcript;
  for (const std::string& call : fake.calls) transcript += "> " + call + "\n";
  transcript += out.str() + err.str();
  if (exit_status != 0) transcript += "= " + std::to_string(exit_status) + "\n";
  return transcript;
}

}  // namespace client_test
