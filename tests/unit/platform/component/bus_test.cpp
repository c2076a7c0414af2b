// The class as tools of the message bus meet it: on its own socket and on a bus.

#include <poll.h>
#include <sys/stat.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <utility>

#include "platform/linux/dbus/dbus_link.h"
#include "tests/support/process.h"
#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

using linux_host::DBusHandle;
using linux_host::MessageHandle;

constexpr char kName[] = "org.wirefox.Sample";
constexpr char kPath[] = "/org/wirefox/Sample";
constexpr char kV1[] = "org.wirefox.ISample_v1";
constexpr char kV2[] = "org.wirefox.ISample_v2";
constexpr char kV3[] = "org.wirefox.ISample_v3";

struct Reply {
  MessageHandle message;
  std::string error;  // name, empty on success
  std::string text;
};

// `destination` is null on the class's own socket, where it is optional.
template <typename... Values>
Reply Call(const DBusHandle& bus, const char* destination, const char* interface,
           const char* method, const char* types, Values... values) {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  sd_bus_call_method(bus.get(), destination, kPath, interface, method, &error, &reply, types,
                     values...);
  Reply result{MessageHandle(reply), error.name ? error.name : "",
               error.message ? error.message : ""};
  sd_bus_error_free(&error);
  return result;
}

// Of a reply that begins with one.
int NumberIn(const Reply& reply) {
  int number = -1;
  EXPECT_EQ(reply.error, "") << reply.text;
  if (reply.message) sd_bus_message_read(reply.message.get(), "i", &number);
  return number;
}

std::string Introspect(const DBusHandle& bus, const char* destination) {
  const Reply reply =
      Call(bus, destination, "org.freedesktop.DBus.Introspectable", "Introspect", "");
  const char* xml = "";
  if (reply.message) sd_bus_message_read(reply.message.get(), "s", &xml);
  return xml;
}

// Sends a call whose reply is wanted but never taken.
template <typename... Values>
void Send(const DBusHandle& bus, const char* destination, const char* method, const char* types,
          Values... values) {
  const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
  EXPECT_GE(sd_bus_call_method_async(bus.get(), nullptr, destination, kPath, kV1, method, ignore,
                                     nullptr, types, values...),
            0);
  EXPECT_GE(sd_bus_flush(bus.get()), 0);
}

class ComponentSocket : public ComponentTest {
 protected:
  // A tool that takes the socket for a bus says Hello first.
  DBusHandle Open(bool says_hello = false) {
    sd_bus* bus = nullptr;
    sd_bus_new(&bus);
    sd_bus_set_address(bus, ("unix:path=" + SocketPath()).c_str());
    sd_bus_set_bus_client(bus, says_hello);
    EXPECT_GE(sd_bus_start(bus), 0);
    return DBusHandle(bus);
  }

  ServerThread server_;
};

TEST_F(ComponentSocket, AToolThatSaysHelloCanCallByName) {
  const DBusHandle bus = Open(true);
  const char* name = nullptr;
  ASSERT_GE(sd_bus_get_unique_name(bus.get(), &name), 0);
  EXPECT_EQ(NumberIn(Call(bus, kName, kV2, "Subtract", "ii", 5, 3)), 2);
}

TEST_F(ComponentSocket, IntrospectionShowsEveryVersionWithItsOwnMethods) {
  const std::string xml = Introspect(Open(), nullptr);
  for (const char* part : {
           "<interface name=\"org.wirefox.ISample_v3\">\n"
           "  <method name=\"Fail\">\n"
           "   <arg type=\"x\" name=\"value\" direction=\"in\"/>\n"
           "   <arg type=\"i\" name=\"result\" direction=\"out\"/>\n"
           "  </method>\n"
           " </interface>",
           "<interface name=\"org.wirefox.ISample_v2\">\n  <method name=\"Subtract\">",
           "<arg type=\"(ynyy)\" name=\"status\" direction=\"out\">\n"
           "    <annotation name=\"org.wirefox.Type\" value=\"Status\"/>\n   </arg>",
           "<annotation name=\"org.wirefox.Enumeration.Colour\" value=\"GREEN=272\"/>",
           "<annotation name=\"org.wirefox.Record.Status\" value=\"first:y, second:n, third:y, ",
           "<arg type=\"ay\" name=\"RESULT\" direction=\"out\"/>",
       }) {
    EXPECT_NE(xml.find(part), xml.npos) << part;
  }
}

