#include "tests/unit/client/fake_wirefox.h"

#include <iterator>
#include <sstream>
#include <stdexcept>

#include "api/interface_table.h"
#include "api/tz_wirefox_proxy.h"
#include "client/automation.h"
#include "client/command_line.h"
#include "client/text.h"

namespace client_test {

namespace {

using namespace interface_schema;
using Name = std::wstring_view;

SAFEARRAY* MakeStrings(const std::vector<std::string>& strings) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(strings.size()));
  void* data = nullptr;
  if (FAILED(SafeArrayAccessData(array, &data))) return array;
  for (std::size_t i = 0; i < strings.size(); ++i) {
    static_cast<BSTR*>(data)[i] = client::MakeBstr(strings[i]).release();
  }
  SafeArrayUnaccessData(array);
  return array;
}

const Method& MethodOf(MethodCall call) {
  for (const Interface* entry : api::kLibrary.interfaces) {
    for (const Method& method : entry->methods) {
      if (method.call == call) return method;
    }
  }
  throw std::logic_error("no method of the interface");
}

long long Number(ValueType type, CallWord word) {
  if (type == ValueType::kInt64) return FromWord<std::int64_t>(word);
  if (type == ValueType::kShort) return FromWord<std::int16_t>(word);
  return type == ValueType::kChar ? FromWord<signed char>(word) : FromWord<std::int32_t>(word);
}

// Records each call that a client's object makes as a line, and answers it.
class Recorder final : public RemoteObject {
 public:
  explicit Recorder(FakeService& fake) : fake_(fake) {}

  bool Answers(REFIID) const override { return false; }
  HRESULT LoadTypeInfo(ITypeInfo**) override { return E_NOTIMPL; }

  HRESULT Call(MethodCall call, const CallWord* words) override {
    const Method& method = MethodOf(call);
    const std::string name = client::Utf8FromWide(method.name);
    std::string line = name;
    client::Bytes packet;
    for (std::size_t i = 0; i < method.parameters.size(); ++i) {
      const Parameter& parameter = method.parameters[i];
      if (parameter.direction != Direction::kIn) continue;
      if (parameter.type == ValueType::kByteArray) {
        packet = client::BytesOf(FromWord<SAFEARRAY*>(words[i]));
        continue;
      }
      line.append(" ").append(Shown(parameter, words[i]));
    }
    if (!packet.empty()) line.append(" ").append(client::HexFromBytes(packet));
    fake_.calls.push_back(line);
    const TzErrorCode outcome = Outcome(name);
    for (std::size_t i = 0; i < method.parameters.size(); ++i) {
      const Parameter& parameter = method.parameters[i];
      if (parameter.direction != Direction::kIn) Write(parameter.name, words[i], outcome, packet);
    }
    const auto failure = fake_.call_failures.find(name);
    return failure == fake_.call_failures.end() ? S_OK : failure->second;
  }

 private:
  static std::string Shown(const Parameter& parameter, CallWord word) {
    if (parameter.type == ValueType::kBstr) return client::Utf8FromBstr(FromWord<BSTR>(word));
    const long long number = Number(parameter.type, word);
    if (parameter.name != Name(L"ownerPID")) return std::to_string(number);
    // Process ids differ from run to run: only whether it is the client's own is told.
    return number == static_cast<LONG>(GetCurrentProcessId()) ? "1" : "0";
  }

  TzErrorCode Outcome(const std::string& method) {
    auto& outcomes = fake_.outcomes[method];
    if (outcomes.empty()) return TzErrorCode::SUCCESS;
    const TzErrorCode outcome = outcomes.front();
    outcomes.pop_front();
    return outcome;
  }

  void Write(Name output, CallWord place, TzErrorCode outcome, const client::Bytes& packet) const {
    const auto put = [&]<typename T>(T value) { *FromWord<T*>(place) = value; };
    if (output == L"error") put(outcome);
    if (output == L"versionNum") put(fake_.version);
    if (output == L"path") put(client::MakeBstr(fake_.path).release());
    if (output == L"wirefoxs") put(MakeStrings(fake_.wirefoxs));
    if (output == L"devices") put(MakeStrings(fake_.devices));
    if (output == L"status") put(fake_.status);
    if (output == L"revID") put(fake_.revision);
    if (output == L"acquireStatus" && fake_.acquire_status) put(*fake_.acquire_status);
    if (output == L"wfxHandle") put(std::int64_t{outcome == TzErrorCode::SUCCESS ? 0x104 : 0});
    if (output == L"RESULT") {
      const client::Bytes reply = fake_.reply ? fake_.reply(packet) : client::Bytes();
      put(client::MakeByteArray(reply).release());
    }
  }

  FakeService& fake_;
};

}  // namespace

std::unique_ptr<client::ServiceClient> ClientOf(FakeService& fake,
                                                client::ServiceClient::Place place) {
  return std::make_unique<client::ServiceClient>(
      new api::TzWirefoxProxy(std::make_unique<Recorder>(fake)), place);
}

std::string Transcript(FakeService& fake, const std::string& line,
                       const std::string& standard_input, bool closed) {
  using enum client::ServiceClient::Place;
  const auto connect = [&fake](const std::string& host,
                               HRESULT& status) -> std::unique_ptr<client::ServiceClient> {
    if (!host.empty()) fake.calls.push_back("connect to " + host);
    status = fake.connection_failure;
    return FAILED(status) ? nullptr : ClientOf(fake, host.empty() ? kThisMachine : kAnotherMachine);
  };
  std::istringstream words(line);
  const std::vector<std::string> arguments{std::istream_iterator<std::string>(words), {}};
  std::istringstream in(standard_input);
  std::ostringstream out;
  std::ostringstream err;
  if (closed) out.setstate(std::ios::badbit);
  fake.calls.clear();
  const int exit_status = client::RunCommandLine(
      arguments, connect, {in, out, err, {false, fake.colours}, {false, fake.colours}});
  std::string transcript;
  for (const std::string& call : fake.calls) transcript += "> " + call + "\n";
  for (const char c : out.str() + err.str()) {
    transcript += c == '\033' ? std::string("^[") : std::string(1, c);
  }
  if (exit_status != 0) transcript += "= " + std::to_string(exit_status) + "\n";
  return transcript;
}

}  // namespace client_test
