// The calls of the service control manager: rights, refusals, and the unit file as their one trace;
// and the quoting of that file and of the message buses' own.
#include <gtest/gtest.h>
#include <windows.h>

#include <winsvc.h>

#include <functional>

#include "platform/linux/services/registration_texts.h"
#include "tests/unit/platform/scratch_home.h"

namespace {

namespace fs = std::filesystem;

constexpr wchar_t kName[] = L"ServiceOfATest";

class ServiceManager : public testing::Test {
 protected:
  ServiceManager() {
    // No systemd of the machine is asked.
    for (const char* bus : {"DBUS_SYSTEM_BUS_ADDRESS", "DBUS_SESSION_BUS_ADDRESS"}) {
      setenv(bus, ("unix:path=" + home_.Path("no-bus")).c_str(), 1);
    }
    unsetenv("WIREFOX_BUS");
    manager_ = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    EXPECT_NE(manager_, nullptr);
  }
  ~ServiceManager() override { CloseServiceHandle(manager_); }

  SC_HANDLE Create(LPCWSTR name = kName, DWORD access = SERVICE_ALL_ACCESS) {
    return CreateServiceW(manager_, name, L"A test", access, SERVICE_WIN32_OWN_PROCESS,
                          SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, L"\"/opt/a b\" -x", nullptr,
                          nullptr, L"RPCSS\0", nullptr, nullptr);
  }

  fs::path unit_path() const { return home_.directory() / "systemd" / "ServiceOfATest.service"; }

  const ScratchHome home_;
  SC_HANDLE manager_;
};

TEST_F(ServiceManager, AServiceIsItsUnitFile) {
  EXPECT_EQ(OpenServiceW(manager_, kName, SERVICE_QUERY_CONFIG), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
  const SC_HANDLE created = Create();
  ASSERT_NE(created, nullptr);
  const std::string text = home_.Read("systemd/ServiceOfATest.service");
  EXPECT_NE(text.find("Description=A test\nWants=dbus.socket\nAfter=dbus.socket\n"), text.npos);
  EXPECT_NE(text.find("ExecStart=:\"/opt/a b\" \"-x\"\n"), text.npos) << text;
  EXPECT_EQ(Create(), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SERVICE_EXISTS});

  const SC_HANDLE opened = OpenServiceW(manager_, kName, SERVICE_STOP | DELETE);
  SERVICE_STATUS status = {};
  EXPECT_TRUE(QueryServiceStatus(created, &status));
  EXPECT_EQ(status.dwCurrentState, DWORD{SERVICE_STOPPED});
  EXPECT_FALSE(ControlService(opened, SERVICE_CONTROL_STOP, &status));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SERVICE_NOT_ACTIVE});
  EXPECT_EQ(status.dwServiceType, DWORD{SERVICE_WIN32_OWN_PROCESS});
  EXPECT_EQ(status.dwCurrentState, DWORD{SERVICE_STOPPED});
  EXPECT_TRUE(DeleteService(opened));
  EXPECT_FALSE(fs::exists(unit_path()));
  EXPECT_FALSE(DeleteService(created));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SERVICE_MARKED_FOR_DELETE});
  for (const SC_HANDLE handle : {created, opened}) EXPECT_TRUE(CloseServiceHandle(handle));
  EXPECT_FALSE(CloseServiceHandle(opened));
}

