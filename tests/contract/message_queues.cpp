#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/contract/kernel_handles.h"

namespace {

using contract::ErrorOf;
using contract::kPatienceMs;

constexpr wchar_t kClass[] = L"WirefoxContractWindow";

// What the window procedure has seen since a test last looked.
std::vector<UINT>& Seen() {
  static thread_local std::vector<UINT> seen;
  return seen;
}

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM w_param, LPARAM l_param) {
  Seen().push_back(message);
  if (message == WM_APP) return 42;
  return DefWindowProcW(window, message, w_param, l_param);
}

ATOM Register() {
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = Procedure;
  window_class.lpszClassName = kClass;
  return RegisterClassExW(&window_class);
}

class MessageQueues : public testing::Test {
 protected:
  void SetUp() override {
    window_ = Create(kClass);
    ASSERT_NE(nullptr, window_);
    Drain();
  }
  void TearDown() override {
    if (window_) DestroyWindow(window_);
    Drain();
  }

  static HWND Create(LPCWSTR name) {
    return CreateWindowExW(0, name, L"title", WS_POPUP, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr,
                           nullptr);
  }

  static void Drain() {
    while (Next(nullptr) != 0) {
    }
    Seen().clear();
  }

  static void Post(UINT message, WPARAM w_param = 0, LPARAM l_param = 0) {
    EXPECT_TRUE(PostThreadMessageW(GetCurrentThreadId(), message, w_param, l_param));
  }

  // The next message of the filter, removed; 0: none.
  static UINT Next(HWND filter) {
    MSG message;
    return PeekMessageW(&message, filter, 0, 0, PM_REMOVE) ? message.message : 0;
  }

  // Waits for a message of the filter, which must be this one.
  static void ExpectNext(HWND window, UINT message, WPARAM w_param, LPARAM l_param,
                         HWND filter = nullptr) {
    MSG next;
    ASSERT_EQ(message == WM_QUIT ? 0 : 1, GetMessageW(&next, filter, 0, 0));
    EXPECT_EQ(window, next.hwnd);
    EXPECT_EQ(message, next.message);
    EXPECT_EQ(w_param, next.wParam);
    EXPECT_EQ(l_param, next.lParam);
  }

  static inline const ATOM atom_ = Register();
  HWND window_ = nullptr;
};

TEST_F(MessageQueues, MessagesComeInTheOrderInWhichTheyWerePosted) {
  Post(WM_APP + 1, 11, 12);
  Post(WM_QUIT, 7);
  Post(WM_APP + 2, 0, -1);
  MSG message;
  EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE)) << "looks and leaves it";
  ExpectNext(nullptr, WM_APP + 1, 11, 12);
  ExpectNext(nullptr, WM_QUIT, 7, 0);
  ExpectNext(nullptr, WM_APP + 2, 0, -1);
  EXPECT_EQ(0U, Next(nullptr));
}

TEST_F(MessageQueues, WindowFilterLeavesMessagesOfTheThreadAndOfOtherWindows) {
  const HWND other = Create(kClass);
  Post(WM_APP + 1);
  SetTimer(other, 1, 10, nullptr);
  SetTimer(window_, 2, 10, nullptr);
  for (int i = 0; i < 3; ++i) ExpectNext(window_, WM_TIMER, 2, 0, window_);
  ExpectNext(other, WM_TIMER, 1, 0, other);
  EXPECT_EQ(WM_APP + 1U, Next(reinterpret_cast<HWND>(static_cast<LONG_PTR>(-1))));
  DestroyWindow(other);
}

TEST_F(MessageQueues, AnotherThreadWakesTheLoop) {
  const DWORD loop = GetCurrentThreadId();
  std::thread other([&] {
    for (WPARAM i = 0; i < 500; ++i) {
      PostThreadMessageW(loop, WM_APP + 1, i, 0);
      if (i % 50 == 0) Sleep(1);  // lets the loop block now and then
    }
    PostThreadMessageW(loop, WM_QUIT, 0, 0);
  });
  WPARAM next = 0;
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) EXPECT_EQ(next++, message.wParam);
  EXPECT_EQ(500U, next);
  other.join();
}