TEST_F(ComponentSocket, WrongCallsAreAnsweredWithErrors) {
  const DBusHandle bus = Open();
  const std::string bus_error = "org.freedesktop.DBus.Error.";
  EXPECT_EQ(Call(bus, nullptr, kV2, "Subtract", "is", 1, "x").error, bus_error + "InvalidArgs");
  EXPECT_EQ(Call(bus, nullptr, kV2, "Subtract", "").error, bus_error + "InvalidArgs");
  EXPECT_EQ(Call(bus, nullptr, kV2, "Multiply", "").error, bus_error + "UnknownMethod");
  const LONG arrays = sample::g_arrays_made;
  EXPECT_EQ(Call(bus, nullptr, kV1, "MakeBytes", "x", std::int64_t{(64 << 20) + 1}).error,
            bus_error + "LimitsExceeded");
  EXPECT_EQ(sample::g_arrays_made, arrays) << "it is refused before the method's own work";
  const Reply failed = Call(bus, nullptr, kV1, "Fail", "i", static_cast<int>(E_FAIL));
  EXPECT_EQ(failed.error, "org.wirefox.Error.HRESULT");
  EXPECT_EQ(failed.text, "0x80004005");
  EXPECT_EQ(NumberIn(Call(bus, nullptr, kV2, "Subtract", "ii", 2, 1)), 1);
}

TEST_F(ComponentSocket, ACallWithoutAnInterfaceReachesTheOnlyMethodOfItsName) {
  const DBusHandle bus = Open();
  EXPECT_EQ(NumberIn(Call(bus, nullptr, nullptr, "Subtract", "ii", 5, 3)), 2);
  const std::pair<const char*, const char*> errors[] = {
      {"Subtract", "InvalidArgs"}, {"Fail", "UnknownMethod"}, {"Multiply", "UnknownMethod"}};
  for (const auto& [method, error] : errors) {
    EXPECT_EQ(Call(bus, nullptr, nullptr, method, "").error,
              std::string("org.freedesktop.DBus.Error.") + error);
  }
}

TEST_F(ComponentSocket, WhoDoesNotTakeItsRepliesKeepsNobodyWaiting) {
  const DBusHandle lazy = Open();
  for (int i = 0; i < 2; ++i) Send(lazy, nullptr, "MakeBytes", "x", std::int64_t{32 << 20});
  // The first reply has begun, and is larger than what a socket holds.
  pollfd reply = {sd_bus_get_fd(lazy.get()), POLLIN, 0};
  EXPECT_EQ(poll(&reply, 1, -1), 1);
  EXPECT_TRUE(Answers(CreateSample()));
}

// On a bus of the test's own, which the process takes for its session's.
class ComponentBus : public ComponentTest {
 protected:
  ComponentBus() {
    setenv("DBUS_SESSION_BUS_ADDRESS", daemon_.ReadLine().value_or("").c_str(), 1);
    server_ = std::make_unique<ServerThread>();
  }
  DBusHandle Open() {
    sd_bus* bus = nullptr;
    EXPECT_GE(sd_bus_open_user(&bus), 0);
    // The server takes its name after it has begun to serve.
    while (sd_bus_get_name_creds(bus, kName, 0, nullptr) < 0 && sd_bus_is_open(bus) > 0) {
    }
    return DBusHandle(bus);
  }