TEST_F(ServiceManager, RefusalsHaveTheManagersOwnErrors) {
  const SC_HANDLE connected = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  const SC_HANDLE service = Create(kName, SERVICE_QUERY_CONFIG);
  ASSERT_NE(service, nullptr);
  SERVICE_STATUS status = {};
  const auto create = [&](SC_HANDLE manager, LPCWSTR name, DWORD start_type, LPCWSTR path,
                          LPCWSTR needs, LPCWSTR account) {
    return CreateServiceW(manager, name, name, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                          start_type, SERVICE_ERROR_NORMAL, path, nullptr, nullptr, needs, account,
                          nullptr) != nullptr;
  };
  const struct {
    const char* name;
    std::function<bool()> call;
    DWORD error;
  } kCases[] = {
      {"another machine", [] { return OpenSCManagerW(L"other", nullptr, 1) != nullptr; }, 1722},
      {"another database", [] { return OpenSCManagerW(nullptr, L"Failed", 1) != nullptr; }, 1065},
      {"a service for a manager", [&] { return OpenServiceW(service, kName, 1) != nullptr; }, 6},
      {"a path for a name", [&] { return OpenServiceW(manager_, L"../x", 1) != nullptr; }, 123},
      {"no name", [&] { return OpenServiceW(manager_, nullptr, 1) != nullptr; }, 123},
      {"may only connect", [&] { return create(connected, L"B", 3, L"/b", L"\0", nullptr); }, 5},
      {"started with the host", [&] { return create(manager_, L"B", 2, L"/b", L"\0", nullptr); },
       87},
      {"no path", [&] { return create(manager_, L"B", 3, L"b", L"\0", nullptr); }, 87},
      {"needs what is not here",
       [&] { return create(manager_, L"B", 3, L"/b", L"Tcpip\0", nullptr); }, 87},
      {"an account", [&] { return create(manager_, L"B", 3, L"/b", L"\0", L"guest"); }, 87},
      {"may not stop", [&] { return ControlService(service, 1, &status) != FALSE; }, 5},
      {"not a stop", [&] { return ControlService(service, 2, &status) != FALSE; }, 1052},
      {"may not ask", [&] { return QueryServiceStatus(service, &status) != FALSE; }, 5},
      {"may not delete", [&] { return DeleteService(service) != FALSE; }, 5},
      {"a manager for a service", [&] { return DeleteService(manager_) != FALSE; }, 6},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    SetLastError(0);
    EXPECT_FALSE(test.call());
    EXPECT_EQ(GetLastError(), test.error);
  }
  EXPECT_TRUE(fs::exists(unit_path()));
  for (const SC_HANDLE handle : {service, connected}) CloseServiceHandle(handle);
}

std::string LineOf(const std::string& text, const std::string& key) {
  const std::size_t start = text.find("\n" + key + "=");
  if (start == text.npos) return "";
  return text.substr(start + 1, text.find('\n', start + 1) - start - 1);
}

TEST(RegistrationTexts, TheKernelKnowsOfUsbBeforeTheMachinesUnitNamesItsFiles) {
  const std::string unit = linux_host::UnitText({.command = {"/s"}, .is_the_machines = true});
  EXPECT_EQ(LineOf(unit, "Wants"), "Wants=modprobe@usbcore.service");
  EXPECT_EQ(LineOf(unit, "After"), "After=modprobe@usbcore.service");
  EXPECT_EQ(LineOf(unit, "DeviceAllow"), "DeviceAllow=char-usb_device rw");
  EXPECT_EQ(LineOf(linux_host::UnitText({.command = {"/s"}}), "Wants"), "");
}

TEST(RegistrationTexts, EveryPathComesThroughTheQuoting) {
  const std::pair<const char*, const char*> cases[] = {
      {"/opt/a", R"("/opt/a")"},
      {"/a b/$HOME/5%d", R"("/a b/$HOME/5%%d")"},
      {"/it's", R"(/bin/sh -c "exec \"$0\" \"$@\"" "/it's")"},
      {"/\"q\"\\z", R"(/bin/sh -c "exec \"$0\" \"$@\"" "/\"q\"\\z")"},
      {"/two\nlines", R"(/bin/sh -c "exec \"$0\" \"$@\"" "/two\x0alines")"},
  };
  for (const auto& [path, words] : cases) {
    EXPECT_EQ(LineOf(linux_host::UnitText({.command = {path, "-x"}}), "ExecStart"),
              std::string("ExecStart=:") + words + " \"-x\"");
  }
  EXPECT_EQ(LineOf(linux_host::ActivationText("a.b", {"/it's\n\\"}, {}), "Exec"),
            R"(Exec='/it'"'"'s\n\\')");
  const linux_host::Variables variables = {{"WIREFOX_HOME", "/it's 5%"},
                                           {"WIREFOX_BUS", "sim:/\"b\""}};
  const std::string unit = linux_host::UnitText({.command = {"/s"}, .variables = variables});
  EXPECT_NE(unit.find("\nEnvironment=\"WIREFOX_HOME=/it's 5%%\"\n"
                      "Environment=\"WIREFOX_BUS=sim:/\\\"b\\\"\"\n"),
            unit.npos)
      << unit;
  EXPECT_EQ(LineOf(linux_host::ActivationText("a.b", {"/k=v", "-x"}, variables), "Exec"),
            R"(Exec=/bin/sh -c 'export "$1" "$2"; shift 2; exec "$@"' sh )"
            R"('WIREFOX_HOME=/it'"'"'s 5%' 'WIREFOX_BUS=sim:/"b"' '/k=v' '-x')");
}

}  // namespace
