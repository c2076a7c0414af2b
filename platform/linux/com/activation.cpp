#include "platform/linux/com/activation.h"

#include <objbase.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <windows.h>

#include <cerrno>
#include <string>

#include "platform/linux/com/component_paths.h"
#include "platform/linux/com/dbus_proxy.h"
#include "platform/linux/dbus/dbus_activation.h"
#include "platform/linux/dbus/exported_class.h"
#include "platform/linux/dbus/private_connection.h"
#include "platform/linux/services/registered_class.h"
#include "platform/linux/services/server_process.h"

namespace linux_host {
namespace {

constexpr std::uint64_t kActivationMicroseconds = 120'000'000;
// Between two looks for the socket of a server that is starting.
constexpr int kLookAgainMs = 5;
// Of servers that were reached and were lost without having ended as servers do.
constexpr int kMaxLostStarts = 3;

enum class Outcome {
  kConnected,
  kNoServer,  // nobody listens
  kLost,      // the connection ended before the object existed: the server was ending
  kUsedUp,    // the server has come and gone, with other clients
  kRefused,   // the server answered with a failure
};

struct Attempt {
  Outcome outcome;
  HRESULT status = S_OK;
};

DBusHandle OpenClientDBus(FileDescriptor socket) {
  sd_bus* created = nullptr;
  if (sd_bus_new(&created) < 0) return nullptr;
  DBusHandle bus(created);
  if (sd_bus_set_fd(created, socket.get(), socket.get()) < 0) return nullptr;
  socket.Take();
  if (sd_bus_set_bus_client(created, 0) < 0 || sd_bus_negotiate_fds(created, 0) < 0 ||
      sd_bus_start(created) < 0) {
    return nullptr;
  }
  return bus;
}

// Takes the connection up and has the server create its object.
Attempt CreateObject(FileDescriptor socket, const ClassPlan& plan, DBusHandle& connection) {
  DBusHandle bus = OpenClientDBus(std::move(socket));
  if (!bus) return {Outcome::kLost};
  sd_bus_message* created = nullptr;
  int result =
      sd_bus_message_new_method_call(bus.get(), &created, nullptr, plan.object_path().c_str(),
                                     kActivationInterface, kCreateObject);
  const MessageHandle call(created);
  sd_bus_error error = SD_BUS_ERROR_NULL;
  // Without limit: the server may be in the middle of another client's long call.
  if (result >= 0) result = sd_bus_call(bus.get(), call.get(), UINT64_MAX, &error, nullptr);
  Attempt attempt{Outcome::kConnected};
  if (result < 0) {
    attempt.status = StatusOfError(result, error);
    attempt.outcome = attempt.status == HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE)
                          ? Outcome::kLost
                          : Outcome::kRefused;
  } else {
    connection = std::move(bus);
  }
  sd_bus_error_free(&error);
  return attempt;
}

Attempt TryConnect(const ClassPlan& plan, DBusHandle& connection) {
  FileDescriptor socket = OwnComponentDirectory().Connect(SocketFile(plan));
  if (!socket.is_open()) socket = MachineComponentDirectory().Connect(SocketFile(plan));
  if (!socket.is_open() && errno == EACCES) return {Outcome::kRefused, E_ACCESSDENIED};
  if (!socket.is_open()) return {Outcome::kNoServer};
  return CreateObject(std::move(socket), plan, connection);
}

bool IsFinal(const Attempt& attempt) {
  return attempt.outcome == Outcome::kConnected || attempt.outcome == Outcome::kRefused;
}

class Activation {
 public:
  Activation(const ClassPlan& plan, DBusHandle& connection)
      : plan_(plan), connection_(connection) {}

  HRESULT Run(const RegisteredClass& registered);

 private:
  bool IsOverdue() const { return MonotonicMicroseconds() >= deadline_; }
  Attempt AwaitLockOrServer(FileDescriptor& lock);
  Attempt StartServer(const std::vector<std::string>& command, const FileDescriptor& lock);
  Attempt StartServers(const std::string& command, const FileDescriptor& lock);
  HRESULT UseService();
  HRESULT UsePlainServer(const std::string& command);