  support::Process daemon_{
      {"/usr/bin/dbus-daemon", "--session", "--nofork", "--nosyslog", "--print-address"}};
  std::unique_ptr<ServerThread> server_;
};

TEST_F(ComponentBus, ANameThatCallsHasAnObjectUntilItGoes) {
  DBusHandle first = Open();
  DBusHandle second = Open();
  NumberIn(Call(first, kName, kV1, "CountObjects", ""));
  EXPECT_EQ(NumberIn(Call(second, kName, kV1, "CountObjects", "")), 2);
  EXPECT_EQ(NumberIn(Call(first, kName, kV1, "CountObjects", "")), 2);
  first.reset();
  sample::AwaitObjectCount(1);
  const SamplePointer own = CreateSample();
  ASSERT_NE(own, nullptr) << "the private socket serves beside the bus";
  EXPECT_EQ(sample::ObjectCount(), 2);
  second.reset();
  sample::AwaitObjectCount(1);
}

TEST_F(ComponentBus, LookingAtTheClassCountsAsAClientToo) {
  DBusHandle bus = Open();
  EXPECT_NE(Introspect(bus, kName).find(kV3), std::string::npos);
  sample::AwaitObjectCount(1);
  bus.reset();
  sample::AwaitObjectCount(0);
}

TEST_F(ComponentBus, AClientThatLeavesBeforeItIsServedLeavesNoObject) {
  Send(Open(), kName, "CountObjects", "");
  const DBusHandle other = Open();
  NumberIn(Call(other, kName, kV1, "CountObjects", ""));
  sample::AwaitObjectCount(1);
}

TEST_F(ComponentBus, LargeResultsAreRefusedBelowTheBusesOwnLimit) {
  const DBusHandle bus = Open();
  // Received by a program of its own: here, in pieces and with a sanitizer's memory, it takes long.
  const std::string largest =
      std::string("dbus-send --session --print-reply --reply-timeout=100000 --dest=") + kName +
      " " + kPath + " " + kV1 + ".MakeBytes int64:" + std::to_string(31 << 20) + " >/dev/null";
  EXPECT_EQ(std::system(largest.c_str()), 0);
  EXPECT_EQ(Call(bus, kName, kV1, "MakeBytes", "x", std::int64_t{(31 << 20) + 1}).error,
            "org.freedesktop.DBus.Error.LimitsExceeded");
  EXPECT_EQ(NumberIn(Call(bus, kName, kV2, "Subtract", "ii", 2, 1)), 1);
}

// Hears the object's signals, and answers with their members and the names in them.
class Listener {
 public:
  explicit Listener(DBusHandle bus) : bus_(std::move(bus)) {
    const std::string rule = std::string("type='signal',path='") + kPath + "'";
    EXPECT_GE(sd_bus_add_match(bus_.get(), nullptr, rule.c_str(), &OnSignal, this), 0);
  }

  // Everything heard until the last of it is this, which it forgets.
  std::string HearUntil(const std::string& last) {
    int status = 1;
    while (!heard_.ends_with(last) && status > 0) {
      status = sd_bus_process(bus_.get(), nullptr);
      if (status == 0) status = sd_bus_wait(bus_.get(), 30'000'000);
    }
    return std::exchange(heard_, "");
  }

 private:
  static int OnSignal(sd_bus_message* signal, void* self, sd_bus_error*) {
    std::string& heard = static_cast<Listener*>(self)->heard_;
    heard += sd_bus_message_get_member(signal);
    if (sd_bus_message_has_signature(signal, "as") == 0) {
      sd_bus_message_skip(signal, "s");
      sd_bus_message_enter_container(signal, 'a', "{sv}");
      sd_bus_message_enter_container(signal, 'e', "sv");
      sd_bus_message_skip(signal, "s");
      sd_bus_message_enter_container(signal, 'v', "as");
    }
    const char* name;
    sd_bus_message_enter_container(signal, 'a', "s");
    while (sd_bus_message_read_basic(signal, 's', &name) > 0) heard += std::string(" ") + name;
    heard += ";";
    return 0;
  }