TEST_F(MessageQueues, ThreadWithoutAQueueCannotBePostedTo) {
  const contract::Handle go = contract::AutoResetEvent();
  const contract::Handle ready = contract::AutoResetEvent();
  DWORD id = 0;
  std::thread other([&] {
    id = GetCurrentThreadId();
    SetEvent(ready);
    WaitForSingleObject(go, kPatienceMs);
  });
  WaitForSingleObject(ready, kPatienceMs);
  EXPECT_FALSE(PostThreadMessageW(id, WM_APP, 0, 0));
  SetEvent(go);
  other.join();
  EXPECT_FALSE(PostThreadMessageW(id, WM_APP, 0, 0)) << "nor one that has ended";
}

TEST_F(MessageQueues, DispatchingCallsTheWindowsProcedure) {
  MSG message = {};
  message.hwnd = window_;
  message.message = WM_APP;
  EXPECT_FALSE(TranslateMessage(&message));
  EXPECT_EQ(42, DispatchMessageW(&message));
  EXPECT_EQ(std::vector<UINT>{WM_APP}, Seen());
}

TEST_F(MessageQueues, WindowIsToldOfItsBeginningAndItsEnd) {
  const HWND window = Create(kClass);
  const auto count = [](UINT message) { return std::count(Seen().begin(), Seen().end(), message); };
  EXPECT_EQ(1, count(WM_NCCREATE));
  EXPECT_EQ(1, count(WM_CREATE));
  Seen().clear();
  EXPECT_TRUE(DestroyWindow(window));
  EXPECT_EQ(1, count(WM_DESTROY));
  EXPECT_EQ(1, count(WM_NCDESTROY));
}

TEST_F(MessageQueues, TimersEndWithTheirWindow) {
  SetTimer(window_, 5, 10, nullptr);
  const HWND gone = window_;
  EXPECT_TRUE(DestroyWindow(std::exchange(window_, nullptr)));
  Sleep(50);
  EXPECT_EQ(0U, Next(nullptr));
  EXPECT_FALSE(DestroyWindow(gone));
  EXPECT_FALSE(KillTimer(gone, 5));
}

TEST_F(MessageQueues, WindowOfAnotherThreadIsNotDestroyed) {
  std::thread([&] { EXPECT_EQ(5U, ErrorOf(DestroyWindow(window_))); }).join();
}

TEST_F(MessageQueues, ClassesAreKnownByTheirName) {
  EXPECT_EQ(0, Register());
  EXPECT_EQ(1410U, GetLastError());
  EXPECT_EQ(nullptr, Create(L"WirefoxContractNoSuchClass"));
  const HWND by_atom = Create(MAKEINTRESOURCEW(atom_));
  EXPECT_NE(nullptr, by_atom);
  DestroyWindow(by_atom);
}

TEST_F(MessageQueues, TimerTicksAgainAndAgainButWaitsForEachTickToBeTaken) {
  constexpr UINT_PTR kId = 0x11112222;
  EXPECT_EQ(kId, SetTimer(window_, kId, 20, nullptr));
  for (int i = 0; i < 2; ++i) ExpectNext(window_, WM_TIMER, kId, 0);
  // However many periods go by, one tick waits, behind what was posted.
  SetTimer(window_, kId, 200, nullptr);
  Sleep(700);
  Post(WM_APP + 1);
  EXPECT_EQ(WM_APP + 1U, Next(nullptr));
  EXPECT_EQ(UINT{WM_TIMER}, Next(window_));
  EXPECT_EQ(0U, Next(window_));
  EXPECT_TRUE(KillTimer(window_, kId));
  EXPECT_FALSE(KillTimer(window_, kId));
}

}  // namespace
