#include "platform/linux/window/window.h"

#include <map>
#include <string>
#include <utility>

namespace linux_host {
namespace {

struct WindowClass {
  ATOM atom;
  WNDPROC procedure;
};

// Guarded by the dispatcher lock. Never destroyed: threads that outlive main still use it.
struct Windows {
  std::map<std::wstring, WindowClass> classes;
  std::map<HWND, WindowEntry> windows;
  ATOM next_atom = 0xC000;
  // Window handles are not used again, so that a late message never reaches a stranger.
  std::uintptr_t next_window = 0x10010;
};

Windows& TheWindows() {
  static auto& windows = *new Windows;
  return windows;
}

bool IsAtom(LPCWSTR name) { return reinterpret_cast<std::uintptr_t>(name) <= 0xFFFF; }

const WindowClass* FindClass(LPCWSTR name) {
  const auto& classes = TheWindows().classes;
  if (!IsAtom(name)) {
    const auto found = classes.find(name);
    return found == classes.end() ? nullptr : &found->second;
  }
  for (const auto& [text, window_class] : classes) {
    if (window_class.atom == reinterpret_cast<std::uintptr_t>(name)) return &window_class;
  }
  return nullptr;
}

LRESULT Call(HWND window, UINT message, WPARAM w_param, LPARAM l_param) {
  WNDPROC procedure;
  {
    const DispatcherLock lock;
    const WindowEntry* const entry = FindWindowEntry(window);
    if (!entry) return 0;
    procedure = entry->procedure;
  }
  return procedure(window, message, w_param, l_param);
}

// The window and what belongs to it go. With the lock held.
void Forget(HWND window) {
  const auto found = TheWindows().windows.find(window);
  if (found == TheWindows().windows.end()) return;
  found->second.queue->ForgetWindow(window);
  TheWindows().windows.erase(found);
}

HWND Fail(DWORD error) {
  SetLastError(error);
  return nullptr;
}

}  // namespace

WindowEntry* FindWindowEntry(HWND window) {
  const auto found = TheWindows().windows.find(window);
  return found == TheWindows().windows.end() ? nullptr : &found->second;
}

void ForgetWindowsOf(DispatcherLock&, const MessageQueue& queue) {
  auto& windows = TheWindows().windows;
  for (auto next = windows.begin(); next != windows.end();) {
    const auto current = next++;
    if (current->second.queue == &queue) Forget(current->first);
  }
}

void SendLater(DispatcherLock& lock, HWND window, UINT message, WPARAM w_param, LPARAM l_param,
               std::shared_ptr<const void> keep) {
  WindowEntry* const entry = FindWindowEntry(window);
  if (!entry) return;
  entry->queue->Send(lock, [window, message, w_param, l_param, keep = std::move(keep)] {
    Call(window, message, w_param, l_param);
  });
}

}  // namespace linux_host

using namespace linux_host;

ATOM RegisterClassExW(const WNDCLASSEXW* window_class) {
  if (!window_class || window_class->cbSize != sizeof(WNDCLASSEXW) || !window_class->lpfnWndProc ||
      IsAtom(window_class->lpszClassName)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const DispatcherLock lock;
  Windows& windows = TheWindows();
  const WindowClass added = {windows.next_atom, window_class->lpfnWndProc};
  if (!windows.classes.emplace(window_class->lpszClassName, added).second) {
    SetLastError(ERROR_CLASS_ALREADY_EXISTS);
    return 0;
  }
  ++windows.next_atom;
  return added.atom;
}

HWND CreateWindowExW(DWORD extended_style, LPCWSTR class_name, LPCWSTR title, DWORD style, int x,
                     int y, int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                     LPVOID parameter) {
  if (parent != HWND_MESSAGE) return Fail(ERROR_INVALID_WINDOW_HANDLE);
  MessageQueue& queue = ThreadMessageQueue();
  HWND window;
  {
    const DispatcherLock lock;
    const WindowClass* const window_class = FindClass(class_name);
    if (!window_class) return Fail(ERROR_CANNOT_FIND_WND_CLASS);
    Windows& windows = TheWindows();
    window = reinterpret_cast<HWND>(windows.next_window);
    windows.next_window += 2;
    windows.windows[window] = {&queue, window_class->procedure};
  }
  CREATESTRUCTW created = {
      parameter, instance,   menu,          parent, height, width, y, x, static_cast<LONG>(style),
      title,     class_name, extended_style};
  const auto l_param = reinterpret_cast<LPARAM>(&created);
  if (Call(window, WM_NCCREATE, 0, l_param) && Call(window, WM_CREATE, 0, l_param) != -1) {
    return window;
  }
  const DispatcherLock lock;
  Forget(window);
  return nullptr;
}

BOOL DestroyWindow(HWND window) {
  // Before the lock, which a thread that is new to the layer takes to make itself known.
  const auto* const self = &CurrentThread();
  {
    const DispatcherLock lock;
    const WindowEntry* const entry = FindWindowEntry(window);
    if (!entry || &entry->queue->owner() != self) {
      SetLastError(entry ? ERROR_ACCESS_DENIED : ERROR_INVALID_WINDOW_HANDLE);
      return FALSE;
    }
  }
  Call(window, WM_DESTROY, 0, 0);
  Call(window, WM_NCDESTROY, 0, 0);
  const DispatcherLock lock;
  Forget(window);
  return TRUE;
}

LRESULT DefWindowProcW(HWND, UINT message, WPARAM, LPARAM) {
  return message == WM_NCCREATE ? TRUE : 0;
}

LRESULT DispatchMessageW(const MSG* message) {
  if (message->message == WM_TIMER && message->lParam != 0) {
    const auto procedure = reinterpret_cast<TIMERPROC>(message->lParam);
    procedure(message->hwnd, WM_TIMER, message->wParam, GetTickCount());
    return 0;
  }
  return message->hwnd ? Call(message->hwnd, message->message, message->wParam, message->lParam)
                       : 0;
}
