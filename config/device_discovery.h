// Keeps the device table in step with what is plugged in, and tells clients of changes by rewriting
// the devices-changed file.
#pragma once

#include <windows.h>

#include <cstdint>

// Starts device handling: the notification thread, the empty devices-changed file at `path` (which
// is copied) and the configuration objects. Arrivals and removals are noticed from its return on.
// Called once, before the service runs. Takes the device-table lock, which the caller does not
// hold.
void StartDeviceDiscovery(HINSTANCE instance, const wchar_t* path);

// The path of the devices-changed file, for the life of the process; null before
// StartDeviceDiscovery.
const wchar_t* GetDevicesChangedPath();

// Brings the table up to date with what is attached: for each family the removal pass, then the
// configuration pass. True when the table changed; the devices-changed file is then rewritten.
// Takes the device-table lock, which the caller may hold already.
bool RefreshDevices();

// Handles a WM_DEVICECHANGE event code, with the lock held: an arrival runs the configuration
// passes, a completed removal the removal passes, any other code none. True when the table changed.
// Which device has left is known from the window procedure, which notes it before it takes the
// lock.
bool HandleDeviceEvent(WPARAM event);

// Rewrites the devices-changed file: a line with each probe's name, in table order. With the lock
// held.
void WriteDevicesChangedFile();

// The procedure of the notification window, for its thread. A probe whose removal it hears of loses
// its entry, also when it has come back under the same path, at the next removal pass or
// RefreshDevices.
LRESULT CALLBACK NotificationWindowProc(HWND window, UINT message, WPARAM first, LPARAM second);