  const ClassPlan& plan_;
  DBusHandle& connection_;
  const std::uint64_t deadline_ = MonotonicMicroseconds() + kActivationMicroseconds;
};

// Until this client may start a server, or reaches the one that another has started meanwhile.
Attempt Activation::AwaitLockOrServer(FileDescriptor& lock) {
  Attempt attempt{Outcome::kNoServer};
  while (!IsOverdue()) {
    lock = OwnComponentDirectory().TryLock(StartLockFile(plan_));
    const bool is_busy = !lock.is_open() && errno == EWOULDBLOCK;
    attempt = TryConnect(plan_, connection_);
    if (IsFinal(attempt) || !is_busy) return attempt;
    poll(nullptr, 0, kLookAgainMs);
  }
  return attempt;
}

// One start: kNoServer when the server never came up, kUsedUp when it served and has ended, kLost
// when it was reached and ended otherwise.
Attempt Activation::StartServer(const std::vector<std::string>& command,
                                const FileDescriptor& lock) {
  ServerProcess server;
  if (ftruncate(lock.get(), 0) != 0 || !server.Start(command)) return {Outcome::kNoServer};
  bool was_seen = false, has_ended = false;
  while (!has_ended && !IsOverdue()) {
    // Looked at before the connection: a server that has ended is given one last chance.
    has_ended = server.HasEnded(0);
    const Attempt attempt = TryConnect(plan_, connection_);
    if (IsFinal(attempt)) return attempt;
    was_seen = was_seen || attempt.outcome == Outcome::kLost;
    if (!has_ended) server.HasEnded(kLookAgainMs);
  }
  struct stat marks;
  if (fstat(lock.get(), &marks) == 0 && marks.st_size > 0) return {Outcome::kUsedUp};
  return {was_seen ? Outcome::kLost : Outcome::kNoServer};
}

// The service is started by its manager, once for all who ask, also for those who come again
// because it was ending.
HRESULT Activation::UseService() {
  while (!IsOverdue()) {
    if (StartServiceOverDBus(plan_, kActivationMicroseconds) == DBusAnswer::kRefused) break;
    const Attempt attempt = TryConnect(plan_, connection_);
    if (IsFinal(attempt)) return attempt.status;
    poll(nullptr, 0, kLookAgainMs);
  }
  return CO_E_SERVER_EXEC_FAILURE;
}

HRESULT Activation::UsePlainServer(const std::string& command) {
  FileDescriptor lock;
  Attempt attempt = AwaitLockOrServer(lock);
  if (!lock.is_open()) return IsFinal(attempt) ? attempt.status : CO_E_SERVER_EXEC_FAILURE;
  if (!IsFinal(attempt)) attempt = StartServers(command, lock);
  // While the lock is held: the file could be another client's afterwards.
  OwnComponentDirectory().Remove(StartLockFile(plan_));
  return IsFinal(attempt) ? attempt.status : CO_E_SERVER_EXEC_FAILURE;
}

// Servers that others have used up are not counted: each has shown that the next will come too, and
// has served somebody, so that who waits gets ahead.
Attempt Activation::StartServers(const std::string& command, const FileDescriptor& lock) {
  std::vector<std::string> words = SplitCommand(command);
  words.emplace_back(kEmbedding);
  Attempt attempt{Outcome::kNoServer};
  for (int lost = 0; lost < kMaxLostStarts && !IsOverdue();) {
    attempt = StartServer(words, lock);
    if (IsFinal(attempt) || attempt.outcome == Outcome::kNoServer) break;
    if (attempt.outcome == Outcome::kLost) ++lost;
  }
  return attempt;
}

HRESULT Activation::Run(const RegisteredClass& registered) {
  const Attempt attempt = TryConnect(plan_, connection_);
  if (IsFinal(attempt)) return attempt.status;
  return registered.service.empty() ? UsePlainServer(registered.command) : UseService();
}

}  // namespace

HRESULT ActivateClass(REFCLSID id, const ClassPlan& plan, DBusHandle& connection) {
  const RegisteredClass registered = FindRegisteredClass(id);
  if (registered.command.empty()) return REGDB_E_CLASSNOTREG;
  return Activation(plan, connection).Run(registered);
}

}  // namespace linux_host
