// The test clock of platform/test_host.h on Windows: the threads that take part, what they wait
// for, and when time moves.
//
// A thread that takes part waits for handles together with an event of its own; the system does the
// waiting. The clock only knows who is blocked until when, moves when all of them are, and wakes
// those whose time has come or whose handles may have changed, to look again.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>

namespace test_host::clock {

inline constexpr std::uint64_t kNever = ~std::uint64_t{0};

// Whether a TestClock lives; any thread, without a lock.
bool Lives();
std::uint64_t NowMs();

// Whether the calling thread takes part and a TestClock lives, so that its waits are the clock's.
bool GovernsThisThread();

// The calling thread takes part from now on, or no longer.
void Join();
void Leave();
bool TakesPart();

// The same for a thread that CreateThread makes: counted from before it runs until its handle is
// signalled.
void ExpectThread();
void UnexpectThread();
void BeginExpectedThread();
void EndThread();

void Begin(std::uint64_t now_ms);
void End();
void Advance(std::uint64_t ms);

// Runs `action` at a time of the clock on the thread that moves it. Returns an id.
std::uint64_t CallAt(std::uint64_t time_ms, std::function<void()> action);
// When it returns, the action has run or never will; from within the action it returns at once.
void CancelCall(std::uint64_t id);

// WaitForMultipleObjects for one of the handles, on the clock. At most 63 handles, also none.
DWORD Wait(const HANDLE* handles, DWORD count, DWORD timeout_ms);

// A handle that others may wait for has just become signalled.
void WakeWaiters();

}  // namespace test_host::clock
