// The life of the server: started by hand, by clients and by the service manager.
#include <gtest/gtest.h>
#include <windows.h>

#include <sddl.h>
#include <winternl.h>

#include <thread>
#include <vector>

#include "tests/system_windows/client.h"
#include "tests/system_windows/installation.h"

namespace system_windows {
namespace {

using windows_host::ComPointer;

constexpr wchar_t kDeniedToAll[] = L"D:(D;;GA;;;WD)";

// A named mutex of the test's own; `descriptor` says who may open it, null: the same account.
KernelHandle NamedMutex(const wchar_t* name, const wchar_t* descriptor = nullptr) {
  SECURITY_ATTRIBUTES attributes = {sizeof(attributes), nullptr, FALSE};
  if (descriptor) {
    ConvertStringSecurityDescriptorToSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                         &attributes.lpSecurityDescriptor, nullptr);
  }
  KernelHandle mutex(CreateMutexW(&attributes, FALSE, name));
  LocalFree(attributes.lpSecurityDescriptor);
  return mutex;
}

// Handles of an object that are open in the whole system.
ULONG CountHandles(const KernelHandle& object) {
  PUBLIC_OBJECT_BASIC_INFORMATION information = {};
  NtQueryObject(object.Get(), ObjectBasicInformation, &information, sizeof(information), nullptr);
  return information.HandleCount;
}

class Server : public Installation {
 protected:
  Apartment apartment_;
};

TEST_F(Server, ThatMayNotRunEndsWithTheReason) {
  Install();
  EXPECT_EQ(Run({}), 2) << "never registered";
  {
    const KernelHandle mutex = NamedMutex(L"TzWirefoxService");
    EXPECT_EQ(Run({}), 2) << "passes the guard beside one of the same account";
  }
  Register("-Service");
  EXPECT_EQ(Run({}), ERROR_FAILED_SERVICE_CONTROLLER_CONNECT) << "a service started by hand";
}

TEST_F(Server, TellsItsVersionWhereItsOutputIsRedirectedTo) {
  Install();
  const Finished version = RunToEnd({program().string(), "--version"});
  EXPECT_EQ(version.exit_status, 0);
  EXPECT_EQ(version.out, "TzWirefoxService " WIREFOX_VERSION "\n");
}

TEST_F(Server, WhoseMutexCannotBeOpenedTellsTheUserAndEnds) {
  Install();
  const KernelHandle mutex = NamedMutex(L"TzWirefoxService", kDeniedToAll);
  Process server({program().string()});
  HWND box = nullptr;
  ASSERT_TRUE(WaitUntil([&] {
    box = FindWindowW(nullptr, L"WirefoxService Error");
    return box != nullptr;
  }));
  EXPECT_TRUE(server.IsRunning()) << "waits for the user";
  PostMessageW(box, WM_COMMAND, IDOK, 0);
  EXPECT_EQ(server.Wait(), -1);
}

TEST_F(Server, OnAWindowStationThatNobodySeesWritesTheTextInsteadOfABox) {
  Install();
  const KernelHandle mutex = NamedMutex(L"TzWirefoxService", kDeniedToAll);
  const Finished server = RunToEnd({program().string()}, {.desktop = L"WirefoxHidden\\Default"});
  EXPECT_EQ(server.exit_status, -1);
  EXPECT_EQ(server.out,
            "WirefoxService Error: The WirefoxService was unable to startup because another "
            "instance was already running.\nVerify that only one user account is trying to "
            "access it at a time.\n");
}

TEST_F(Server, StartedForAClientEndsWithItsLastOne) {
  Install();
  Register("-RegServer");
  auto first = Connect();
  ASSERT_TRUE(first);
  LONG version = 0;
  EXPECT_EQ(first->GetVersion(&version), S_OK);
  EXPECT_EQ(version, 0x02000200);
  auto second = Connect();
  // Nobody aggregates an object of another process. (A server lock from there is for unit tests:
  // Wine does not pass the call on.)
  ComPointer<IUnknown> inner;
  EXPECT_EQ(ClassObject()->CreateInstance(first.Get(), IID_IUnknown, inner.ReceiveVoid()),
            CLASS_E_NOAGGREGATION);
  const auto servers = ProcessesOf(program());
  ASSERT_EQ(servers.size(), 1u) << "one server for all clients";
  first.Reset();
  ComPointer<ITzWirefox_v1> oldest;
  ASSERT_EQ(second->QueryInterface(api::kInterfaceIdV1, oldest.ReceiveVoid()), S_OK);
  EXPECT_EQ(oldest->GetVersion(&version), S_OK);
  oldest.Reset();
  EXPECT_EQ(ProcessesOf(program()), servers);
  second.Reset();
  EXPECT_TRUE(ServiceProcessesEnd());
}

TEST_F(Server, StopWaitsForTheCallInProgress) {
  Install();
  Register("-Service");
  const auto client = Connect();
  ASSERT_TRUE(client);
  EXPECT_EQ(ServiceState(), static_cast<DWORD>(SERVICE_RUNNING)) << "started for the client";
  // The call waits for the lock of the device table, which this test holds.
  const KernelHandle lock = NamedMutex(L"WfxDeviceLock");
  ASSERT_EQ(WaitForSingleObject(lock.Get(), kPatienceMs), WAIT_OBJECT_0);
  HRESULT status = E_FAIL;
  TzErrorCode error = TzErrorCode::UNKNOWN;
  std::thread caller([&] {
    const Apartment apartment;
    SAFEARRAY* names = nullptr;
    status = client->EnumerateWirefoxs(&names, &error);
    SafeArrayDestroy(names);
  });
  // Each thread of the service that waits for the lock has a handle of its own: the one that hears
  // of probes comes every few seconds, the other one serves the call.
  EXPECT_TRUE(WaitUntil([&] { return CountHandles(lock) == 3; }));
  EXPECT_TRUE(SendControl(SERVICE_CONTROL_STOP));
  EXPECT_EQ(ServiceState(), static_cast<DWORD>(SERVICE_STOP_PENDING));
  EXPECT_EQ(ProcessesOf(program()).size(), 1u);
  ReleaseMutex(lock.Get());
  caller.join();
  EXPECT_EQ(status, S_OK);
  EXPECT_EQ(error, TzErrorCode::SUCCESS);
  EXPECT_TRUE(ServiceProcessesEnd());
}

}  // namespace
}  // namespace system_windows
