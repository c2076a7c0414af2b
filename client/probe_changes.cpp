#include "client/probe_changes.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "client/text.h"

namespace client {

namespace {

std::wstring WideOf(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return WideFromUtf8(std::string(text.begin(), text.end()));
}

}  // namespace

ProbeChanges::ProbeChanges(const std::string& file)
    : file_(std::u8string(file.begin(), file.end())),
      folder_(FindFirstChangeNotificationW(WideOf(file_.parent_path()).c_str(), FALSE,
                                           FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_SIZE |
                                               FILE_NOTIFY_CHANGE_LAST_WRITE)) {}

ProbeChanges::~ProbeChanges() {
  if (valid()) FindCloseChangeNotification(folder_);
}

void ProbeChanges::Mark() { marked_ = Look(); }

// The folder is one for temporary files, where much else happens.
ProbeChanges::Event ProbeChanges::Wait(const StopSignal& stop, DWORD timeout_ms) {
  const ULONGLONG end = GetTickCount64() + timeout_ms;
  const HANDLE handles[] = {stop.event(), folder_};
  const DWORD count = valid() ? 2 : 1;
  for (;;) {
    if (valid() && Look() != marked_) return Event::kChanged;
    const ULONGLONG now = GetTickCount64();
    const auto rest = static_cast<DWORD>(end - std::min(now, end));
    const DWORD woken = WaitForMultipleObjects(count, handles, FALSE, rest);
    if (woken == WAIT_OBJECT_0) return Event::kStopped;
    if (woken != WAIT_OBJECT_0 + 1) return Event::kNothing;
    FindNextChangeNotification(folder_);
  }
}

ProbeChanges::Stamp ProbeChanges::Look() const {
  Stamp stamp;
  std::ifstream file(file_, std::ios::binary);
  stamp.content.assign(std::istreambuf_iterator<char>(file), {});
  std::error_code missing;
  stamp.written = std::filesystem::last_write_time(file_, missing);
  return stamp;
}

}  // namespace client
