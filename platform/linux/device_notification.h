// Windows that are told of devices of the probe driver that come and go.
#pragma once

#include <windows.h>

namespace linux_host {

// The window is gone. With the dispatcher lock held.
void ForgetNotificationsOf(HWND window);

}  // namespace linux_host
