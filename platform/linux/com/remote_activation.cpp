#include "platform/linux/com/remote_activation.h"

#include <objbase.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "platform/linux/com/dbus_proxy.h"
#include "platform/linux/kernel/text.h"

namespace linux_host {
namespace {

constexpr char kDaemonName[] = "org.freedesktop.DBus";
constexpr char kDaemonPath[] = "/org/freedesktop/DBus";

HRESULT ConnectionStatus(int error_number, const sd_bus_error& error = SD_BUS_ERROR_NULL) {
  const HRESULT status = StatusOfError(error_number, error);
  return status == RPC_E_SERVERFAULT ? CO_E_SERVER_EXEC_FAILURE : status;
}

// [USER@]HOST[:PORT], and nothing that a shell on ssh's way could take for more. The bus library
// would look for a container behind a slash, and behind a colon without a number.
bool NamesMachine(std::string_view text) {
  const auto is_foreign = [](char c) {
    constexpr std::string_view kShells = "'`\"$;&<>|(){}/,\x7F";
    return (c >= 0 && c <= ' ') || kShells.find(c) != kShells.npos;
  };
  if (std::ranges::any_of(text, is_foreign) || text.starts_with('@')) return false;
  const std::string_view machine = text.substr(text.rfind('@') + 1);
  if (machine.empty() || machine[0] == '-' || machine[0] == ':') return false;
  const std::size_t colon = machine.rfind(':');
  if (colon == machine.npos || machine.ends_with(']')) return true;
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  return !machine.ends_with(':') && std::ranges::all_of(machine.substr(colon + 1), is_digit);
}

// One question to the bus itself, about a name on it.
class Question {
 public:
  Question(sd_bus* bus, const char* member, const std::string& name) {
    sd_bus_message* call = nullptr;
    result_ =
        sd_bus_message_new_method_call(bus, &call, kDaemonName, kDaemonPath, kDaemonName, member);
    call_.reset(call);
    if (result_ >= 0) result_ = sd_bus_message_append(call, "s", name.c_str());
  }
  ~Question() { sd_bus_error_free(&error_); }
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;

  void Add(std::uint32_t value) {
    if (result_ >= 0) result_ = sd_bus_message_append(call_.get(), "u", value);
  }

  // Reads the answer into `value`. Waits without limit: ssh may ask for a password first. It gives
  // up by itself on a machine that does not answer, and the bus on a server that does not start.
  template <typename Value>
  HRESULT Ask(sd_bus* bus, const char* type, Value& value) {
    sd_bus_message* received = nullptr;
    if (result_ >= 0) result_ = sd_bus_call(bus, call_.get(), UINT64_MAX, &error_, &received);
    reply_.reset(received);
    if (result_ >= 0) result_ = sd_bus_message_read(received, type, &value);
    return result_ < 0 ? Status() : S_OK;
  }

 private:
  HRESULT Status() const {
    for (const char* name : {SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NAME_HAS_NO_OWNER}) {
      if (sd_bus_error_has_name(&error_, name)) return REGDB_E_CLASSNOTREG;
    }
    return ConnectionStatus(result_, error_);
  }

  int result_;
  sd_bus_error error_ = SD_BUS_ERROR_NULL;
  MessageHandle call_;
  MessageHandle reply_;
};

HRESULT FindOwner(sd_bus* bus, const std::string& service, std::string& name) {
  const char* owner = nullptr;
  Question question(bus, "GetNameOwner", service);
  const HRESULT status = question.Ask(bus, "s", owner);
  if (SUCCEEDED(status)) name = owner;
  return status;
}

// Starts the server if need be. Gives its own name on the bus, and not that of the service: who
// held sessions with one server must not talk to the next without knowing.
HRESULT FindServer(sd_bus* bus, const std::string& service, std::string& name) {
  HRESULT status = FindOwner(bus, service, name);
  if (status != REGDB_E_CLASSNOTREG) return status;
  Question start(bus, "StartServiceByName", service);
  start.Add(0);
  std::uint32_t started = 0;
  status = start.Ask(bus, "u", started);
  return FAILED(status) ? status : FindOwner(bus, service, name);
}

// The process that the bus there sees at the other end of this connection. It lives as long as the
// connection does.
HRESULT FindStandIn(sd_bus* bus, std::int32_t& process) {
  const char* own_name = nullptr;
  const int result = sd_bus_get_unique_name(bus, &own_name);
  if (result < 0) return ConnectionStatus(result);
  std::uint32_t id = 0;
  Question question(bus, "GetConnectionUnixProcessID", own_name);
  const HRESULT status = question.Ask(bus, "u", id);
  process = static_cast<std::int32_t>(id);
  return status;
}

}  // namespace

HRESULT ActivateRemotely(const wchar_t* host, const ClassPlan& plan, DBusHandle& connection,
                         CallRoute& route) {
  const std::string name = WideToUtf8(host);
  if (!NamesMachine(name)) return E_INVALIDARG;
  sd_bus* opened = nullptr;
  const int result = sd_bus_open_system_remote(&opened, name.c_str());
  if (result < 0) return result == -EINVAL ? E_INVALIDARG : ConnectionStatus(result);
  connection.reset(opened);
  route.limits = kBusLimits;
  const HRESULT status = FindServer(opened, plan.bus_name(), route.destination);
  return FAILED(status) ? status : FindStandIn(opened, route.stand_in);
}

}  // namespace linux_host
