// The class as tools of the message bus meet it: on its own socket and on a bus.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "platform/linux/bus_link.h"
#include "platform/linux/bus_text.h"
#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

using linux_host::BusHandle;
using linux_host::MessageHandle;

constexpr char kPath[] = "/org/wirefox/Sample";
constexpr char kV1[] = "org.wirefox.ISample_v1";
constexpr char kV2[] = "org.wirefox.ISample_v2";
constexpr char kV3[] = "org.wirefox.ISample_v3";

struct Reply {
  MessageHandle message;
  std::string error;  // name, empty on success
  std::string text;
};

template <typename... Values>
Reply Call(sd_bus* bus, const char* destination, const char* interface, const char* method,
           const char* types, Values... values) {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  sd_bus_call_method(bus, destination, kPath, interface, method, &error, &reply, types, values...);
  Reply result{MessageHandle(reply), error.name == nullptr ? "" : error.name,
               error.message == nullptr ? "" : error.message};
  sd_bus_error_free(&error);
  return result;
}

std::string Introspect(sd_bus* bus, const char* destination) {
  const Reply reply =
      Call(bus, destination, "org.freedesktop.DBus.Introspectable", "Introspect", "");
  const char* xml = "";
  if (reply.message != nullptr) sd_bus_message_read(reply.message.get(), "s", &xml);
  return xml;
}

class ComponentSocket : public ComponentTest {
 protected:
  void SetUp() override {
    ComponentTest::SetUp();
    server_ = std::make_unique<ServerThread>();
  }
  void TearDown() override {
    server_.reset();
    ComponentTest::TearDown();
  }

  int Connect() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, SocketPath().c_str(), sizeof address.sun_path - 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return descriptor;
  }

  // As a tool connects that takes the socket for a bus: it says Hello first.
  BusHandle Open(bool says_hello) {
    sd_bus* bus = nullptr;
    sd_bus_new(&bus);
    sd_bus_set_address(bus, ("unix:path=" + SocketPath()).c_str());
    sd_bus_set_bus_client(bus, says_hello);
    EXPECT_GE(sd_bus_start(bus), 0);
    return BusHandle(bus);
  }

  std::unique_ptr<ServerThread> server_;
};

TEST_F(ComponentSocket, AToolThatSaysHelloCanCallByName) {
  const BusHandle bus = Open(true);
  const char* name = nullptr;
  ASSERT_GE(sd_bus_get_unique_name(bus.get(), &name), 0);
  const Reply reply = Call(bus.get(), "org.wirefox.Sample", kV2, "Sum", "ii", 2, 3);
  ASSERT_EQ(reply.error, "") << reply.text;
  int sum = 0;
  EXPECT_GE(sd_bus_message_read(reply.message.get(), "i", &sum), 0);
  EXPECT_EQ(sum, 5);
}

TEST_F(ComponentSocket, MessagesCarryInputsAndOutputsInDeclarationOrder) {
  const BusHandle bus = Open(false);
  const Reply echo =
      Call(bus.get(), nullptr, kV1, "Echo", "sinyxi", "name", -1, -2, 0xFD, std::int64_t{-4}, 272);
  ASSERT_EQ(echo.error, "") << echo.text;
  EXPECT_STREQ(sd_bus_message_get_signature(echo.message.get(), 1), "sinyxi");
  const Reply status = Call(bus.get(), nullptr, kV1, "GetStatus", "i", 0x20);
  ASSERT_EQ(status.error, "");
  EXPECT_STREQ(sd_bus_message_get_signature(status.message.get(), 1), "(yynyynnynyyyyyyyy)i");
  const Reply strings = Call(bus.get(), nullptr, kV1, "EchoStrings", "as", 2, "a", "b");
  ASSERT_EQ(strings.error, "");
  EXPECT_STREQ(sd_bus_message_get_signature(strings.message.get(), 1), "asi");
}

TEST_F(ComponentSocket, IntrospectionShowsEveryVersionWithItsOwnMethods) {
  const BusHandle bus = Open(false);
  const std::string xml = Introspect(bus.get(), nullptr);
  auto Section = [&](const std::string& interface) {
    const std::size_t begin = xml.find("<interface name=\"" + interface + "\">");
    if (begin == std::string::npos) return std::string();
    return xml.substr(begin, xml.find("</interface>", begin) - begin);
  };
  EXPECT_EQ(Section(kV2),
            "<interface name=\"org.wirefox.ISample_v2\">\n"
            "  <method name=\"Sum\">\n"
            "   <arg type=\"i\" name=\"a\" direction=\"in\"/>\n"
            "   <arg type=\"i\" name=\"b\" direction=\"in\"/>\n"
            "   <arg type=\"i\" name=\"sum\" direction=\"out\"/>\n"
            "  </method>\n"
            " ");
  EXPECT_EQ(Section(kV3),
            "<interface name=\"org.wirefox.ISample_v3\">\n"
            "  <method name=\"Fail\">\n"
            "   <arg type=\"x\" name=\"value\" direction=\"in\"/>\n"
            "   <arg type=\"i\" name=\"result\" direction=\"out\"/>\n"
            "  </method>\n"
            " ");
  const std::string v1 = Section(kV1);
  EXPECT_NE(v1.find("<arg type=\"(yynyynnynyyyyyyyy)\" name=\"status\" direction=\"out\"/>"),
            std::string::npos);
  EXPECT_NE(v1.find("<arg type=\"ay\" name=\"RESULT\" direction=\"out\"/>"), std::string::npos);
}

