#include "platform/windows/test_host/taken_calls.h"

// A call of a DLL goes through a pointer named __imp_ and its name, which the import library
// defines unless the program does. Here the program does. This is an object of the program and not
// a member of a library, so that it always comes first.

#define TEST_HOST_TAKE(name) constinit auto __imp_##name = &test_host::taken::name

extern "C" {

TEST_HOST_TAKE(Sleep);
TEST_HOST_TAKE(GetTickCount);
TEST_HOST_TAKE(GetTickCount64);
TEST_HOST_TAKE(GetLocalTime);
TEST_HOST_TAKE(WaitForSingleObject);
TEST_HOST_TAKE(WaitForMultipleObjects);
TEST_HOST_TAKE(CreateEventW);
TEST_HOST_TAKE(SetEvent);
TEST_HOST_TAKE(CreateMutexW);
TEST_HOST_TAKE(OpenMutexW);
TEST_HOST_TAKE(ReleaseMutex);
TEST_HOST_TAKE(CreateThread);
TEST_HOST_TAKE(CloseHandle);
TEST_HOST_TAKE(CreateFileW);
TEST_HOST_TAKE(DeviceIoControl);
TEST_HOST_TAKE(GetOverlappedResult);
TEST_HOST_TAKE(CancelIoEx);
TEST_HOST_TAKE(SetupDiGetClassDevsW);
TEST_HOST_TAKE(SetupDiEnumDeviceInterfaces);
TEST_HOST_TAKE(SetupDiGetDeviceInterfaceDetailW);
TEST_HOST_TAKE(SetupDiDestroyDeviceInfoList);
TEST_HOST_TAKE(RegisterDeviceNotificationW);
TEST_HOST_TAKE(SetTimer);
TEST_HOST_TAKE(KillTimer);
TEST_HOST_TAKE(PeekMessageW);
TEST_HOST_TAKE(MessageBoxW);
TEST_HOST_TAKE(RegisterEventSourceW);
TEST_HOST_TAKE(ReportEventW);
TEST_HOST_TAKE(DeregisterEventSource);

}  // extern "C"
