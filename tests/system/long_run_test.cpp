// A server that runs for long, with clients that come and go: what they did leaves nothing behind
// in it.
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

#include "tests/system/harness.h"

namespace system_test {
namespace {

namespace fs = std::filesystem;

constexpr int kObjects = 10000;
constexpr int kObjectsOfATransfer = 10;
constexpr int kTransfersOfASession = 10;

// What the server's memory may grow by over half of the objects: less than 13 bytes of each.
constexpr long kMaxGrowthKiB = 64;

constexpr char kName[] = "org.wirefox.TzWirefox";
constexpr char kPath[] = "/org/wirefox/TzWirefox";
constexpr char kFirst[] = "org.wirefox.ITzWirefox_v1";
constexpr char kBoard[] = "EVK0001";

// One client, which is one object of the server.
class Connection {
 public:
  explicit Connection(const fs::path& socket) {
    sd_bus_new(&bus_);
    sd_bus_set_address(bus_, (std::string("unix:path=") + socket.string()).c_str());
    sd_bus_start(bus_);
  }
  ~Connection() { sd_bus_flush_close_unref(bus_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // The reply, when it has `types` and they end with success; null otherwise. The arguments are
  // those of sd_bus_message_append.
  template <typename... Arguments>
  std::shared_ptr<sd_bus_message> Call(const char* method, const char* types,
                                       const Arguments&... arguments) {
    sd_bus_message* call = nullptr;
    sd_bus_message* reply = nullptr;
    sd_bus_message_new_method_call(bus_, &call, kName, kPath, kFirst, method);
    sd_bus_message_append(call, arguments...);
    sd_bus_call(bus_, call, UINT64_MAX, nullptr, &reply);
    sd_bus_message_unref(call);
    const std::shared_ptr<sd_bus_message> owned(reply, sd_bus_message_unref);
    return reply && sd_bus_message_has_signature(reply, types) > 0 ? owned : nullptr;
  }

 private:
  sd_bus* bus_ = nullptr;
};

class LongRun : public OnBench {
 protected:
  bool UseObject(int number) {
    Connection client(home() / "run" / "org.wirefox.TzWirefox.sock");
    const char* location = nullptr;
    const auto where = client.Call("GetDevicesChangedLocation", "s", "");
    if (!where || sd_bus_message_read(where.get(), "s", &location) < 0) return false;
    if (location != devices_changed_path()) return false;
    return number % kObjectsOfATransfer != 0 || Transfer(client, number / kObjectsOfATransfer);
  }

  // With texts and arrays in both directions.
  bool Transfer(Connection& client, int number) {
    if (!client.Call("EnumerateDevices", "asi", "s", kBoard)) return false;
    const auto acquired =
        client.Call("AcquireDevice", "xi", "sii", kBoard, 0, static_cast<int>(getpid()));
    std::int64_t session = 0;
    if (!acquired || sd_bus_message_read(acquired.get(), "x", &session) < 0) return false;
    const auto byte = static_cast<std::uint8_t>(number);
    for (const int direction : {0, 1}) {
      const auto moved = client.Call("BulkTransfer", "ayi", "iayyx", 1, 4, byte, byte, byte, byte,
                                     direction, session);
      const void* bytes = nullptr;
      std::size_t size = 0;
      std::int32_t error = -1;
      if (!moved || sd_bus_message_read_array(moved.get(), 'y', &bytes, &size) < 0 ||
          sd_bus_message_read(moved.get(), "i", &error) < 0 || error != 0 ||
          std::string(static_cast<const char*>(bytes), size) !=
              std::string(4, static_cast<char>(byte))) {
        return false;
      }
    }
    // The mutex of each session is kept, so that they are few. While one lasts, its owner gets it
    // again.
    return number % kTransfersOfASession != 0 || client.Call("ReleaseDevice", "i", "x", session);
  }

  void UseObjects(int count) {
    for (int i = 0; i < count; ++i) ASSERT_TRUE(UseObject(i)) << i;
  }

  std::size_t Descriptors() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(Proc() / "fd"), {}));
  }

  long MemoryKiB() const {
    std::istringstream status(ReadFile(Proc() / "status"));
    for (std::string word; status >> word;) {
      long value = 0;
      if (word == "RssAnon:" && status >> value) return value;
    }
    return -1;
  }

 private:
  fs::path Proc() const { return fs::path("/proc") / std::to_string(ServicePids().at(0)); }
};

TEST_F(LongRun, TenThousandClientsLeaveNothingBehind) {
  Json({"mode", kBoard, "VSER"});
  ASSERT_NO_FATAL_FAILURE(UseObjects(kObjects / 100));
  const std::size_t descriptors = Descriptors();
  ASSERT_NO_FATAL_FAILURE(UseObjects(kObjects / 2));
  const long half = MemoryKiB();
  ASSERT_GT(half, 0);
  ASSERT_NO_FATAL_FAILURE(UseObjects(kObjects / 2));
  EXPECT_LE(MemoryKiB(), half + kMaxGrowthKiB);
  EXPECT_TRUE(WaitUntil([&] { return Descriptors() <= descriptors; }))
      << Descriptors() << " after " << descriptors;
}

}  // namespace
}  // namespace system_test
