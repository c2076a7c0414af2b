#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "client/commands.h"
#include "client/stop_signal.h"
#include "client/text.h"

namespace client {

namespace {

// How often a command that only waits makes sure that the service still lives.
constexpr DWORD kHeartbeatMs = 2000;

// The devices-changed file as it was looked at; it is written anew at each change. The directory
// around it is one for temporary files, where much else happens.
struct FileStamp {
  std::string content;
  std::filesystem::file_time_type written;

  bool operator==(const FileStamp&) const = default;
};

FileStamp StampOf(const std::filesystem::path& path) {
  FileStamp stamp;
  std::ifstream file(path, std::ios::binary);
  stamp.content.assign(std::istreambuf_iterator<char>(file), {});
  std::error_code missing;
  stamp.written = std::filesystem::last_write_time(path, missing);
  return stamp;
}

// The changes of a directory's files.
class ChangeNotification {
 public:
  explicit ChangeNotification(const std::filesystem::path& directory)
      : handle_(FindFirstChangeNotificationW(WideOf(directory).c_str(), FALSE,
                                             FILE_NOTIFY_CHANGE_FILE_NAME |
                                                 FILE_NOTIFY_CHANGE_SIZE |
                                                 FILE_NOTIFY_CHANGE_LAST_WRITE)) {}
  ~ChangeNotification() {
    if (valid()) FindCloseChangeNotification(handle_);
  }
  ChangeNotification(const ChangeNotification&) = delete;
  ChangeNotification& operator=(const ChangeNotification&) = delete;

  bool valid() const { return handle_ != INVALID_HANDLE_VALUE; }

  enum class Event { kStopped, kChanged, kNothing };

  Event Wait(const StopSignal& stop, DWORD timeout_ms) {
    const HANDLE handles[] = {stop.event(), handle_};
    const DWORD woken = WaitForMultipleObjects(2, handles, FALSE, timeout_ms);
    if (woken == WAIT_OBJECT_0) return Event::kStopped;
    if (woken != WAIT_OBJECT_0 + 1) return Event::kNothing;
    FindNextChangeNotification(handle_);
    return Event::kChanged;
  }

 private:
  static std::wstring WideOf(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return WideFromUtf8(std::string(text.begin(), text.end()));
  }

  HANDLE handle_;
};

bool ServiceLives(Context& context) {
  std::int32_t version = 0;
  return context.service().GetVersion(version) == TzErrorCode::SUCCESS;
}

std::string ListText(const std::vector<std::string>& names) {
  std::string text = std::to_string(names.size()) + (names.size() == 1 ? " probe" : " probes");
  for (std::size_t i = 0; i < names.size(); ++i) text += (i == 0 ? ": " : ", ") + names[i];
  return text + "\n";
}

// Prints the list unless it is the one that was shown. False when that did not go well.
bool ShowList(Context& context, std::optional<std::vector<std::string>>& shown, int& exit_status) {
  Result result;
  std::vector<std::string> names;
  result.error = context.service().EnumerateWirefoxs(names);
  if (shown == names && result.error == TzErrorCode::SUCCESS) return true;
  result.outputs["wirefoxs"] = names;
  result.text = ListText(names);
  shown = names;
  exit_status = context.Report(result);
  return exit_status == kExitSuccess;
}

// The file that tells of changes is on the other machine: asks now and then instead.
int WatchFromAfar(Context& context) {
  const StopSignal stop;
  std::optional<std::vector<std::string>> shown;
  int exit_status = kExitSuccess;
  while (ShowList(context, shown, exit_status) && !stop.Wait(kHeartbeatMs)) {
  }
  return exit_status;
}

int Watch(Context& context) {
  if (!context.host.empty()) return WatchFromAfar(context);
  std::string location;
  context.service().GetDevicesChangedLocation(location);
  const std::filesystem::path file(std::u8string(location.begin(), location.end()));
  const StopSignal stop;
  ChangeNotification changes(file.parent_path());
  if (!changes.valid()) {
    if (FAILED(context.service().call_failure())) return context.Report(Result());
    return context.output.ReportUsage("cannot watch the folder of " + location);
  }
  std::optional<std::vector<std::string>> shown;
  for (int exit_status = kExitSuccess;;) {
    // The stamp is taken before the question, so that no change falls between the two. The question
    // itself may find a change and have the file written.
    const FileStamp stamp = StampOf(file);
    if (!ShowList(context, shown, exit_status)) return exit_status;
    while (StampOf(file) == stamp) {
      const auto event = changes.Wait(stop, kHeartbeatMs);
      if (event == ChangeNotification::Event::kStopped) return kExitSuccess;
      if (event == ChangeNotification::Event::kNothing && !ServiceLives(context)) {
        return context.Report(Result());
      }
    }
  }
}

}  // namespace

Action DefineWatch(CLI::App&) { return Watch; }

Action DefineHold(CLI::App&) {
  return [](Context& context) {
    const StopSignal stop;
    Result result;
    std::int32_t version = 0;
    result.error = context.service().GetVersion(version);
    result.outputs["versionNum"] = version;
    result.text = "holding TzWirefoxService; interrupt (Ctrl-C) to let it go\n";
    const int exit_status = context.Report(result);
    if (exit_status != kExitSuccess) return exit_status;
    while (!stop.Wait(kHeartbeatMs)) {
      if (!ServiceLives(context)) return context.Report(Result());
    }
    return static_cast<int>(kExitSuccess);
  };
}

}  // namespace client
