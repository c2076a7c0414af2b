// The process entry of TzWirefoxService.
#include <windows.h>

#include <array>
#include <cstdlib>
#include <string>

#include "config/activity_file.h"
#include "config/device_discovery.h"
#include "config/device_table.h"
#include "service/self_description.h"
#include "service/service_module.h"
#include "service/single_instance.h"
#include "support/log.h"
#include "support/settings_file.h"

namespace {

constexpr DWORD kPathRoom = 260;
constexpr DWORD kExitTimeoutMs = 1000;

// Where clients are told of changes to the list of probes; empty, so that the file cannot be
// written, when the temporary directory's path is too long for it.
std::wstring DevicesChangedPath() {
  std::array<wchar_t, kPathRoom> directory = {};
  const DWORD length = GetTempPathW(kPathRoom, directory.data());
  const std::wstring path = std::wstring(directory.data()) + L"wfx.log";
  return length == 0 || length >= kPathRoom || path.size() >= kPathRoom ? std::wstring() : path;
}

// Everything up to device handling happens in every process of the service, also in one that only
// registers it or will find that it must not run: scripts rely on a registering process having been
// through its start.
int RunProcess(HINSTANCE instance) {
  CTzWirefoxServiceModule module;
  const SingleInstanceGuard guard;
  ReadSettings((GetModuleDirectory() + "wfxusb.ini").c_str());
  OpenLog(GetSetting("LOGFILE"), std::atoi(GetSetting("LOGLEVEL")));
  // A process that the guard stops starts device handling like any other, unless the device table
  // is shut to this account as well: it would wait for the lock until the other service ends.
  if (guard.MayRun() || CanOpenDeviceTableLock()) {
    StartDeviceDiscovery(instance, DevicesChangedPath().c_str());
    RefreshDevices();
  }
  if (!guard.MayRun()) return guard.ReportFailure();
  const int result = module.Main(GetCommandLineW());
  guard.Release();
  return result;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, LPWSTR arguments, int) {
  // Before the start, which empties the log and the file that clients watch.
  if (DescribesItself(arguments)) return 0;
  const int result = RunProcess(instance);
  // The notification thread runs on until the process is gone. Nothing that it uses is destroyed
  // before: log, settings, configurators, probes, bus and the devices-changed path are made to stay
  // for good, and whatever joins them has to be. Who holds the lock, until the process lets it go
  // by its end, has that thread begin nothing new, so that it is not cut off while it writes a
  // file. More is not worth waiting for: a download, or another process, may hold the lock for
  // minutes, and the service has said that it stopped. A probe whose download ends here is loaded
  // again by the next start.
  if (TryLockDeviceTable(kExitTimeoutMs)) EndActivityFile();
  return result;
}