TEST_F(ComponentSocket, WrongCallsAreAnsweredWithErrors) {
  const BusHandle bus = Open(false);
  EXPECT_EQ(Call(bus.get(), nullptr, kV2, "Sum", "is", 1, "x").error,
            "org.freedesktop.DBus.Error.InvalidArgs");
  EXPECT_EQ(Call(bus.get(), nullptr, kV2, "Sum", "").error,
            "org.freedesktop.DBus.Error.InvalidArgs");
  EXPECT_EQ(Call(bus.get(), nullptr, kV2, "Product", "").error,
            "org.freedesktop.DBus.Error.UnknownMethod");
  const Reply failed = Call(bus.get(), nullptr, kV1, "Fail", "i", static_cast<int>(E_FAIL));
  EXPECT_EQ(failed.error, "org.wirefox.Error.HRESULT");
  EXPECT_EQ(failed.text, "0x80004005");
  EXPECT_EQ(Call(bus.get(), nullptr, kV1, "MakeBytes", "x", std::int64_t{(64 << 20) + 1}).error,
            "org.freedesktop.DBus.Error.LimitsExceeded");
  EXPECT_EQ(Call(bus.get(), nullptr, kV2, "Sum", "ii", 1, 2).error, "");
}

TEST_F(ComponentSocket, GarbageEndsItsConnectionOnly) {
  const SamplePointer client = CreateSample();
  ASSERT_NE(client, nullptr);
  const std::string garbage[] = {
      std::string("\0AUTH NONSENSE\r\n", 16),
      std::string("GET / HTTP/1.0\r\n\r\n"),
      std::string("\0AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n", 30) + std::string(64, '\xFF'),
      std::string(70'000, '\0'),
  };
  for (const std::string& bytes : garbage) {
    const int connection = Connect();
    (void)!send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    shutdown(connection, SHUT_WR);
    char answer[256];
    while (read(connection, answer, sizeof answer) > 0) {
    }
    close(connection);
    LONG sum = 0;
    EXPECT_EQ(client->Sum(4, 5, &sum), S_OK);
    EXPECT_EQ(sum, 9);
  }
}

TEST_F(ComponentSocket, WhoDoesNotTakeItsRepliesKeepsNobodyWaiting) {
  const BusHandle lazy = Open(false);
  for (int i = 0; i < 20; ++i) {
    sd_bus_message* created = nullptr;
    sd_bus_message_new_method_call(lazy.get(), &created, nullptr, kPath, kV1, "MakeBytes");
    const MessageHandle call(created);
    sd_bus_message_append(created, "x", std::int64_t{1 << 20});
    ASSERT_GE(sd_bus_send(lazy.get(), created, nullptr), 0);
  }
  ASSERT_GE(sd_bus_flush(lazy.get()), 0);
  const SamplePointer client = CreateSample();
  ASSERT_NE(client, nullptr);
  LONG sum = 0;
  EXPECT_EQ(client->Sum(1, 2, &sum), S_OK);
}

// A bus of the test's own.
class BusDaemon {
 public:
  BusDaemon() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    process_ = fork();
    if (process_ == 0) {
      dup2(ends[1], 3);
      execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nosyslog",
             "--print-address=3", nullptr);
      _exit(127);
    }
    close(ends[1]);
    for (char c; read(ends[0], &c, 1) == 1 && c != '\n';) address_ += c;
    close(ends[0]);
  }
  ~BusDaemon() {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
  }
  const std::string& address() const { return address_; }

 private:
  pid_t process_;
  std::string address_;
};

class ComponentBus : public ComponentTest {
 protected:
  void SetUp() override {
    ComponentTest::SetUp();
    ASSERT_NE(daemon_.address(), "") << "dbus-daemon could not be started";
    setenv("DBUS_SESSION_BUS_ADDRESS", daemon_.address().c_str(), 1);
    server_ = std::make_unique<ServerThread>();
  }
  void TearDown() override {
    server_.reset();
    ComponentTest::TearDown();
  }

