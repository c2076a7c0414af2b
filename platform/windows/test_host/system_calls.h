// The system's own calls behind those that the test host takes over.
//
// A call that is taken over cannot be reached by its name in this program any more, so it is looked
// up in its DLL. The look-up works before any initialiser has run, because the C library's start-up
// calls some of them.
#pragma once

#include <windows.h>

#include <atomic>

namespace test_host {

template <typename Function>
class SystemCall {
 public:
  constexpr SystemCall(const char* module, const char* name) : module_(module), name_(name) {}

  template <typename... Arguments>
  auto operator()(Arguments... arguments) {
    return Resolve()(arguments...);
  }

 private:
  Function Resolve() {
    Function function = function_.load(std::memory_order_relaxed);
    if (!function) {
      HMODULE module = GetModuleHandleA(module_);
      if (!module) module = LoadLibraryA(module_);
      function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name_)));
      function_.store(function, std::memory_order_relaxed);
    }
    return function;
  }

  const char* module_;
  const char* name_;
  std::atomic<Function> function_ = nullptr;
};

namespace system_call {

#define TEST_HOST_SYSTEM_CALL(module, name) \
  inline constinit SystemCall<decltype(&::name)> name(module, #name)

TEST_HOST_SYSTEM_CALL("kernel32.dll", CloseHandle);
TEST_HOST_SYSTEM_CALL("kernel32.dll", CreateEventW);
TEST_HOST_SYSTEM_CALL("kernel32.dll", CreateFileW);
TEST_HOST_SYSTEM_CALL("kernel32.dll", CreateMutexW);
TEST_HOST_SYSTEM_CALL("kernel32.dll", CreateThread);
TEST_HOST_SYSTEM_CALL("kernel32.dll", GetLocalTime);
TEST_HOST_SYSTEM_CALL("kernel32.dll", GetTickCount);
TEST_HOST_SYSTEM_CALL("kernel32.dll", GetTickCount64);
TEST_HOST_SYSTEM_CALL("kernel32.dll", OpenMutexW);
TEST_HOST_SYSTEM_CALL("kernel32.dll", ReleaseMutex);
TEST_HOST_SYSTEM_CALL("kernel32.dll", ResetEvent);
TEST_HOST_SYSTEM_CALL("kernel32.dll", SetEvent);
TEST_HOST_SYSTEM_CALL("kernel32.dll", Sleep);
TEST_HOST_SYSTEM_CALL("kernel32.dll", WaitForMultipleObjects);
TEST_HOST_SYSTEM_CALL("kernel32.dll", WaitForSingleObject);
TEST_HOST_SYSTEM_CALL("user32.dll", KillTimer);
TEST_HOST_SYSTEM_CALL("user32.dll", PeekMessageW);
TEST_HOST_SYSTEM_CALL("user32.dll", SetTimer);

#undef TEST_HOST_SYSTEM_CALL

}  // namespace system_call
}  // namespace test_host
