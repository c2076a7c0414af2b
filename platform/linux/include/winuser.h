// Message queues, message-only windows, timers and device notifications.
//
// A thread has a message queue from the first time that it looks for a message, creates a window or
// sets a timer; before that nothing can be posted to it (error 1444). Windows belong to the thread
// that created them and end with it. A thread takes part in sending only as the receiver of device
// notifications, which are dispatched whenever it looks at its queue.
#pragma once

#include <minwindef.h>
#include <winbase.h>

#define WM_NULL 0x0000
#define WM_CREATE 0x0001
#define WM_DESTROY 0x0002
#define WM_QUIT 0x0012
#define WM_NCCREATE 0x0081
#define WM_NCDESTROY 0x0082
#define WM_TIMER 0x0113
#define WM_DEVICECHANGE 0x0219
#define WM_USER 0x0400
#define WM_APP 0x8000

#define PM_NOREMOVE 0x0000
#define PM_REMOVE 0x0001
#define WS_POPUP 0x80000000L
#define HWND_MESSAGE ((HWND)(LONG_PTR)-3)
#define DEVICE_NOTIFY_WINDOW_HANDLE 0x00000000

#define MAKEINTRESOURCEW(i) ((LPWSTR)((ULONG_PTR)((WORD)(i))))

struct POINT {
  LONG x;
  LONG y;
};

struct MSG {
  HWND hwnd;  // null: posted to the thread itself
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
  DWORD time;  // GetTickCount when it was posted
  POINT pt;    // always 0, 0: this host has no pointer
};
typedef MSG *PMSG, *LPMSG;

typedef LRESULT(CALLBACK* WNDPROC)(HWND window, UINT message, WPARAM w_param, LPARAM l_param);
typedef void(CALLBACK* TIMERPROC)(HWND window, UINT message, UINT_PTR id, DWORD time);

struct WNDCLASSEXW {
  UINT cbSize;
  UINT style;
  WNDPROC lpfnWndProc;
  int cbClsExtra;
  int cbWndExtra;
  HINSTANCE hInstance;
  HICON hIcon;
  HCURSOR hCursor;
  HBRUSH hbrBackground;
  LPCWSTR lpszMenuName;
  LPCWSTR lpszClassName;
  HICON hIconSm;
};

struct CREATESTRUCTW {
  LPVOID lpCreateParams;
  HINSTANCE hInstance;
  HMENU hMenu;
  HWND hwndParent;
  int cy;
  int cx;
  int y;
  int x;
  LONG style;
  LPCWSTR lpszName;
  LPCWSTR lpszClass;
  DWORD dwExStyle;
};
typedef CREATESTRUCTW* LPCREATESTRUCTW;

typedef PVOID HDEVNOTIFY;

extern "C" {

// Error 1410 when the name is taken in this process, 87 when size or procedure are wrong.
ATOM WINAPI RegisterClassExW(const WNDCLASSEXW* window_class);
// `parent` is HWND_MESSAGE: there are only message-only windows (else error 1400). The class is
// given by name or by atom; error 1407 when there is none. WM_NCCREATE and WM_CREATE reach the
// procedure during the call; FALSE to the first or -1 to the second undoes the window.
HWND WINAPI CreateWindowExW(DWORD extended_style, LPCWSTR class_name, LPCWSTR title, DWORD style,
                            int x, int y, int width, int height, HWND parent, HMENU menu,
                            HINSTANCE instance, LPVOID parameter);
// Error 1400 when there is no such window, 5 when it belongs to another thread. Its messages,
// timers and notifications go with it.
BOOL WINAPI DestroyWindow(HWND window);
LRESULT WINAPI DefWindowProcW(HWND window, UINT message, WPARAM w_param, LPARAM l_param);

// `window` null: messages of the thread and all its windows; (HWND)-1: those posted to the thread
// itself; otherwise of that window alone (error 1400 when there is none). Order: device
// notifications (dispatched within), posted messages, timers.
BOOL WINAPI PeekMessageW(LPMSG message, HWND window, UINT first, UINT last, UINT remove);
// Waits for a message. 0 for WM_QUIT, -1 on failure. While it waits, the thread's message loop
// sources (platform/linux/message_loop.h) are served.
BOOL WINAPI GetMessageW(LPMSG message, HWND window, UINT first, UINT last);
BOOL WINAPI TranslateMessage(const MSG* message);
LRESULT WINAPI DispatchMessageW(const MSG* message);
BOOL WINAPI PostThreadMessageW(DWORD thread_id, UINT message, WPARAM w_param, LPARAM l_param);

// Periods below 10 ms become 10 ms. A timer has at most one message waiting. `window` belongs to
// the calling thread; null: the thread itself, and the id is given by the system.
UINT_PTR WINAPI SetTimer(HWND window, UINT_PTR id, UINT period_ms, TIMERPROC procedure);
BOOL WINAPI KillTimer(HWND window, UINT_PTR id);

// `recipient` is a window of this process, `filter` a DEV_BROADCAST_DEVICEINTERFACE_W with the
// class to watch, `flags` DEVICE_NOTIFY_WINDOW_HANDLE. Ends with the window. Each arrival and
// removal reaches the window as WM_DEVICECHANGE, in the order of the bus.
HDEVNOTIFY WINAPI RegisterDeviceNotificationW(HANDLE recipient, LPVOID filter, DWORD flags);

}  // extern "C"