  BusHandle Open() {
    sd_bus* bus = nullptr;
    EXPECT_GE(sd_bus_open_user(&bus), 0);
    AwaitName(bus);
    return BusHandle(bus);
  }

  // The server takes its name after it has begun to serve.
  void AwaitName(sd_bus* bus) {
    while (sd_bus_get_name_creds(bus, "org.wirefox.Sample", 0, nullptr) < 0) {
      ASSERT_TRUE(sd_bus_is_open(bus));
    }
  }

  BusDaemon daemon_;
  std::unique_ptr<ServerThread> server_;
};

TEST_F(ComponentBus, ANameThatCallsHasAnObjectUntilItGoes) {
  BusHandle first = Open();
  BusHandle second = Open();
  int count = 0;
  for (sd_bus* bus : {first.get(), second.get(), first.get()}) {
    const Reply reply = Call(bus, "org.wirefox.Sample", kV1, "CountObjects", "");
    ASSERT_EQ(reply.error, "") << reply.text;
    sd_bus_message_read(reply.message.get(), "i", &count);
  }
  EXPECT_EQ(count, 2);
  first.reset();
  sample::AwaitObjectCount(1);
  const SamplePointer own = CreateSample();
  ASSERT_NE(own, nullptr) << "the private socket serves beside the bus";
  EXPECT_EQ(sample::ObjectCount(), 2);
  second.reset();
  sample::AwaitObjectCount(1);
}

TEST_F(ComponentBus, LookingAtTheClassCountsAsAClientToo) {
  BusHandle bus = Open();
  EXPECT_NE(Introspect(bus.get(), "org.wirefox.Sample").find(kV3), std::string::npos);
  sample::AwaitObjectCount(1);
  bus.reset();
  sample::AwaitObjectCount(0);
}

TEST_F(ComponentBus, AClientThatLeavesBeforeItIsServedLeavesNoObject) {
  {
    const BusHandle bus = Open();
    sd_bus_message* created = nullptr;
    ASSERT_GE(sd_bus_message_new_method_call(bus.get(), &created, "org.wirefox.Sample", kPath, kV1,
                                             "CountObjects"),
              0);
    const MessageHandle call(created);
    ASSERT_GE(sd_bus_send(bus.get(), created, nullptr), 0);
    ASSERT_GE(sd_bus_flush(bus.get()), 0);
  }
  const BusHandle other = Open();
  const Reply reply = Call(other.get(), "org.wirefox.Sample", kV1, "CountObjects", "");
  EXPECT_EQ(reply.error, "");
  sample::AwaitObjectCount(1);
}

TEST_F(ComponentBus, LargeResultsAreRefusedBelowTheBusesOwnLimit) {
  const BusHandle bus = Open();
  // Received by a program of its own: here, in pieces and with a sanitizer's memory, it takes long.
  const std::string largest =
      std::string("dbus-send --session --print-reply --reply-timeout=100000") +
      " --dest=org.wirefox.Sample " + kPath + " " + kV1 +
      ".MakeBytes int64:" + std::to_string(31 << 20) + " >/dev/null";
  EXPECT_EQ(std::system(largest.c_str()), 0);
  EXPECT_EQ(
      Call(bus.get(), "org.wirefox.Sample", kV1, "MakeBytes", "x", std::int64_t{(31 << 20) + 1})
          .error,
      "org.freedesktop.DBus.Error.LimitsExceeded");
  EXPECT_EQ(Call(bus.get(), "org.wirefox.Sample", kV2, "Sum", "ii", 1, 2).error, "");
}

TEST(BusText, CarriesEveryUnitAndRestoresIt) {
  std::wstring all;
  for (wchar_t unit = 0; unit < 0xFFFF; ++unit) all += unit;
  // Low ones after high ones in this order: pairs are tested below.
  std::string text(linux_host::BusTextSize(all.data(), all.size()), '\0');
  linux_host::WriteBusText(all.data(), all.size(), text.data());
  EXPECT_EQ(text.find('\0'), std::string::npos);
  std::wstring back(linux_host::WideTextLength(text.data(), text.size()), L'\0');
  linux_host::WriteWideText(text.data(), text.size(), back.data());
  EXPECT_TRUE(back == all);
}

TEST(BusText, SurvivesMalformedBytesWithinItsBounds) {
  const std::string cases[] = {"\x80",          "\xC3",         "\xE2\x82",         "\xF0\x9F\x98",
                               "\xC0\x80",      "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF\xFE",
                               "a\xE2\x28\xA1z"};
  for (const std::string& bytes : cases) {
    std::wstring wide(linux_host::WideTextLength(bytes.data(), bytes.size()), L'\0');
    linux_host::WriteWideText(bytes.data(), bytes.size(), wide.data());
    EXPECT_NE(wide.find(L'\xFFFD'), std::wstring::npos);
  }
}

}  // namespace
}  // namespace component_test