  DBusHandle bus_;
  std::string heard_;
};

std::string ProbesAsRead(const DBusHandle& bus) {
  const Reply reply = Call(bus, kName, "org.freedesktop.DBus.Properties", "Get", "ss",
                           "org.wirefox.SampleMonitor1", "Probes");
  if (!reply.message) return reply.error + ": " + reply.text;
  std::string names;
  const char* name;
  sd_bus_message_enter_container(reply.message.get(), 'v', "as");
  sd_bus_message_enter_container(reply.message.get(), 'a', "s");
  while (sd_bus_message_read_basic(reply.message.get(), 's', &name) > 0) names += name;
  return names;
}

// As the product does it: emptied, then line by line.
void WriteNames(const std::string& file, std::initializer_list<const char*> names) {
  std::ofstream stream(file, std::ios::binary);
  for (const char* name : names) stream << name << "\r\n" << std::flush;
}

TEST_F(ComponentBus, ListenersHearOfProbesWhateverHappensToTheirFile) {
  const DBusHandle bus = Open();
  Listener listener(Open());
  const std::string file = ProbesFile();
  const std::string unknown =
      "org.freedesktop.DBus.Error.Failed: The probes are not known: " + file +
      " is no file that this service can write.";
  EXPECT_EQ(ProbesAsRead(bus), unknown) << "it is not there yet";
  WriteNames(file, {"A"});
  EXPECT_EQ(listener.HearUntil("PropertiesChanged A;"), "Changed A;PropertiesChanged A;");
  WriteNames(file + ".new", {"B"});
  std::filesystem::rename(file + ".new", file);
  EXPECT_EQ(listener.HearUntil("PropertiesChanged B;"), "Changed B;PropertiesChanged B;");
  for (int i = 0; i < 100; ++i) WriteNames(file, {"B", "C", "D"});
  const std::string burst = listener.HearUntil("PropertiesChanged B C D;");
  EXPECT_LT(std::ranges::count(burst, ';'), 50) << "an unfinished list is none: " << burst;
  EXPECT_EQ(burst.find("Changed;"), burst.npos) << "an unfinished list is none: " << burst;
  {
    std::ofstream unfinished(file, std::ios::binary);
    unfinished << "E\r\n" << std::flush;
    EXPECT_EQ(ProbesAsRead(bus), "BCD");
  }
  EXPECT_EQ(ProbesAsRead(bus), "E") << "who asks gets what has been told";
  listener.HearUntil("PropertiesChanged E;");
  std::filesystem::remove(file);
  EXPECT_EQ(ProbesAsRead(bus), "E") << "no probe has gone with the file";
  WriteNames(file + ".new", {"E"});
  std::filesystem::rename(file + ".new", file);
  EXPECT_EQ(listener.HearUntil("Changed E;"), "Changed E;") << "one was put back at once";
  std::filesystem::rename(file, file + ".old");
  WriteNames(file, {"F"});
  EXPECT_EQ(listener.HearUntil("PropertiesChanged F;"), "Changed F;PropertiesChanged F;");
  if (geteuid() == 0) {
    EXPECT_EQ(chown(file.c_str(), 65534, 65534), 0);
  } else {
    EXPECT_EQ(chmod(file.c_str(), 0400), 0);
  }
  EXPECT_EQ(ProbesAsRead(bus), unknown) << "it is somebody else's";
  std::filesystem::remove(file);
  WriteNames(file, {"G"});
  EXPECT_EQ(ProbesAsRead(bus), "G");
  std::filesystem::remove(file);
  EXPECT_EQ(mkfifo(file.c_str(), 0600), 0);
  EXPECT_EQ(ProbesAsRead(bus), unknown) << "it is no file";
  sample::AwaitObjectCount(1);  // of who has asked; who has listened is no client
}

}  // namespace
}  // namespace component_test
