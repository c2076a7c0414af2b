#include "tests/system/manager.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace system_test {

namespace fs = std::filesystem;

namespace {

constexpr char kNothing[] = "nothing";
constexpr int kPatienceMs = static_cast<int>(support::kPatience.count());

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
         "<allow own=\"org.freedesktop.systemd1\"/>" +
         "<allow send_destination=\"org.freedesktop.systemd1\"/></policy><includedir>" + folder +
         "/system.d</includedir></busconfig>";
}

constexpr char kManagerPath[] = "/org/freedesktop/systemd1";
constexpr char kUnitPath[] = "/org/freedesktop/systemd1/unit/TzWirefoxService_2eservice";

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
  return std::make_unique<Process>(
      Words{service_path()},
      support::Surroundings{.environment = with_socket, .error_file = home() / "service.err"});
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

// Its connection is served on a thread of its own, until the bus ends.
class ActivatingBus::Systemd {
 public:
  explicit Systemd(const std::string& address) {
    sd_bus_new(&connection_);
    sd_bus_set_address(connection_, address.c_str());
    sd_bus_set_bus_client(connection_, 1);
    sd_bus_start(connection_);
    sd_bus_add_filter(connection_, nullptr, &OnMessage, this);
    sd_bus_add_object_vtable(connection_, nullptr, kManagerPath, "org.freedesktop.systemd1.Manager",
                             kManagerTable, this);
    sd_bus_add_object_vtable(connection_, nullptr, kUnitPath, "org.freedesktop.systemd1.Unit",
                             kUnitTable, this);
    EXPECT_GE(sd_bus_request_name(connection_, "org.freedesktop.systemd1", 0), 0);
    thread_ = std::thread([this] {
      while (sd_bus_process(connection_, nullptr) > 0 || sd_bus_wait(connection_, UINT64_MAX) > 0) {
      }
    });
  }
  ~Systemd() {
    thread_.join();
    sd_bus_unref(connection_);
  }

  std::string NextRequest() {
    std::unique_lock lock(mutex_);
    if (!asked_.wait_for(lock, support::kPatience, [&] { return !requests_.empty(); }))
      return kNothing;
    const std::string unit = requests_.front();
    requests_.pop_front();
    return unit;
  }
  void SetUnit(Unit unit) {
    const std::lock_guard lock(mutex_);
    unit_ = std::move(unit);
  }
  std::string TakeCalls() {
    const std::lock_guard lock(mutex_);
    return std::exchange(calls_, "");
  }

 private:
  static int OnMessage(sd_bus_message* message, void* self, sd_bus_error*) {
    const char* unit = nullptr;
    if (sd_bus_message_is_signal(message, "org.freedesktop.systemd1.Activator",
                                 "ActivationRequest") <= 0 ||
        sd_bus_message_read(message, "s", &unit) < 0) {
      return 0;
    }
    Systemd& systemd = *static_cast<Systemd*>(self);
    const std::lock_guard lock(systemd.mutex_);
    systemd.requests_.emplace_back(unit);
    systemd.asked_.notify_all();
    return 1;
  }

  static int OnCall(sd_bus_message* message, void* self, sd_bus_error* error) {
    return static_cast<Systemd*>(self)->Answer(message, error);
  }

  int Answer(sd_bus_message* message, sd_bus_error* error) {
    const std::lock_guard lock(mutex_);
    const std::string call = sd_bus_message_get_member(message);
    calls_ += call;
    for (const char* text; sd_bus_message_read(message, "s", &text) > 0;) {
      calls_ += std::string(" ") + text;
    }
    calls_ += '\n';
    if (unit_.is_silent) return 1;
    if (call == "Reload") return sd_bus_reply_method_return(message, nullptr);
    if (unit_.state.empty()) {
      return sd_bus_error_set(error, "org.freedesktop.systemd1.NoSuchUnit", "Not loaded.");
    }
    if (call == "GetUnit") return sd_bus_reply_method_return(message, "o", kUnitPath);
    if (unit_.refuses_stop) return sd_bus_error_set(error, SD_BUS_ERROR_ACCESS_DENIED, "No.");
    unit_.stop();
    return sd_bus_reply_method_return(message, "o", "/org/freedesktop/systemd1/job/1");
  }

  static int OnProperty(sd_bus*, const char*, const char*, const char* name, sd_bus_message* reply,
                        void* self, sd_bus_error*) {
    Systemd& systemd = *static_cast<Systemd*>(self);
    const std::lock_guard lock(systemd.mutex_);
    const bool is_state = std::string(name) == "ActiveState";
    const std::string& value = is_state ? systemd.unit_.state : systemd.unit_.file;
    return sd_bus_message_append(reply, "s", value.c_str());
  }

  static constexpr sd_bus_vtable kManagerTable[] = {
      SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD("GetUnit", "s", "o", &OnCall, 0),
      SD_BUS_METHOD("StopUnit", "ss", "o", &OnCall, 0),
      SD_BUS_METHOD("Reload", "", "", &OnCall, 0),
      SD_BUS_VTABLE_END,
  };
  static constexpr sd_bus_vtable kUnitTable[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_PROPERTY("ActiveState", "s", &OnProperty, 0, 0),
      SD_BUS_PROPERTY("FragmentPath", "s", &OnProperty, 0, 0),
      SD_BUS_VTABLE_END,
  };

  sd_bus* connection_ = nullptr;
  std::mutex mutex_;
  std::condition_variable asked_;
  std::deque<std::string> requests_;
  std::string calls_;
  Unit unit_;
  std::thread thread_;
};

ActivatingBus::ActivatingBus(const fs::path& home, Environment environment, bool asks_systemd) {
  environment.erase("WIREFOX_HOME");
  environment.erase("WIREFOX_BUS");
  WriteFile(home / "bus.conf", BusConfiguration(home, asks_systemd && geteuid() == 0));
  Words command = {"/usr/bin/dbus-daemon", "--nofork", "--print-address",
                   std::string("--config-file=") + (home / "bus.conf").string()};
  if (asks_systemd) command.emplace_back("--systemd-activation");
  daemon_ = std::make_unique<Process>(
      command, support::Surroundings{.environment = environment, .error_file = home / "bus.err"});
  address_ = daemon_->ReadLine().value_or("");
  EXPECT_NE(address_, "") << ReadFile(home / "bus.err");
  if (asks_systemd) systemd_ = std::make_unique<Systemd>(address_);
}

ActivatingBus::~ActivatingBus() { daemon_.reset(); }

std::string ActivatingBus::NextRequest() { return systemd_->NextRequest(); }
void ActivatingBus::SetUnit(Unit unit) { systemd_->SetUnit(std::move(unit)); }
std::string ActivatingBus::TakeCalls() { return systemd_->TakeCalls(); }

}  // namespace system_test
