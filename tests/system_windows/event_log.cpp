#include "tests/system_windows/event_log.h"

#include <gtest/gtest.h>

#include <utility>

#include "tests/system_windows/process.h"

namespace system_windows {
namespace {

constexpr std::uint8_t kBreakpoint = 0xCC;
constexpr DWORD kLookAgainMs = 20;
// Any that is not null: nobody but the functions here looks at it.
constexpr DWORD64 kSourceHandle = 0x5EED;

// Where arguments from the fifth on stand, from the stack pointer at the function's first byte.
constexpr std::uint64_t Argument(int number) { return 8 * static_cast<std::uint64_t>(number); }

}  // namespace

EventLogOf::EventLogOf(DWORD process_id) : process_id_(process_id), debugger_([this] { Run(); }) {
  EXPECT_TRUE(WaitUntil([this] { return watching_.load(); }));
}

EventLogOf::~EventLogOf() {
  ending_ = true;
  debugger_.join();
}

std::vector<std::wstring> EventLogOf::Events() const {
  const std::lock_guard lock(mutex_);
  return events_;
}

void EventLogOf::Run() {
  if (!DebugActiveProcess(process_id_)) return;
  DEBUG_EVENT event = {};
  bool ended = false;
  while (!ended && !ending_) {
    if (!WaitForDebugEvent(&event, kLookAgainMs)) continue;
    bool handled = true;
    switch (event.dwDebugEventCode) {
      case CREATE_PROCESS_DEBUG_EVENT:
        process_ = event.u.CreateProcessInfo.hProcess;
        Intercept("RegisterEventSourceW", Call::kRegister);
        Intercept("ReportEventW", Call::kReport);
        watching_ = calls_.size() == 2;
        CloseHandle(event.u.CreateProcessInfo.hFile);
        break;
      case LOAD_DLL_DEBUG_EVENT:
        CloseHandle(event.u.LoadDll.hFile);
        break;
      case EXCEPTION_DEBUG_EVENT:
        handled = OnException(event);
        break;
      case EXIT_PROCESS_DEBUG_EVENT:
        ended = true;
        break;
    }
    ContinueDebugEvent(event.dwProcessId, event.dwThreadId,
                       handled ? DBG_CONTINUE : DBG_EXCEPTION_NOT_HANDLED);
  }
}

// The system's libraries lie at the same addresses in all processes.
void EventLogOf::Intercept(const char* function, Call call) {
  const auto address =
      reinterpret_cast<std::uint64_t>(GetProcAddress(GetModuleHandleW(L"advapi32.dll"), function));
  void* const place = reinterpret_cast<void*>(address);
  if (!WriteProcessMemory(process_, place, &kBreakpoint, 1, nullptr)) return;
  FlushInstructionCache(process_, place, 1);
  calls_[address] = call;
}

bool EventLogOf::OnException(const DEBUG_EVENT& event) {
  const EXCEPTION_RECORD& exception = event.u.Exception.ExceptionRecord;
  if (exception.ExceptionCode != static_cast<DWORD>(EXCEPTION_BREAKPOINT)) return false;
  const auto call = calls_.find(reinterpret_cast<std::uint64_t>(exception.ExceptionAddress));
  if (call == calls_.end()) return true;  // the one that says that the debugger is attached
  const HANDLE thread = OpenThread(THREAD_ALL_ACCESS, FALSE, event.dwThreadId);
  CONTEXT context = {};
  context.ContextFlags = CONTEXT_FULL;
  GetThreadContext(thread, &context);
  OnCall(call->second, context);
  // As the function's return would leave it.
  context.Rip = Load(context.Rsp);
  context.Rsp += 8;
  SetThreadContext(thread, &context);
  CloseHandle(thread);
  return true;
}

void EventLogOf::OnCall(Call call, CONTEXT& context) {
  if (call == Call::kRegister) {
    source_ = LoadText(context.Rdx);
    context.Rax = kSourceHandle;
    return;
  }
  std::wstring event = source_ + L"|" + std::to_wstring(context.Rdx & 0xFFFF) + L"|" +
                       std::to_wstring(context.R8 & 0xFFFF) + L"|" +
                       std::to_wstring(context.R9 & 0xFFFFFFFF);
  const std::uint64_t count = Load(context.Rsp + Argument(6)) & 0xFFFF;
  const std::uint64_t strings = Load(context.Rsp + Argument(8));
  for (std::uint64_t i = 0; i < count; ++i) event += L"|" + LoadText(Load(strings + 8 * i));
  if (Load(context.Rsp + Argument(5)) != 0) event += L"|a user";
  if ((Load(context.Rsp + Argument(7)) & 0xFFFFFFFF) != 0) event += L"|data";
  context.Rax = TRUE;
  const std::lock_guard lock(mutex_);
  events_.push_back(std::move(event));
}

std::uint64_t EventLogOf::Load(std::uint64_t address) const {
  std::uint64_t value = 0;
  ReadProcessMemory(process_, reinterpret_cast<void*>(address), &value, sizeof(value), nullptr);
  return value;
}

std::wstring EventLogOf::LoadText(std::uint64_t address) const {
  std::wstring text;
  for (wchar_t c = 0;; address += sizeof(c)) {
    if (!ReadProcessMemory(process_, reinterpret_cast<void*>(address), &c, sizeof(c), nullptr) ||
        c == 0) {
      return text;
    }
    text += c;
  }
}

}  // namespace system_windows
