#include "tests/system/manager.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace system_test {

namespace fs = std::filesystem;

namespace {

constexpr char kNothing[] = "nothing";
constexpr int kPatienceMs = static_cast<int>(kPatience.count());

// `is_strict`: names are owned and called by who is allowed to, as on the system's bus.
std::string BusConfiguration(const fs::path& home, bool is_strict) {
  const std::string folder = home / "dbus-1";
  const std::string others = is_strict ? "deny" : "allow";
  return "<busconfig><type>session</type><listen>unix:path=" + (home / "bus").string() +
         "</listen><servicedir>" + folder + "/services</servicedir><servicedir>" + folder +
         "/system-services</servicedir><policy context=\"default\"><allow user=\"*\"/><" + others +
         " own=\"*\"/><" + others + " send_type=\"method_call\"/><allow send_type=\"signal\"/>" +
         "<allow send_requested_reply=\"true\" send_type=\"method_return\"/>" +
         "<allow send_requested_reply=\"true\" send_type=\"error\"/><allow receive_type=\"*\"/>" +
         "<allow send_destination=\"org.freedesktop.DBus\"/>" +
         "<allow own=\"org.freedesktop.systemd1\"/></policy><includedir>" + folder +
         "/system.d</includedir></busconfig>";
}

}  // namespace

NotifySocket::NotifySocket(const fs::path& path)
    : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

NotifySocket::~NotifySocket() { close(socket_); }

std::string NotifySocket::Next() {
  pollfd ready = {socket_, POLLIN, 0};
  char text[4096];
  if (poll(&ready, 1, kPatienceMs) != 1) return kNothing;
  const ssize_t length = recv(socket_, text, sizeof text, 0);
  return length < 0 ? kNothing : std::string(text, static_cast<std::size_t>(length));
}

bool NotifySocket::IsEmpty() {
  pollfd ready = {socket_, POLLIN, 0};
  return poll(&ready, 1, 0) == 0;
}

void ManagerTest::InstallService(const std::string& settings) {
  ASSERT_NO_FATAL_FAILURE(Install(settings));
  ASSERT_NO_FATAL_FAILURE(Command("-Service"));
  ASSERT_NO_FATAL_FAILURE(StartBench());
}

void ManagerTest::Command(const std::string& option) {
  const Finished finished = Run({service_path(), option});
  ASSERT_EQ(finished.exit_status, 0) << option << ": " << finished.err;
}

std::unique_ptr<Process> ManagerTest::StartService() {
  Environment with_socket = environment;
  with_socket["NOTIFY_SOCKET"] = home() / "notify";
  return std::make_unique<Process>(Words{service_path()}, with_socket, home() / "service.err");
}

std::map<std::string, std::string> ManagerTest::RegisteredFiles() const {
  std::map<std::string, std::string> files;
  for (const char* folder : {"systemd", "dbus-1"}) {
    std::error_code problem;
    for (const auto& entry : fs::recursive_directory_iterator(home() / folder, problem)) {
      if (!entry.is_directory()) {
        files[entry.path().lexically_relative(home())] = ReadFile(entry.path());
      }
    }
  }
  return files;
}

ActivatingBus::ActivatingBus(const fs::path& home, Environment environment, bool asks_systemd) {
  environment.erase("WIREFOX_HOME");
  environment.erase("WIREFOX_BUS");
  WriteFile(home / "bus.conf", BusConfiguration(home, asks_systemd && geteuid() == 0));
  Words command = {"/usr/bin/dbus-daemon", "--nofork", "--print-address",
                   std::string("--config-file=") + (home / "bus.conf").string()};
  if (asks_systemd) command.emplace_back("--systemd-activation");
  daemon_ = std::make_unique<Process>(command, environment, home / "bus.err");
  address_ = daemon_->ReadLine().value_or("");
  EXPECT_NE(address_, "") << ReadFile(home / "bus.err");
  if (!asks_systemd) return;
  EXPECT_GE(sd_bus_new(&connection_), 0);
  EXPECT_GE(sd_bus_set_address(connection_, address_.c_str()), 0);
  EXPECT_GE(sd_bus_set_bus_client(connection_, 1), 0);
  EXPECT_GE(sd_bus_start(connection_), 0);
  EXPECT_GE(sd_bus_request_name(connection_, "org.freedesktop.systemd1", 0), 0);
}

ActivatingBus::~ActivatingBus() { sd_bus_flush_close_unref(connection_); }

std::string ActivatingBus::NextRequest() {
  for (;;) {
    sd_bus_message* message = nullptr;
    const int processed = sd_bus_process(connection_, &message);
    const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> held(
        message, &sd_bus_message_unref);
    const char* unit = nullptr;
    if (message != nullptr &&
        sd_bus_message_is_signal(message, "org.freedesktop.systemd1.Activator",
                                 "ActivationRequest") > 0 &&
        sd_bus_message_read(message, "s", &unit) >= 0) {
      return unit;
    }
    if (processed < 0) return kNothing;
    if (processed == 0 && sd_bus_wait(connection_, kPatienceMs * 1000ull) <= 0) return kNothing;
  }
}

}  // namespace system_test
