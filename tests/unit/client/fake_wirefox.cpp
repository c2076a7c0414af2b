#include "tests/unit/client/fake_wirefox.h"

#include <sstream>

#include "client/automation.h"
#include "client/command_line.h"
#include "client/text.h"

namespace client_test {

namespace {

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

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    return E_NOTIMPL;
  }

  HRESULT STDMETHODCALLTYPE GetVersion(LONG* versionNum) override {
    *versionNum = fake_.version;
    return Record("GetVersion", nullptr);
  }
  HRESULT STDMETHODCALLTYPE GetDevicesChangedLocation(BSTR* path) override {
    *path = nullptr;
    return Record("GetDevicesChangedLocation", nullptr);
  }
  HRESULT STDMETHODCALLTYPE EnumerateWirefoxs(SAFEARRAY** wirefoxs, TzErrorCode* error) override {
    *wirefoxs = MakeStrings(fake_.wirefoxs);
    return Record("EnumerateWirefoxs", error);
  }
  HRESULT STDMETHODCALLTYPE EnumerateDevices(BSTR wirefox, SAFEARRAY** devices,
                                             TzErrorCode* error) override {
    *devices = MakeStrings(fake_.devices);
    return Record("EnumerateDevices", error, wirefox);
  }
  HRESULT STDMETHODCALLTYPE SetLedState(BSTR wirefox, TzLed led, TzLedState state,
                                        TzErrorCode* error) override {
    return Record("SetLedState", error, wirefox, {Number(led), Number(state)});
  }
  HRESULT STDMETHODCALLTYPE VisualIdentify(BSTR wirefox, TzLedIdentifyState state,
                                           TzErrorCode* error) override {
    return Record("VisualIdentify", error, wirefox, {Number(state)});
  }
  HRESULT STDMETHODCALLTYPE GetWirefoxStatus(BSTR wirefox, TzWFXStatus* status,
                                             TzErrorCode* error) override {
    *status = fake_.status;
    return Record("GetWirefoxStatus", error, wirefox);
  }
  HRESULT STDMETHODCALLTYPE SetTimeOut(BSTR wirefox, TzWirefoxEndPoint endPoint, LONG timeout,
                                       LONG ownerPID, TzErrorCode* error) override {
    return Record("SetTimeOut", error, wirefox,
                  {Number(endPoint), timeout, IsThisProcess(ownerPID)});
  }
  HRESULT STDMETHODCALLTYPE SetJtagClock(BSTR wirefox, TzJtagClock clock, LONG ownerPID,
                                         TzErrorCode* error) override {
    return Record("SetJtagClock", error, wirefox, {Number(clock), IsThisProcess(ownerPID)});
  }
  HRESULT STDMETHODCALLTYPE SetMode(BSTR wirefox, TzTransferMode mode, CHAR port10N5, LONG ownerPID,
                                    TzErrorCode* error) override {
    return Record("SetMode", error, wirefox, {Number(mode), port10N5, IsThisProcess(ownerPID)});
  }
  HRESULT STDMETHODCALLTYPE SetVTarg(BSTR wirefox, TzVTargVoltage voltage, CHAR supplyVoltage,
                                     LONG ownerPID, TzErrorCode* error) override {
    return Record("SetVTarg", error, wirefox,
                  {Number(voltage), supplyVoltage, IsThisProcess(ownerPID)});
  }
  HRESULT STDMETHODCALLTYPE AcquireDevice(BSTR wirefox, LONG deviceNum, LONG ownerPID,
                                          std::int64_t* wfxHandle, TzErrorCode* error) override {
    const HRESULT status =
        Record("AcquireDevice", error, wirefox, {deviceNum, IsThisProcess(ownerPID)});
    *wfxHandle = *error == TzErrorCode::SUCCESS ? 0x104 : 0;
    return status;
  }
  HRESULT STDMETHODCALLTYPE ReleaseDevice(std::int64_t wfxHandle, TzErrorCode* error) override {
    return Record("ReleaseDevice", error, nullptr, {wfxHandle});
  }
  HRESULT STDMETHODCALLTYPE SendJtagPacket(SAFEARRAY* tdi_tms, CHAR read, std::int64_t wfxHandle,
                                           SAFEARRAY** RESULT, TzErrorCode* error) override {
    return Transfer("SendJtagPacket", tdi_tms, RESULT, error, {read, wfxHandle});
  }
  HRESULT STDMETHODCALLTYPE SendSwdPacket(SAFEARRAY* data, std::int64_t wfxHandle,
                                          SAFEARRAY** RESULT, TzErrorCode* error) override {
    return Transfer("SendSwdPacket", data, RESULT, error, {wfxHandle});
  }
  HRESULT STDMETHODCALLTYPE RequestSwvPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                              TzErrorCode* error) override {
    return Transfer("RequestSwvPackets", nullptr, RESULT, error, {wfxHandle});
  }
  HRESULT STDMETHODCALLTYPE BulkTransfer(TzWirefoxEndPoint endPoint, SAFEARRAY* data,
                                         CHAR readNwrite, std::int64_t wfxHandle,
                                         SAFEARRAY** RESULT, TzErrorCode* error) override {
    return Transfer("BulkTransfer", data, RESULT, error, {Number(endPoint), readNwrite, wfxHandle});
  }
  HRESULT STDMETHODCALLTYPE PortAcquire(BSTR wirefox, TzProgrammingMode mode, LONG portAcquireKey,
                                        CHAR writeTestKey, LONG testModeAddress, LONG testModeKey,
                                        LONG retryLimit, TzErrorCode* error) override {
    return Record(
        "PortAcquire", error, wirefox,
        {Number(mode), portAcquireKey, writeTestKey, testModeAddress, testModeKey, retryLimit});
  }
  HRESULT STDMETHODCALLTYPE GetPortAcquireStatus(BSTR wirefox, CHAR abort, LONG* acquireStatus,
                                                 TzErrorCode* error) override {
    *acquireStatus = 0;
    return Record("GetPortAcquireStatus", error, wirefox, {abort});
  }
  HRESULT STDMETHODCALLTYPE ToggleXres(BSTR wirefox, CHAR active, TzErrorCode* error) override {
    return Record("ToggleXres", error, wirefox, {active});
  }
  HRESULT STDMETHODCALLTYPE SetupSWV(BSTR wirefox, LONG targetFreq, CHAR manchesterNuart,
                                     SHORT commitTime, TzErrorCode* error) override {
    return Record("SetupSWV", error, wirefox, {targetFreq, manchesterNuart, commitTime});
  }
  HRESULT STDMETHODCALLTYPE RequestEtmPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                              TzErrorCode* error) override {
    return Transfer("RequestEtmPackets", nullptr, RESULT, error, {wfxHandle});
  }
  HRESULT STDMETHODCALLTYPE SendI2CPacket(SAFEARRAY* data, std::int64_t wfxHandle,
                                          LONG restartLocation, SAFEARRAY** RESULT,
                                          TzErrorCode* error) override {
    return Transfer("SendI2CPacket", data, RESULT, error, {restartLocation, wfxHandle});
  }
  HRESULT STDMETHODCALLTYPE PortAcquire(TzProgrammingMode mode, LONG portAcquireKey,
                                        CHAR writeTestKey, LONG testModeAddress, LONG testModeKey,
                                        LONG retryLimit, std::int64_t wfxHandle,
                                        TzErrorCode* error) override {
    return Record("PortAcquire", error, nullptr,
                  {Number(mode), portAcquireKey, writeTestKey, testModeAddress, testModeKey,
                   retryLimit, wfxHandle});
  }
  HRESULT STDMETHODCALLTYPE GetHwRevID(BSTR wirefox, LONG* revID, TzErrorCode* error) override {
    *revID = fake_.revision;
    return Record("GetHwRevID", error, wirefox);
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
    if (name != nullptr) line << ' ' << client::Utf8FromBstr(name);
    for (const long long number : numbers) line << ' ' << number;
    if (!data.empty()) line << ' ' << data;
    fake_.calls.push_back(line.str());
    auto& outcomes = fake_.outcomes[method];
    if (error != nullptr) {
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

ClientRun RunClient(FakeService& fake, const std::vector<std::string>& arguments,
                    const std::string& standard_input) {
  const auto connect = [&fake](HRESULT& status) -> std::unique_ptr<client::Service> {
    status = fake.connection_failure;
    return FAILED(status) ? nullptr : std::make_unique<client::Service>(new FakeWirefox(fake));
  };
  std::istringstream in(standard_input);
  std::ostringstream out;
  std::ostringstream err;
  const int exit_status = client::RunCommandLine(arguments, connect, {in, out, err, false});
  return {exit_status, out.str(), err.str()};
}

}  // namespace client_test
